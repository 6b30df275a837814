#include "mirror/vrf/VrfSettings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "kel/Errors.h"
#include "kel/Trace.h"

namespace Mirror {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST(VrfSettingsText, everyKey) {
  const auto all = vrfSettingsFromText(R"(# what the kernel cannot tell
vrfs:
  red:
    routeDistinguisher: "65000:1"
    staticRoutes:
      - prefix: 10.0.0.0/8
        preference: 255
        nexthopGroup: true
      - {prefix: "2001:db8::/32", persistent: false}
  default:
    staticRoutes:
      - {prefix: 0.0.0.0/0}
  "a.b/c \xE9":
)",
                                       "file");
  VrfSettings red, defaults;
  red.routeDistinguisher = Vantu::RouteDistinguisher::fromString("65000:1");
  red.staticRoutes[Routing::StaticRouteKey::fromString("10.0.0.0/8 255")] = Routing::StaticRouteFacts(true, true);
  red.staticRoutes6[Routing6::StaticRouteKey::fromString("2001:db8::/32 1")] =
      Routing::StaticRouteFacts(false, false);
  defaults.staticRoutes[Routing::StaticRouteKey::fromString("0.0.0.0/0 1")] =
      Routing::StaticRouteFacts(false, true);
  const AllVrfSettings expected{
      {L3::VrfName("red"), red}, {L3::VrfName(), defaults}, {L3::VrfName("a.b/c \303\251"), {}}};
  EXPECT_EQ(all, expected);
  for (const char* empty : {"", "# nothing\n", "vrfs:\n", "vrfs: {}\n"}) {
    EXPECT_TRUE(vrfSettingsFromText(empty, "file").empty()) << empty;
  }
}

