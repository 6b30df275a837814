#include "varnix/TreeLoader.h"

#include <gmock/gmock.h>

#include "quillo/testing/TestStore.h"
#include "varnix/Tree.h"

namespace Varnix {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const Vantu::IntfId eth0("eth0");
const Vantu::IntfId eth1("eth1");
const std::string intfPath = "interface/status.intfStatus/", l3Path = "l3/intf/status.intfStatus/";
const std::string ipPath = "ip/status.ipIntfStatus/eth0";

struct TreeLoaderTest : ::testing::Test {
  Kel::Ptr<Kel::Dir> top = Kel::makePtr<Kel::Dir>("");
  Tree tree{top->dirIs("Varnix")};
  TreeLoader loader{tree.root, tree.openDirs()};
  Quillo::Test::Traces traces;

  void load(const std::string& path, const std::string& type, const std::string& attributes) {
    loader.loadDocument(path, R"({"type":")" + type + R"(","attributes":)" + attributes + "}");
  }
  void loadL3(const std::string& name, const std::string& vrf = "red") {
    load(l3Path + name, "L3::Intf::Status", R"({"vrf":")" + vrf + "\"}");
  }
  void loadIp(const std::string& address, const std::string& target) {
    load(ipPath, "Ip::IpIntfStatus",
         R"({"activeAddrWithMask":")" + address + R"(","l3Status":")" + l3Path + target + "\"}");
  }
  // What the record of eth0 says: its address, and its VRF.
  std::string shown() const {
    const auto status = tree.ipStatus->ipIntfStatus(eth0);
    if (!status) return "no record";
    return status->activeAddrWithMask().stringValue() + " " +
           (status->l3Status() ? status->l3Status()->vrf().stringValue() : "none");
  }
};

TEST_F(TreeLoaderTest, leavesOutWhatItDoesNotKnowAndLoadsTheRest) {
  load(intfPath + "eth0", "Interface::IntfStatus",
       R"({"kind":"linux","ifIndex":-3,"operStatus":"upwards","colour":"red","intfId":"eth9"})");
  EXPECT_THAT(traces.take(), ElementsAre(AllOf(HasSubstr(intfPath + "eth0"), HasSubstr("'ifIndex'"),
                                               HasSubstr("out of range 0 to 4294967295")),
                                         AllOf(HasSubstr("'operStatus'"), HasSubstr("operStatusUp")),
                                         HasSubstr("no attribute 'colour'"), HasSubstr("no attribute 'intfId'")));
  EXPECT_EQ(tree.intfStatusDir->intfStatus(eth0)->kind(), "linux");
  EXPECT_EQ(tree.intfStatusDir->intfStatus(eth0)->ifIndex(), 0u);
  load(intfPath + "eth1", "Interface::IntfStatus", R"({"colour":"red","ifIndex":4})");
  EXPECT_THAT(traces.take(), ElementsAre()) << "the same unknown attribute is no news";
  EXPECT_EQ(tree.intfStatusDir->intfStatus(eth1)->ifIndex(), 4u);
  load(intfPath + "eth1", "Interface::IntfStatus", R"({"ifIndex":"4"})");
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("expected an integer, found a text")));
  EXPECT_EQ(tree.intfStatusDir->intfStatus(eth1)->ifIndex(), 0u) << "its default";
}

TEST_F(TreeLoaderTest, leavesOutDocumentsWithoutAPlace) {
  const auto rows = std::to_array<std::array<std::string, 3>>(
      {{intfPath + "eth0", "Interface::Future",
        "its type is 'Interface::Future', that of members here Interface::"},
       {"interface/status.future/eth0", "Interface::IntfStatus", "no place for it here"},
       {intfPath, "Interface::IntfStatus", "'' is not how a member is called"},
       {"interface/status", "Interface::IntfStatus", "the entity's Interface::AllIntfStatusDir"},
       {"ip/vrf/local.vrf/" + std::string(101, 'v'), "Ip::VrfStatusLocal", "is no L3::VrfName"},
       {"nowhere", "Routing::Config", "no place for it here"},
       {"routing/vrf/info/red", "Routing::Config", "that of entries here Routing::VrfInfo"},
       {"routing/vrf/info/", "Routing::VrfInfo", "1 to 100 bytes"},
       {"routing/vrf/info/" + std::string(101, 'v'), "Routing::VrfInfo", "maxLength"},
       {"routing/vrf/info", "Kel::Dir", "no place for it here"},
       // An empty VRF name stands for "default", which has a path of its own.
       {"ip/vrf/local.vrf/", "Ip::VrfStatusLocal", "'' is not how a member is called"}});
  load("ip/vrf/local.vrf/default", "Ip::VrfStatusLocal", "{}");
  for (const auto& [path, type, what] : rows) {
    load(path, type, "{}");
    loader.reportUnplaced();
    EXPECT_THAT(traces.take(), ElementsAre(AllOf(HasSubstr(path + ": document left out: "), HasSubstr(what))));
    loader.deleteDocument(path);
  }
  loader.reportUnplaced();
  EXPECT_THAT(traces.take(), ElementsAre());
  EXPECT_TRUE(tree.intfStatusDir->intfStatus().empty() && tree.routingVrfInfoDir->entityPtr().empty());
  EXPECT_EQ(tree.allVrfStatusLocal->vrf().size(), 1u);
}

