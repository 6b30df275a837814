// The ids of VRFs, and their settings. Namespaces and devices as VRFs are tested with the whole mirror.

#include "mirror/vrf/Vrfs.h"

#include <gtest/gtest.h>

#include "mirror/publish/TreePublisher.h"
#include "varnix/Document.h"

namespace Mirror {
namespace {

using L3::VrfName;
using Vrf::VrfIdMap::VrfId;

const VrfName red("red");
const VrfName blue("blue");

std::string idDocument(const Varnix::Tree& tree) {
  return Varnix::documentText(Varnix::documentOf(*tree.vrfIdStatus, *tree.root));
}

TEST(VrfIds, whenAllAreTakenThoseThatWentLongestAgoAreGivenAgain) {
  Picture earlier;
  VrfIds before(earlier.tree, 5);
  for (const char* name : {"a", "b", "c", "d", "e"}) before.idIs(VrfName(name));
  Picture picture;
  VrfIds ids(picture.tree, 5);
  ids.load(idDocument(earlier.tree));
  EXPECT_EQ(picture.tree.vrfIdStatus->vrfName(VrfId(0))->stringValue(), "default");
  EXPECT_EQ(picture.tree.vrfNameStatus->vrfIdOf(VrfName()), VrfId(0));
  for (const char* name : {"a", "d", "e"}) ids.idIs(VrfName(name));
  EXPECT_FALSE(picture.tree.vrfNameStatus->vrfIdExists(VrfName("a"))) << "that is for the VRF's records";
  ids.idDel(VrfName("e"));
  ids.idDel(VrfName("a"));
  EXPECT_EQ(ids.idIs(VrfName("f")), VrfId(2)) << "b went before the program began";
  EXPECT_EQ(ids.idIs(VrfName("g")), VrfId(3));
  EXPECT_EQ(ids.idIs(VrfName("h")), VrfId(5)) << "e went before a";
  EXPECT_EQ(ids.idIs(VrfName("a")), VrfId(1)) << "its own";
  EXPECT_EQ(ids.idIs(VrfName("b")), std::nullopt);
  ids.idDel(VrfName("d"));
  EXPECT_EQ(ids.idIs(VrfName("b")), VrfId(4));
}

TEST(VrfIds, aRecordThatIsNoUseIsLeftOut) {
  for (const char* text :
       {"", "{", R"({"type":"x","attributes":{"vrfName":{"0":"red","9999":"red","7":3,"8":"default"}}})",
        R"({"type":"x","attributes":{"vrfName":{"1x":"red"}}})"}) {
    Picture picture;
    picture.vrfs.ids().load(text);
    EXPECT_EQ(picture.vrfs.ids().idIs(red), VrfId(1)) << text;
    EXPECT_EQ(picture.tree.vrfIdStatus->vrfName().size(), 2U) << text;
  }
}

TEST(VrfSettings, applyToVrfsThatAreThereAndThatCome) {
  Picture picture;
  VrfSettings settings;
  settings.routeDistinguisher = Vantu::RouteDistinguisher::fromString("65000:1");
  settings.staticRoutes[Routing::StaticRouteKey::fromString("10.0.0.0/8 1")] = {};
  settings.staticRoutes6[Routing6::StaticRouteKey::fromString("2001:db8::/32 200")] = {};
  const auto expectSettings = [&](bool isThere) {
    EXPECT_EQ(picture.tree.routingConfig->staticRoute().size(), isThere);
    for (const auto& name : {red, blue}) {
      EXPECT_EQ(picture.tree.allVrfConfig->vrfConfig(name)->routeDistinguisher().isSet(), isThere);
      EXPECT_EQ(picture.tree.routingVrfConfigDir->vrfConfig(name.stringValue())->staticRoute().size(), isThere);
      EXPECT_EQ(picture.tree.routing6VrfConfigDir->vrfConfig(name.stringValue())->staticRoute().size(), isThere);
    }
  };
  picture.vrfs.namespaceIs(red);
  picture.vrfs.writeRecords(red, 254);
  picture.vrfs.setSettings({{red, settings}, {blue, settings}, {VrfName(), settings}});
  picture.vrfs.namespaceIs(blue);
  picture.vrfs.writeRecords(blue, 254);
  expectSettings(true);
  picture.vrfs.setSettings({});
  expectSettings(false);
}

}  // namespace
}  // namespace Mirror
