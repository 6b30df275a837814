#include "varnix/TreeLoader.h"

#include <gmock/gmock.h>

#include "varnix/testing/TestTree.h"

namespace VarnixNested {

// A tree that is deeper than the state database's.
class Leaf : public Kel::Entity {
  KEL_TYPE_BEGIN("VarnixNested::Leaf", Leaf, Kel::Entity)
 public:
  KEL_NAMED(Leaf, Kel::Entity)
  KEL_STORED(int, number, Number, 5)
  KEL_REFERENCE(const Leaf, next, Next)
  KEL_TYPE_END
};
class Branch : public Kel::Entity {
  KEL_TYPE_BEGIN("VarnixNested::Branch", Branch, Kel::Entity)
 public:
  KEL_NAMED(Branch, Kel::Entity)
  KEL_MEMBERS(Ordered, Kel::Name, Leaf, leaf, Leaf)
  KEL_TYPE_END
};
class Ring : public Kel::Entity {
  KEL_TYPE_BEGIN("VarnixNested::Ring", Ring, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(Ring, ((int, year)))
  KEL_TYPE_END
};
class Trunk : public Kel::Entity {
  KEL_TYPE_BEGIN("VarnixNested::Trunk", Trunk, Kel::Entity)
 public:
  KEL_NAMED(Trunk, Kel::Entity)
  KEL_MEMBERS(Ordered, Kel::Name, Branch, branch, Branch)
  KEL_MEMBERS(Ordered, int, Ring, ring, Ring)
  KEL_TYPE_END
};

}  // namespace VarnixNested

namespace Varnix {
namespace {

using namespace VarnixTest;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct TreeLoaderTest : ::testing::Test {
  Kel::Ptr<Kel::Dir> top = Kel::makePtr<Kel::Dir>("");
  Tree tree{top->dirIs("Varnix")};
  TreeLoader loader{tree.root, tree.openDirs()};
  Traces traces;

  void load(const std::string& path, const std::string& type, const std::string& attributes) {
    loader.documentIs(path, R"({"type":")" + type + R"(","attributes":)" + attributes + "}");
  }
};

const Vantu::IntfId eth0("eth0");
const Vantu::IntfId eth1("eth1");

TEST_F(TreeLoaderTest, leavesOutWhatItDoesNotKnowAndLoadsTheRest) {
  load("interface/status.intfStatus/eth0", "Interface::IntfStatus",
       R"({"kind":"linux","ifIndex":-3,"operStatus":"upwards","colour":"red","intfId":"eth9"})");
  EXPECT_THAT(traces.take(),
              ElementsAre(AllOf(HasSubstr("interface/status.intfStatus/eth0"), HasSubstr("'ifIndex'"),
                                HasSubstr("out of range 0 to 4294967295")),
                          AllOf(HasSubstr("'operStatus'"), HasSubstr("operStatusUp")),
                          AllOf(HasSubstr("no attribute 'colour'")), AllOf(HasSubstr("no attribute 'intfId'"))));
  const auto status = tree.intfStatusDir->intfStatus(eth0);
  ASSERT_TRUE(status);
  EXPECT_EQ(status->kind(), "linux");
  EXPECT_EQ(status->ifIndex(), 0u);

  // The same unknown attribute in the next document is no news.
  load("interface/status.intfStatus/eth1", "Interface::IntfStatus", R"({"colour":"red","ifIndex":4})");
  EXPECT_THAT(traces.take(), IsEmpty());
  EXPECT_EQ(tree.intfStatusDir->intfStatus(eth1)->ifIndex(), 4u);

  // What becomes bad, or is not said any more, goes back to its default.
  load("interface/status.intfStatus/eth1", "Interface::IntfStatus", R"({"ifIndex":"4"})");
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("expected an integer, found a text")));
  EXPECT_EQ(tree.intfStatusDir->intfStatus(eth1)->ifIndex(), 0u);
}

TEST_F(TreeLoaderTest, leavesOutDocumentsWithoutAPlace) {
  load("interface/status.intfStatus/eth0", "Interface::Future", "{}");
  load("interface/status.future/eth0", "Interface::IntfStatus", "{}");
  load("interface/status.intfStatus/", "Interface::IntfStatus", "{}");
  load("interface/status", "Interface::IntfStatus", "{}");
  load("ip/vrf/local.vrf/" + std::string(101, 'v'), "Ip::VrfStatusLocal", "{}");
  load("nowhere", "Routing::Config", "{}");
  EXPECT_THAT(traces.take(), IsEmpty());  // their owners might come still
  loader.reportUnplaced();
  loader.reportUnplaced();
  EXPECT_THAT(traces.take(),
              ElementsAre(AllOf(HasSubstr("eth0: document left out"), HasSubstr("'Interface::Future'"),
                                HasSubstr("Interface::IntfStatus")),
                          HasSubstr("no place"), HasSubstr("not how a member is called"),
                          HasSubstr("the entity's Interface::AllIntfStatusDir"), HasSubstr("is no L3::VrfName"),
                          HasSubstr("nowhere: document left out")));
  EXPECT_TRUE(tree.intfStatusDir->intfStatus().empty());
  EXPECT_TRUE(tree.allVrfStatusLocal->vrf().empty());
}

TEST_F(TreeLoaderTest, aDocumentThatBecomesBadTakesItsEntityAlong) {
  load("interface/status.intfStatus/eth0", "Interface::IntfStatus", R"({"ifIndex":4})");
  loader.documentIs("interface/status.intfStatus/eth0", "{");
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("not well-formed JSON")));
  EXPECT_TRUE(tree.intfStatusDir->intfStatus().empty());
  load("interface/status.intfStatus/eth0", "Interface::IntfStatus", R"({"ifIndex":4})");
  EXPECT_EQ(tree.intfStatusDir->intfStatus(eth0)->ifIndex(), 4u);
  load("interface/status.intfStatus/eth0", "Interface::Other", R"({"ifIndex":4})");
  EXPECT_TRUE(tree.intfStatusDir->intfStatus().empty());

  load("routing/config", "Routing::Config", R"({"routing":true})");
  EXPECT_TRUE(tree.routingConfig->routing());
  loader.documentIs("routing/config", "[]");
  EXPECT_FALSE(tree.routingConfig->routing());
  load("routing/config", "Routing::Config", R"({"routing":true})");
  loader.documentDel("routing/config");
  EXPECT_FALSE(tree.routingConfig->routing());
  EXPECT_TRUE(Kel::resolve(top, "Varnix/routing/config")) << "it has a place of its own";
}