TEST(VrfSettingsText, whatIsWrongIsOneLineThatNamesThePlace) {
  const std::string longName(101, 'x');
  const std::pair<std::string, const char*> cases[] = {
      {"vrfs: [", "file:1: YAML: "},
      {"- red", "file:1: the file: "},
      {"\nvrf: {}", "file:2: the file: 'vrf' is no key"},
      {"vrfs: 7", "file:1: vrfs: "},
      {"vrfs:\n  " + longName + ":", "file:2: vrfs: "},
      {"vrfs:\n  '':", "file:2: vrfs: "},
      {"vrfs:\n  red: {}\n  red: {}", "file:3: vrfs.red: "},
      {"vrfs:\n  red: {rd: x}", "file:2: vrfs.red: 'rd' is no key"},
      {"vrfs:\n  red:\n    routeDistinguisher: nonsense", "file:3: vrfs.red.routeDistinguisher: "},
      {"vrfs:\n  red:\n    routeDistinguisher: ''", "file:3: vrfs.red.routeDistinguisher: "},
      {"vrfs:\n  red:\n    routeDistinguisher: [1]", "file:3: vrfs.red.routeDistinguisher: "},
      {"vrfs:\n  default:\n    routeDistinguisher: '1:1'", "file:3: vrfs.default.routeDistinguisher: "},
      {"vrfs:\n  red:\n    staticRoutes: 10.0.0.0/8", "file:3: vrfs.red.staticRoutes: "},
      {"vrfs:\n  red:\n    staticRoutes:\n      - 10.0.0.0/8", "file:4: vrfs.red.staticRoutes: "},
      {"vrfs:\n  red:\n    staticRoutes: [{preference: 1}]",
       "file:3: vrfs.red.staticRoutes: a route without prefix"},
      {"vrfs:\n  red:\n    staticRoutes: [{prefix: 10.0.0.1/8, preference: 1}]",
       ".prefix: \"10.0.0.1/8\" has bits"},
      {"vrfs:\n  red:\n    staticRoutes: [{prefix: 'x::y/3', preference: 1}]", "vrfs.red.staticRoutes.prefix: "},
      {"vrfs:\n  red:\n    staticRoutes: [{prefix: 10.0.0.0/8, preference: -1}]", ".preference: "},
      {"vrfs:\n  red:\n    staticRoutes: [{prefix: 10.0.0.0/8, preference: 256}]", ".preference: "},
      {"vrfs:\n  red:\n    staticRoutes: [{prefix: 10.0.0.0/8, preference: 1, persistent: 3}]", ".persistent: "},
      {"vrfs:\n  red:\n    staticRoutes:\n      - {prefix: 10.0.0.0/8, preference: 1}\n"
       "      - {prefix: 10.0.0.0/8}",
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

class SettingsFileTest : public testing::Test {
 protected:
  SettingsFileTest() {
    std::filesystem::create_directories(directory_);
    Kel::TraceConfig::sinkIs([this](const Kel::TraceHandle&, unsigned level, const std::string& text) {
      if (level == 0) complaints_.push_back(text);
    });
  }
  ~SettingsFileTest() override {
    Kel::TraceConfig::sinkIs({});
    std::filesystem::remove_all(directory_);
  }
  void write(const std::string& text, const char* name = "mirror.yaml") const {
    std::ofstream(directory_ + "/" + name) << text;
  }
  static std::string vrf(const char* name) { return std::string("vrfs:\n  ") + name + ":\n"; }
  static std::string namesOf(const SettingsFile& file) {
    std::string names;
    for (const auto& [name, settings] : file.settings()) names += name.stringValue();
    return names;
  }

  std::string directory_ = "/tmp/mirror-settings-" + std::to_string(getpid());
  std::string file_ = directory_ + "/mirror.yaml";
  std::vector<std::string> complaints_;
};

TEST_F(SettingsFileTest, whatIsWrittenOrPutInItsPlaceIsTakenUpUnlessItIsWrong) {
  write(vrf("a"));
  SettingsFile file(file_, true);
  EXPECT_FALSE(file.update());
  write(vrf("bb"));
  EXPECT_TRUE(file.update());
  EXPECT_EQ(namesOf(file), "bb");
  write(vrf("c"), "other");
  EXPECT_FALSE(file.update());
  std::filesystem::rename(directory_ + "/other", file_);
  EXPECT_TRUE(file.update());
  EXPECT_FALSE(file.poll());
  EXPECT_THAT(complaints_, IsEmpty());
  write("vrfs: [");
  EXPECT_FALSE(file.update() || file.poll() || file.poll());
  EXPECT_THAT(complaints_, ElementsAre(HasSubstr(file_ + ":1: ")));
  std::filesystem::remove(file_);
  EXPECT_FALSE(file.update() || file.poll() || file.poll() || file.poll());
  EXPECT_EQ(namesOf(file), "c");
  EXPECT_EQ(complaints_.size(), 2U);
  write(vrf("d"));
  EXPECT_TRUE(file.update());
  EXPECT_EQ(namesOf(file), "d");
}

TEST_F(SettingsFileTest, changesThatAreNotToldOf) {
  const std::string below = directory_ + "/later/mirror.yaml";
  EXPECT_THROW(SettingsFile(below, true), Kel::Exception) << "it was asked for";
  SettingsFile file(below, false);
  EXPECT_FALSE(file.poll());
  std::filesystem::create_directories(directory_ + "/later");
  write(vrf("a"));
  std::filesystem::create_symlink(file_, below);
  for (const char* name : {"a", "bb"}) {
    write(vrf(name));  // behind the link
    EXPECT_FALSE(file.poll()) << "it may be half written";
    EXPECT_TRUE(file.poll());
    EXPECT_EQ(namesOf(file), name);
  }
}

TEST_F(SettingsFileTest, whatIsNoFileIsRefusedAtTheStart) {
  EXPECT_THROW(SettingsFile(directory_, false), Kel::Exception);
  write("nonsense");
  EXPECT_THROW(SettingsFile(file_, false), Kel::Exception);
  SettingsFile none("", false);
  EXPECT_FALSE(none.update() || none.poll());
}

}  // namespace
}  // namespace Mirror
