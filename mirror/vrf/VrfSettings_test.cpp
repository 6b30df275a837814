#include "mirror/vrf/VrfSettings.h"

#include <gmock/gmock.h>

#include "quillo/testing/TestStore.h"

namespace Mirror {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST(VrfSettingsText, vrfsAndTheirStaticRoutes) {
  const auto all = vrfSettingsFromText(R"(# what the kernel cannot tell
vrfs:
  red:
    staticRoutes:
      - {prefix: 10.0.0.0/8, preference: 255, nexthopGroup: true}
      - {prefix: "2001:db8::/32", persistent: false}
  "a.b/c \xE9":
)",
                                       "file");
  VrfSettings red;
  red.staticRoutes[Routing::StaticRouteKey::fromString("10.0.0.0/8 255")] = Routing::StaticRouteFacts(true, true);
  red.staticRoutes6[Routing6::StaticRouteKey::fromString("2001:db8::/32 1")] =
      Routing::StaticRouteFacts(false, false);
  EXPECT_EQ(all, (AllVrfSettings{{L3::VrfName("red"), red}, {L3::VrfName("a.b/c \303\251"), {}}}));
  for (const char* empty : {"", "# nothing\n", "vrfs:\n", "vrfs: {}\n"}) {
    EXPECT_TRUE(vrfSettingsFromText(empty, "file").empty()) << empty;
  }
}

TEST(VrfSettingsText, whatIsWrongIsOneLineThatNamesThePlace) {
  const std::string red = "vrfs:\n  red:\n    ", routes = red + "staticRoutes:";
  const std::pair<std::string, const char*> cases[] = {
      {"vrfs: [", "file:1: YAML: "},
      {"- red", "file:1: the file: "},
      {"\nvrf: {}", "file:2: the file: 'vrf' is no key"},
      {"vrfs: 7", "file:1: vrfs: "},
      {"vrfs:\n  " + std::string(101, 'x') + ":", "file:2: vrfs: "},
      {"vrfs:\n  '':", "file:2: vrfs: "},
      {"vrfs:\n  red: {}\n  red: {}", "file:3: vrfs.red: "},
      {"vrfs:\n  red: {rd: x}", "file:2: vrfs.red: 'rd' is no key"},
      {"vrfs:\n  default:\n    routeDistinguisher: '1:1'", "file:3: vrfs.default.routeDistinguisher: "},
      {red + "routeDistinguisher: nonsense", "file:3: vrfs.red.routeDistinguisher: "},
      {red + "routeDistinguisher: ''", "file:3: vrfs.red.routeDistinguisher: "},
      {red + "routeDistinguisher: [1]", "file:3: vrfs.red.routeDistinguisher: "},
      {routes + " 10.0.0.0/8", "file:3: vrfs.red.staticRoutes: "},
      {routes + "\n      - 10.0.0.0/8", "file:4: vrfs.red.staticRoutes: "},
      {routes + " [{preference: 1}]", "file:3: vrfs.red.staticRoutes: a route without prefix"},
      {routes + " [{prefix: 10.0.0.1/8}]", "vrfs.red.staticRoutes.prefix: \"10.0.0.1/8\" has bits"},
      {routes + " [{prefix: 'x::y/3'}]", "vrfs.red.staticRoutes.prefix: "},
      {routes + " [{prefix: 10.0.0.0/8, preference: -1}]", ".preference: "},
      {routes + " [{prefix: 10.0.0.0/8, preference: 256}]", ".preference: "},
      {routes + " [{prefix: 10.0.0.0/8, persistent: 3}]", ".persistent: "},
      {routes + "\n      - {prefix: 10.0.0.0/8, preference: 1}\n      - {prefix: 10.0.0.0/8}",
       "file:5: vrfs.red.staticRoutes: the route is there twice"}};
  for (const auto& [text, expected] : cases) {
    try {
      vrfSettingsFromText(text, "file");
      ADD_FAILURE() << "taken: " << text;
    } catch (const Kel::Exception& error) {
      EXPECT_THAT(error.what(), HasSubstr(expected));
      EXPECT_THAT(error.what(), StartsWith("file:"));
      EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos) << error.what();
      EXPECT_THAT(error.what(), HasSubstr("; ")) << "and what to do";
    }
  }
}

class SettingsFileTest : public Quillo::Test::TestStore {
 protected:
  void write(const std::string& text) const { std::ofstream(file_) << text; }
  static std::string vrf(const char* name) { return std::string("vrfs:\n  ") + name + ":\n"; }
  static std::string namesOf(const SettingsFile& file) {
    std::string names;
    for (const auto& [name, settings] : file.settings()) names += name.stringValue();
    return names;
  }

  std::string file_ = parent_ + "/mirror.yaml";
  Quillo::Test::Traces traces_;
};

TEST_F(SettingsFileTest, whatIsWrittenOrPutInItsPlaceIsTakenUpUnlessItIsWrong) {
  write(vrf("a"));
  SettingsFile file(file_, true);
  EXPECT_FALSE(file.update());
  write(vrf("bb"));
  EXPECT_TRUE(file.update());
  EXPECT_EQ(namesOf(file), "bb");
  std::ofstream(parent_ + "/other") << vrf("c");
  EXPECT_FALSE(file.update());
  std::filesystem::rename(parent_ + "/other", file_);
  EXPECT_TRUE(file.update());
  EXPECT_FALSE(file.poll());
  EXPECT_THAT(traces_.lines, IsEmpty());
  write("vrfs: [");
  EXPECT_FALSE(file.update() || file.poll() || file.poll());
  EXPECT_THAT(traces_.lines, ElementsAre(HasSubstr(file_ + ":1: ")));
  std::filesystem::remove(file_);
  EXPECT_FALSE(file.update() || file.poll() || file.poll() || file.poll());
  EXPECT_EQ(namesOf(file), "c");
  EXPECT_EQ(traces_.lines.size(), 2U);
  write(vrf("d"));
  EXPECT_TRUE(file.update());
  EXPECT_EQ(namesOf(file), "d");
}

TEST_F(SettingsFileTest, changesThatAreNotToldOf) {
  const std::string below = parent_ + "/later/mirror.yaml";
  EXPECT_THROW(SettingsFile(below, true), Kel::Exception) << "it was asked for";
  SettingsFile file(below, false);
  EXPECT_FALSE(file.poll());
  std::filesystem::create_directories(parent_ + "/later");
  write("nonsense");
  std::filesystem::create_symlink(file_, below);
  for (const auto& wrong : {below, parent_}) EXPECT_THROW(SettingsFile(wrong, false), Kel::Exception);
  for (const char* name : {"a", "bb"}) {
    write(vrf(name));  // behind the link
    EXPECT_FALSE(file.poll()) << "it may be half written";
    EXPECT_TRUE(file.poll());
    EXPECT_EQ(namesOf(file), name);
  }
  SettingsFile none("", false);
  EXPECT_FALSE(none.update() || none.poll());
}

}  // namespace
}  // namespace Mirror