TEST_F(TreeLoaderTest, oneEntityHasOnePath) {
  // An empty VRF name stands for "default", which has a path of its own.
  load("ip/vrf/local.vrf/default", "Ip::VrfStatusLocal", R"({"state":"vrfStateActive"})");
  load("ip/vrf/local.vrf/", "Ip::VrfStatusLocal", R"({"state":"vrfStateInactive"})");
  EXPECT_EQ(tree.allVrfStatusLocal->vrf(L3::VrfName())->state(), Ip::vrfStateActive);
  loader.documentDel("ip/vrf/local.vrf/");
  EXPECT_TRUE(tree.allVrfStatusLocal->vrfHas(L3::VrfName()));
}

TEST_F(TreeLoaderTest, referencesFollowTheirTargets) {
  const std::string ip = R"({"l3Status":"l3/intf/status.intfStatus/eth0"})";
  struct Watch : Ip::IpIntfStatus::Notifiee {
    std::vector<std::string> calls;
    void handleL3Status() override {
      calls.push_back(notifier()->l3Status() ? notifier()->l3Status()->vrf().stringValue() : "none");
    }
  };
  load("ip/status.ipIntfStatus/eth0", "Ip::IpIntfStatus", ip);
  const auto status = tree.ipStatus->ipIntfStatus(eth0);
  EXPECT_FALSE(status->l3Status());
  EXPECT_FALSE(loader.settle(10));
  auto watch = Kel::makePtr<Watch>();
  watch->notifierIs(status);
  load("l3/intf/status.intfStatus/eth0", "L3::Intf::Status", R"({"vrf":"red"})");
  load("ip/status.ipIntfStatus/eth0", "Ip::IpIntfStatus", ip);
  loader.documentDel("l3/intf/status.intfStatus/eth0");
  EXPECT_TRUE(loader.settle(0));
  EXPECT_FALSE(loader.settle(1));
  load("l3/intf/status.intfStatus/eth0", "L3::Intf::Status", R"({"vrf":"blue"})");
  load("ip/status.ipIntfStatus/eth0", "Ip::IpIntfStatus", R"({"l3Status":null})");
  EXPECT_EQ(watch->calls, (std::vector<std::string>{"red", "none", "blue", "none"}));  // complete when it is set
  EXPECT_THAT(traces.take(), IsEmpty());

  // Not followed any more; of the wrong type; not even a path.
  loader.documentDel("l3/intf/status.intfStatus/eth0");
  load("l3/intf/status.intfStatus/eth0", "L3::Intf::Status", "{}");
  loader.settle(10);
  EXPECT_FALSE(status->l3Status());
  load("ip/status.ipIntfStatus/eth0", "Ip::IpIntfStatus", R"({"l3Status":"routing/config"})");
  load("ip/status.ipIntfStatus/eth0", "Ip::IpIntfStatus", R"({"l3Status":7})");
  EXPECT_FALSE(status->l3Status());
  EXPECT_THAT(traces.take(),
              ElementsAre(HasSubstr("'l3Status' left out: expected"), HasSubstr("expected a path or null, found")));
}

