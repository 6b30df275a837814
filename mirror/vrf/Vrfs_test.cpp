// VRFs and their ids, records and interfaces.

#include "mirror/vrf/Vrfs.h"

#include <gmock/gmock.h>

#include "mirror/testing/NamespaceMirrorTest.h"
#include "varnix/Document.h"

namespace Mirror {
namespace {

using namespace Test;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using L3::VrfName;
using Vrf::VrfIdMap::VrfId;

const VrfName red("red");
const VrfName blue("blue");

// ---- ids

std::string idDocument(const Varnix::Tree& tree) {
  return Varnix::documentText(Varnix::documentOf(*tree.vrfIdStatus, *tree.root));
}

TEST(VrfIds, aVrfKeepsItsIdWhileAnyOtherIsFree) {
  Picture picture;
  VrfIds& ids = picture.vrfs.ids();
  EXPECT_EQ(ids.idIs(red), VrfId(1));
  EXPECT_EQ(ids.idIs(blue), VrfId(2));
  ids.idDel(red);
  EXPECT_EQ(ids.idIs(VrfName("green")), VrfId(3));
  EXPECT_EQ(ids.idIs(red), VrfId(1));

  Picture again;
  again.vrfs.ids().load(idDocument(picture.tree));
  EXPECT_EQ(again.vrfs.ids().idIs(VrfName("white")), VrfId(4));
  EXPECT_EQ(again.vrfs.ids().idIs(blue), VrfId(2));
  EXPECT_EQ(again.tree.vrfIdStatus->vrfName(VrfId(0))->stringValue(), "default");
  EXPECT_EQ(again.tree.vrfNameStatus->vrfIdOf(VrfName()), VrfId(0));
  EXPECT_FALSE(again.tree.vrfNameStatus->vrfIdExists(blue)) << "that is for the VRF's records";
}

TEST(VrfIds, whenAllAreTakenThoseThatWentLongestAgoAreGivenAgain) {
  Picture earlier;
  VrfIds before(earlier.tree, 5);
  for (const char* name : {"a", "b", "c", "d", "e"}) before.idIs(VrfName(name));
  Picture picture;
  VrfIds ids(picture.tree, 5);
  ids.load(idDocument(earlier.tree));
  for (const char* name : {"a", "d", "e"}) ids.idIs(VrfName(name));
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

// ---- a namespace as a VRF

using ScopeTest = NamespaceMirrorTest;

TEST_F(ScopeTest, aNamespaceIsShownAsItsVrfAndGoesWhole) {
  startAndSettle();
  const Lines ofDefault = linesOf(picture_);
  FakeKernel kernel;
  kernel.links = kernel_.links;
  kernel.addresses = {at(2, "10.0.0.1/24"), at(2, "2001:db8::1/64")};
  kernel.neighbours = {neighbour(2, "10.0.0.9"), neighbour(2, "fe80::9", NUD_PERMANENT)};
  const auto id = picture_.vrfs.namespaceIs(red);
  ASSERT_EQ(id, VrfId(1));
  NamespaceMirror mirror(kernel, picture_, NamespaceScope(red, *id), ForwardingFlags("/nowhere"));
  mirror.start();
  EXPECT_FALSE(tree_.allVrfStatusLocal->vrfHas(red)) << "an incomplete picture is not shown";
  settle(mirror);
  Lines expected = expectedLines(kernel, {"red", 1});
  expected.insert(ofDefault.begin(), ofDefault.end());
  EXPECT_EQ(linesOf(picture_), expected);
  EXPECT_EQ(tree_.allVrfStatusLocal->vrf(red)->state(), Ip::vrfStateActive);
  EXPECT_TRUE(tree_.allVrfStatusLocal->vrf(red)->hasNamespace());
  EXPECT_EQ(tree_.allVrfStatusGlobal->vrf(red)->state(), Ip::vrfStateActive);
  EXPECT_TRUE(tree_.allVrfConfig->vrfConfigHas(red));
  for (const auto& dir : {tree_.routingVrfInfoDir, tree_.routing6VrfInfoDir}) {
    EXPECT_EQ(Kel::dynamicPtr<Routing::VrfInfo>(dir->entityPtr("red"))->kernelTable(), 254U);
  }
  EXPECT_EQ(tree_.vrfNameStatus->vrfIdOf(red), VrfId(1));
  kernel.notify(describeForwarding(Message(RTM_NEWNETCONF), Vantu::ipv4_, NETCONFA_IFINDEX_ALL, 1));
  settle(mirror);
  EXPECT_TRUE(tree_.routingVrfConfigDir->vrfConfig("red")->routing());
  EXPECT_FALSE(tree_.routing6VrfConfigDir->vrfConfig("red")->routing() || tree_.routingConfig->routing());

  mirror.withdraw();
  EXPECT_EQ(linesOf(picture_), ofDefault);
  EXPECT_FALSE(tree_.allVrfStatusLocal->vrfHas(red) || tree_.allVrfStatusGlobal->vrfHas(red) ||
               tree_.allVrfConfig->vrfConfigHas(red) || tree_.routingVrfConfigDir->vrfConfigHas("red") ||
               tree_.routing6VrfConfigDir->vrfConfigHas("red") || tree_.vrfNameStatus->vrfIdExists(red));
  EXPECT_TRUE(tree_.routingVrfInfoDir->entityPtr().empty() && tree_.routing6VrfInfoDir->entityPtr().empty());
}

TEST_F(ScopeTest, aKernelIndexThatDoesNotFitIsRefusedOnce) {
  kernel_.links[1 << 20] = {1 << 20, "big"};
  startAndSettle();
  expectAgreement();
  EXPECT_THAT(complaints_, IsEmpty()) << "in the default namespace it fits";
  NamespaceMirror mirror(kernel_, picture_, NamespaceScope(red, *picture_.vrfs.namespaceIs(red)));
  kernel_.reopen();
  kernel_.links[(1 << 20) - 1] = {(1 << 20) - 1, "last"};
  mirror.start();
  settle(mirror);
  kernel_.linkIs(kernel_.links[1 << 20]);
  settle(mirror);
  EXPECT_FALSE(tree_.intfStatusDir->intfStatusHas(Vantu::IntfId("red/big")));
  EXPECT_EQ(tree_.intfStatusDir->intfStatus(Vantu::IntfId("red/last"))->ifIndex(), (2U << 20) - 1);
  EXPECT_THAT(complaints_, ElementsAre(HasSubstr("red/big")));
}

// ---- VRF devices

class VrfDeviceTest : public NamespaceMirrorTest {
 protected:
  VrfDeviceTest() {
    kernel_.links[5] = {5, "red", IFF_UP, IF_OPER_UP, std::nullopt, 0, 1001};
    kernel_.links[2].master = 5;
    kernel_.links[3] = {3, "eth1"};
    kernel_.addresses = {at(2, "10.0.0.1/24")};
    kernel_.neighbours = {neighbour(2, "10.0.0.9")};
  }
  // The device and its member have their links and nothing else: no VRF shows them.
  void expectInNoVrf() const {
    EXPECT_EQ(linesOf(picture_), expectedLines(kernel_));
    EXPECT_FALSE(tree_.l3ConfigDir->intfConfigHas(Vantu::IntfId("eth0")));
  }
  std::string vrfOf(const char* id) const {
    return tree_.l3ConfigDir->intfConfig(Vantu::IntfId(id))->vrf().stringValue();
  }
};

TEST_F(VrfDeviceTest, theDeviceAndItsMembersAreInItsVrf) {
  startAndSettle();
  expectAgreement();
  EXPECT_EQ(vrfOf("eth0"), "red");
  EXPECT_EQ(vrfOf("red"), "red");
  EXPECT_EQ(vrfOf("eth1"), "default");
  EXPECT_EQ(Kel::dynamicPtr<Routing::VrfInfo>(tree_.routing6VrfInfoDir->entityPtr("red"))->kernelTable(), 1001U);
  EXPECT_FALSE(tree_.allVrfStatusLocal->vrf(red)->hasNamespace());
  EXPECT_EQ(tree_.intfStatusDir->intfStatus(Vantu::IntfId("eth0"))->ifIndex(), 2U) << "the kernel's";

  kernel_.notify(describeForwarding(Message(RTM_NEWNETCONF), Vantu::ipv4_, NETCONFA_IFINDEX_ALL, 1));
  settle();
  EXPECT_TRUE(tree_.routingVrfConfigDir->vrfConfig("red")->routing()) << "as its namespace";

  kernel_.linkIs({3, "eth1", IFF_UP, IF_OPER_UP, std::nullopt, 5});
  kernel_.linkIs({2, "eth0"});
  settleAndCompare();
  EXPECT_EQ(vrfOf("eth1"), "red");
  EXPECT_EQ(vrfOf("eth0"), "default");

  TestLink device = kernel_.links[5];
  device.name = "blue";
  device.vrfTable = 1002;
  kernel_.linkIs(device);
  settleAndCompare();
  EXPECT_EQ(vrfOf("eth1"), "blue");
  EXPECT_FALSE(tree_.allVrfStatusLocal->vrfHas(red));
  EXPECT_TRUE(tree_.routingVrfConfigDir->vrfConfig("blue")->routing());
  kernel_.linkDel(5);
  settle();
  EXPECT_EQ(vrfOf("eth1"), "default") << "though the kernel has not told of the member yet";
  EXPECT_TRUE(tree_.allVrfStatusLocal->vrf().empty());
}

TEST_F(VrfDeviceTest, aNamespaceOfTheSameNameWins) {
  startAndSettle();
  ASSERT_EQ(picture_.vrfs.namespaceIs(red), VrfId(1)) << "the id is the name's";
  mirror_.settle();
  expectInNoVrf();
  EXPECT_FALSE(tree_.allVrfStatusLocal->vrfHas(red)) << "the namespace is not listed yet";
  EXPECT_THAT(complaints_, ElementsAre(HasSubstr("red")));
  kernel_.linkIs({5, "red", IFF_UP, IF_OPER_DOWN, std::nullopt, 0, 1001});
  settle();
  EXPECT_EQ(complaints_.size(), 1U) << "once";
  expectInNoVrf();
  picture_.vrfs.namespaceDel(red);
  mirror_.settle();
  settleAndCompare();
  EXPECT_EQ(vrfOf("eth0"), "red");
}

TEST_F(VrfDeviceTest, aDeviceThatCannotBeAVrf) {
  kernel_.links[5].name = "default";
  startAndSettle();
  expectInNoVrf();
  EXPECT_THAT(complaints_, ElementsAre(HasSubstr("default")));
}

// ---- settings

TEST(VrfSettings, applyToVrfsThatAreThereAndThatCome) {
  Picture picture;
  const auto settingsOf = [](const char* rd) {
    VrfSettings settings;
    settings.routeDistinguisher = Vantu::RouteDistinguisher::fromString(rd);
    settings.staticRoutes[Routing::StaticRouteKey::fromString("10.0.0.0/8 1")] =
        Routing::StaticRouteFacts(true, false);
    settings.staticRoutes6[Routing6::StaticRouteKey::fromString("2001:db8::/32 200")] = {};
    return settings;
  };
  picture.vrfs.namespaceIs(red);
  picture.vrfs.recordsAre(red, 254);
  picture.vrfs.settingsAre(
      {{red, settingsOf("65000:1")}, {blue, settingsOf("65000:2")}, {VrfName(), settingsOf("")}});
  picture.vrfs.namespaceIs(blue);
  picture.vrfs.recordsAre(blue, 254);
  EXPECT_EQ(picture.tree.allVrfConfig->vrfConfig(red)->routeDistinguisher().stringValue(), "65000:1");
  EXPECT_EQ(picture.tree.allVrfConfig->vrfConfig(blue)->routeDistinguisher().stringValue(), "65000:2");
  EXPECT_EQ(picture.tree.routingConfig->staticRoute().size(), 1U);
  EXPECT_EQ(picture.tree.routing6VrfConfigDir->vrfConfig("blue")->staticRoute().size(), 1U);
  picture.vrfs.settingsAre({});
  EXPECT_FALSE(picture.tree.allVrfConfig->vrfConfig(red)->routeDistinguisher().isSet());
  EXPECT_TRUE(picture.tree.routingConfig->staticRoute().empty());
  EXPECT_TRUE(picture.tree.routing6VrfConfigDir->vrfConfig("blue")->staticRoute().empty());
}

}  // namespace
}  // namespace Mirror
