// Routes from a real store to the caches of the VRFs.

#include <gmock/gmock.h>

#include "host/composition/AgentTree.h"
#include "host/composition/StoreFollower.h"
#include "ipsnmp/IpCidrRouteTableIteratorConst.h"
#include "quillo/tables/Records.h"
#include "quillo/testing/TestStore.h"
#include "varnix/DocumentPublisher.h"

namespace {

using ::testing::ElementsAre;
using Vrf::VrfIdMap::VrfId;

struct NoLoop : Host::EventLoop {
  bool onTurnEnd(Callback) override { return false; }
  void addFd(int, Callback) override {}
  void removeFd(int) override {}
  bool requestWaiting() override { return false; }
  const Host::Turns& turns() const override { return turns_; }

  Host::Turns turns_;
};

class RouteTablesTest : public Quillo::Test::TestStore {
 protected:
  void SetUp() override {
    store_ = std::make_unique<Quillo::Publisher>(config());
    documents_ = std::make_unique<Varnix::DocumentPublisher>(tree_, *store_);
    tree_.vrfNameStatus->vrfIdIs(L3::VrfName(), VrfId(0));
    const L3::VrfName red(red_);
    tree_.routingVrfInfoDir->entityIs(Kel::makePtr<Routing::VrfInfo>(red_));
    tree_.routingVrfConfigDir->vrfConfigIs(red_);
    tree_.vrfNameStatus->vrfIdIs(red, VrfId(1));
    tree_.allVrfStatusLocal->vrfIs(red);
    tree_.l3Config->fecModeIs(Quillo::Fib::fecModePerVrf);
    store_->beginFullPass(
        {Quillo::TableId::varnix, Quillo::TableId::route, Quillo::TableId::route6, Quillo::TableId::fec});
    documents_->rewriteAll();
    for (unsigned id = 0; id < 2; ++id) routeIs(id, 0x0a000000 + (id << 16), id + 1);
    auto batch = store_->begin();
    Quillo::routeIs(batch, VrfId(1), Quillo::Fib6::Route{{}, Routing::Fib::RouteType(9), {}, {}, {}});
    batch.commit();
    store_->endFullPass();

    follower_ = std::make_unique<Host::StoreFollower>(loop_, scheduler_, root_, directory_);
    agent_ = std::make_unique<Host::AgentTree>(root_, scheduler_, follower_->arpTable(), follower_->manager());
    agent_->snmpStatus()->agentStatus()->agentReadyIs(true);
  }
  void TearDown() override {
    agent_.reset();
    follower_.reset();
    Kel::System::clockIs({});
  }
  // A route through a FEC whose one hop tells which it is.
  void routeIs(unsigned vrfId, std::uint32_t address, unsigned hop) {
    auto batch = store_->begin();
    Quillo::fecIs(batch, VrfId(vrfId), {Quillo::Fib::FecId(7), {{Vantu::IpAddr(hop), Vantu::IntfId()}}});
    const Vantu::Prefix prefix(Vantu::IpAddr(address), 16);
    Quillo::routeIs(batch, VrfId(vrfId),
                    Quillo::Fib::Route{prefix, Routing::Fib::RouteType(22), {}, {}, Quillo::Fib::FecId(7)});
    batch.commit();
  }
  void follow() {
    for (int i = 0; i < 3; ++i) {
      Kel::System::clockIs([now = now_ += 1.5] { return now; });
      while (scheduler_->runReady()) {
      }
    }
  }
  template <class Mib>
  Kel::Ptr<const Mib> mibOf(const std::string& vrf, const std::string& name) {
    const auto path = vrf.empty() ? "snmp/ip/" + name : "snmp/ip/vrf.mibs/" + vrf + "." + name;
    return Kel::dynamicPtr<const Mib>(Kel::resolve(root_, path));
  }
  unsigned count(const std::string& vrf, Ip::IpVersion version) {
    const auto row = mibOf<FibStatsSnmp::FibStatsMib>(vrf, "fibstatsmib")->summaryTable(version);
    return row ? row->totalRoutes() : 0U;
  }
  std::vector<std::string> rows(const std::string& vrf) {
    const auto mib = mibOf<IpSnmp::IpForwardMib>(vrf, "ipforwardmib");
    if (!mib) return {"no cache"};
    std::vector<std::string> texts;
    for (IpSnmp::IpForwardMib::IpCidrRouteTableIteratorConst at(mib); at; ++at) {
      texts.push_back(at->index().dest().stringValue() + " " + at->index().nextHop().stringValue());
    }
    return texts;
  }

  const std::string red_ = "a/b.c";
  NoLoop loop_;
  double now_ = Kel::System::currentTime();
  Kel::Ptr<Brev::TaskScheduler> scheduler_ = Kel::makePtr<Brev::TaskScheduler>();
  Kel::Ptr<Kel::Dir> root_ = Kel::makePtr<Kel::Dir>("");
  Varnix::Tree tree_{Kel::makePtr<Kel::Dir>("")};
  std::unique_ptr<Quillo::Publisher> store_;
  std::unique_ptr<Varnix::DocumentPublisher> documents_;
  std::unique_ptr<Host::StoreFollower> follower_;
  std::unique_ptr<Host::AgentTree> agent_;
};

TEST_F(RouteTablesTest, theDefaultVrfIsReadUnderItsPublishedId) {
  follow();
  EXPECT_THAT(rows(""), ElementsAre("10.0.0.0 0.0.0.1"));
  EXPECT_THAT(rows(red_), ElementsAre("10.1.0.0 0.0.0.2"));
  const auto setDefaultVrfId = [this](unsigned id) {
    tree_.vrfNameStatus->vrfIdIs(L3::VrfName(), VrfId(id));
    documents_->publish();
    routeIs(id, 0x0a000000 + (id << 16), id + 1);
    follow();
  };
  setDefaultVrfId(5);
  EXPECT_THAT(rows(""), ElementsAre("10.5.0.0 0.0.0.6"));
  routeIs(5, 0x0a060000, 7);
  follow();
  EXPECT_THAT(rows(""), ElementsAre("10.5.0.0 0.0.0.7", "10.6.0.0 0.0.0.7"));
  EXPECT_EQ(count("", Ip::ipVersion4), 2U);
  EXPECT_EQ(count(red_, Ip::ipVersion6), 1U);

  auto changed = 0;
  agent_->onVrfRootSmChanged([&] { ++changed; });
  tree_.l3Config->fecModeIs(Quillo::Fib::fecModeUnified);
  documents_->publish();
  follow();
  EXPECT_EQ(1, changed);
  EXPECT_THAT(rows(red_), ElementsAre("10.1.0.0 0.0.0.7"));  // through the default VRF's FEC
  setDefaultVrfId(8);
  EXPECT_THAT(rows(""), ElementsAre("10.8.0.0 0.0.0.9"));
  EXPECT_THAT(rows(red_), ElementsAre("10.1.0.0 0.0.0.9"));
}

}  // namespace