TEST_F(TreeLoaderTest, whatRefersWaitsForItsTargetAndHoldsIt) {
  const std::string l3 = "l3/intf/status.intfStatus/";
  const auto document = [&](const char* addr, const std::string& target) {
    return R"({"activeAddrWithMask":")" + std::string(addr) + R"(","l3Status":")" + l3 + target + "\"}";
  };
  const auto address = [&] { return tree.ipStatus->ipIntfStatus(eth0)->activeAddrWithMask().stringValue(); };
  const auto status = "ip/status.ipIntfStatus/eth0";
  load(l3 + "eth0", "L3::Intf::Status", "{}");
  load(status, "Ip::IpIntfStatus", document("10.0.0.1/8", "eth0"));
  EXPECT_EQ(address(), "10.0.0.1/8");

  // What it is to say next waits for eth1, and so does the end of eth0.
  load(status, "Ip::IpIntfStatus", document("10.0.0.2/8", "eth1"));
  loader.documentDel(l3 + "eth0");
  EXPECT_EQ(address(), "10.0.0.1/8");
  EXPECT_TRUE(tree.ipStatus->ipIntfStatus(eth0)->l3Status());
  load(l3 + "eth1", "L3::Intf::Status", "{}");
  EXPECT_EQ(address(), "10.0.0.2/8");
  EXPECT_EQ(tree.ipStatus->ipIntfStatus(eth0)->l3Status(), tree.l3StatusDir->intfStatus(eth1));
  EXPECT_FALSE(tree.l3StatusDir->intfStatusHas(eth0));
  EXPECT_FALSE(loader.settle(0));

  // A target that comes back in time was never away; what waits is forgotten with its document.
  const auto target = tree.l3StatusDir->intfStatus(eth1);
  loader.documentDel(l3 + "eth1");
  load(l3 + "eth1", "L3::Intf::Status", "{}");
  EXPECT_EQ(tree.l3StatusDir->intfStatus(eth1), target);
  load(status, "Ip::IpIntfStatus", document("10.0.0.3/8", "eth9"));
  loader.documentDel(l3 + "eth1");
  loader.documentDel(status);
  EXPECT_TRUE(tree.l3StatusDir->intfStatus().empty());
  load(l3 + "eth9", "L3::Intf::Status", "{}");
  EXPECT_TRUE(tree.ipStatus->ipIntfStatus().empty());
  EXPECT_FALSE(loader.settle(0));
}