TEST_F(TreeLoaderTest, anEntityGoesWithItsDocument) {
  load(intfPath + "eth0", "Interface::IntfStatus", "{}");
  load(intfPath + "eth0", "Interface::Other", "{}");
  EXPECT_TRUE(tree.intfStatusDir->intfStatus().empty());
  load("routing/config", "Routing::Config", R"({"routing":true})");
  EXPECT_TRUE(tree.routingConfig->routing());
  loader.deleteDocument("routing/config");
  EXPECT_FALSE(tree.routingConfig->routing()) << "it is fixed";
}

TEST_F(TreeLoaderTest, aTargetThatIsCreatedAgainStays) {
  loadL3("eth0");
  loadIp("10.0.0.1/8", "eth0");
  loader.deleteDocument(l3Path + "eth0");
  loadL3("eth0");
  loader.deleteDocument(ipPath);
  EXPECT_TRUE(tree.l3StatusDir->intfStatusHas(eth0));
}

TEST_F(TreeLoaderTest, anEntityKeepsItsAttributesWhileItsDocumentCannotBeRead) {
  const auto settle = [this] { EXPECT_FALSE(loader.sweep(10) || loader.settle(10)); };
  loadL3("eth0");
  loadIp("10.0.0.1/8", "eth0");
  for (const bool isMalformed : {false, true}) {
    loader.beginPass();
    for (const auto& path : {l3Path + "eth0", ipPath}) {
      isMalformed ? loader.loadDocument(path, "{") : loader.keepDocument(path);
    }
    settle();
    EXPECT_EQ(shown(), "10.0.0.1/8 red");
    EXPECT_EQ(traces.take().size(), isMalformed ? 2U : 0U);
  }
  // The target of a reference may be behind a damaged path.
  loader.beginPass();
  loader.keepDocument(l3Path + "eth#");
  loadIp("10.0.0.2/8", "eth1");
  settle();
  EXPECT_EQ(shown(), "10.0.0.1/8 red");
  loader.deleteDocument(l3Path + "eth#");
  settle();
  EXPECT_EQ(shown(), "10.0.0.2/8 none");
  // A document that was left out before, too.
  load("routing/config", "Routing::Other", "{}");
  load("routing/config", "Routing::Config", R"({"routing":true})");
  loader.beginPass();
  loader.keepDocument("routing/config");
  settle();
  EXPECT_TRUE(tree.routingConfig->routing());
}

TEST_F(TreeLoaderTest, aReferenceIsNullOnlyWhenThereIsNoSuchTarget) {
  struct Watch : Ip::IpIntfStatus::Notifiee {
    std::function<void()> changed;
    void handleL3Status() override { changed(); }
    void handleActiveAddrWithMask() override { changed(); }
  };
  loadIp("10.0.0.1/8", "eth0");
  EXPECT_EQ(shown(), "0.0.0.0/0 none");
  EXPECT_FALSE(loader.settle(10));
  EXPECT_EQ(shown(), "10.0.0.1/8 none");
  std::vector<std::string> seen;
  auto watch = Kel::makePtr<Watch>();
  watch->changed = [&] { seen.push_back(shown()); };
  watch->notifierIs(tree.ipStatus->ipIntfStatus(eth0));
  loadL3("eth0");
  loadIp("10.0.0.1/8", "eth0");
  loader.deleteDocument(l3Path + "eth0");
  EXPECT_TRUE(loader.settle(0));
  EXPECT_FALSE(loader.settle(1));
  loadL3("eth0", "blue");
  EXPECT_THAT(std::exchange(seen, {}), ElementsAre("10.0.0.1/8 red", "10.0.0.1/8 none", "10.0.0.1/8 blue"));
  EXPECT_THAT(traces.take(), ElementsAre());
  for (const auto& [target, what] : {std::pair("\"routing/config\"", "'l3Status' left out: expected"),
                                     std::pair("7", "expected a path or null, found")}) {
    load(ipPath, "Ip::IpIntfStatus", R"({"l3Status":)" + std::string(target) + "}");
    EXPECT_EQ(shown(), "0.0.0.0/0 none");
    EXPECT_THAT(traces.take(), ElementsAre(HasSubstr(what)));
  }
  // While an address is there, so is its VRF.
  seen.clear();
  loadIp("10.0.0.2/8", "eth0");
  load(ipPath, "Ip::IpIntfStatus", "{}");
  EXPECT_THAT(seen, ElementsAre("0.0.0.0/0 blue", "10.0.0.2/8 blue", "0.0.0.0/0 blue", "0.0.0.0/0 none"));
}

}  // namespace
}  // namespace Varnix