TEST_F(TreeLoaderTest, entriesOfOpenDirectoriesComeAndGo) {
  struct Watch : Kel::Dir::Notifiee {
    std::vector<std::string> calls;
    void handleEntityPtr(const Kel::Name& name) override {
      calls.push_back((notifier()->entityPtrHas(name) ? "+" : "-") + name);
    }
  };
  auto watch = Kel::makePtr<Watch>();
  watch->notifierIs(tree.routingVrfInfoDir);
  load("routing/vrf/info/a.b/c", "Routing::VrfInfo", R"({"kernelTable":7})");
  load("routing/vrf/info/a", "Routing::VrfInfo", "{}");
  load("routing/vrf/info/a.b/c", "Routing::VrfInfo", R"({"kernelTable":8})");
  const auto info = Kel::dynamicPtr<Routing::VrfInfo>(Kel::resolve(top, "Varnix/routing/vrf/info/a.b/c"));
  ASSERT_TRUE(info);
  EXPECT_EQ(info->kernelTable(), 8u);
  loader.documentDel("routing/vrf/info/a");
  loader.passBegin();
  while (loader.sweep(1)) {
  }
  EXPECT_EQ(watch->calls, (std::vector<std::string>{"+a.b/c", "+a", "-a", "-a.b/c"}));

  load("routing/vrf/info/red", "Routing::Config", "{}");
  load("routing/vrf/info/", "Routing::VrfInfo", "{}");
  load("routing/vrf/info/" + std::string(101, 'v'), "Routing::VrfInfo", "{}");
  load("routing/vrf/info", "Kel::Dir", "{}");
  loader.reportUnplaced();
  EXPECT_THAT(traces.take(),
              ElementsAre(AllOf(HasSubstr("info/red"), HasSubstr("Routing::VrfInfo")), HasSubstr("1 to 100 bytes"),
                          HasSubstr("maxLength"), HasSubstr("no place")));
  EXPECT_TRUE(tree.routingVrfInfoDir->entityPtr().empty());
}

TEST(TreeLoaderNested, membersWaitForTheirOwnersAndGoWithThem) {
  const auto root = Kel::makePtr<Kel::Dir>("");
  const auto trunk = Kel::makePtr<VarnixNested::Trunk>("trunk");
  root->entityIs(trunk);
  TreeLoader loader(root);
  Traces traces;
  const std::string branch = R"({"type":"VarnixNested::Branch","attributes":{}})";
  const auto leaf = [](const std::string& next) {
    return R"({"type":"VarnixNested::Leaf","attributes":{"next":")" + next + "\"}}";
  };
  // Names that look like paths themselves.
  loader.documentIs("trunk.branch/a.b.leaf/x", leaf("trunk.branch/a.leaf/y.z"));
  loader.documentIs("trunk.branch/a.leaf/y.z", leaf(""));
  EXPECT_TRUE(trunk->branch().empty());
  loader.documentIs("trunk.branch/a.b", branch);
  loader.documentIs("trunk.branch/a", branch);
  loader.reportUnplaced();
  EXPECT_THAT(traces.take(), IsEmpty());
  ASSERT_EQ(trunk->branch().size(), 2u);
  const auto x = trunk->branch("a.b")->leaf("x");
  ASSERT_TRUE(x && x->next());
  EXPECT_EQ(x->next(), trunk->branch("a")->leaf("y.z"));
  EXPECT_EQ(x->number(), 5);

  loader.documentDel("trunk.branch/a");
  EXPECT_FALSE(trunk->branchHas("a"));
  EXPECT_EQ(trunk->branch("a.b")->leaf("x"), x);
  EXPECT_FALSE(x->next());
  loader.documentIs("trunk.branch/a", branch);
  EXPECT_TRUE(trunk->branch("a")->leaf().empty());

  // Called otherwise than its member is, a document would be a second one for the same entity.
  for (const auto* name : {"007", "7"}) {
    loader.documentIs(std::string("trunk.ring/") + name, R"({"type":"VarnixNested::Ring","attributes":{}})");
  }
  loader.reportUnplaced();
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("trunk.ring/007: document left out")));
  EXPECT_EQ(trunk->ring().size(), 1u);
}

}  // namespace
}  // namespace Varnix
