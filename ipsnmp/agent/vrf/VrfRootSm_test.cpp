#include "ipsnmp/agent/vrf/VrfRootSm.h"

#include <numeric>
#include <set>

#include "ipsnmp/agent/testing/TestVrfWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;
using Lines = std::vector<std::string>;

struct VrfRootSmTest : testing::Test, VrfWorld {
  void startReady() {
    start();
    agentIsReady();
    runTasks();
  }
};

const std::string oddNames[] = {
    "red", "a b", "a/b.c", "..", "default.ipmib", "\xff\x80 \xc3\xa4", std::string(100, 'n')};

TEST_F(VrfRootSmTest, noOrderOfArrivalLosesAVrf) {
  for (const auto& vrf : oddNames) {
    std::vector<int> order(5);
    std::iota(order.begin(), order.end(), 0);
    do {
      VrfWorld world;
      world.start();
      world.intfIs("eth0", 3);
      world.intfVrfIs("eth0", vrf);
      world.configIs("eth0", "10.1.1.1/24");
      world.tree.ipConfig->ipIntfConfig(intfOf("eth0"))
          ->l3ConfigIs(world.tree.l3ConfigDir->intfConfig(intfOf("eth0")));
      world.arp->entryIs(neighbour(7, "10.1.1.2", "eth0"));
      std::set<int> done;
      for (const int step : order) {
        if (step == 0) world.infoIs(vrf);
        if (step == 1) world.routingIs(vrf);
        if (step == 2) world.idIs(vrf, 7);
        if (step == 3) world.agentIsReady();
        if (step == 4) world.tree.allVrfStatusLocal->vrfIs(L3::VrfName(vrf))->hasNamespaceIs(false);
        world.runTasks();
        done.insert(step);
        const bool isComplete = done.contains(0) && done.contains(1) && done.contains(2) && done.contains(3);
        EXPECT_EQ(world.isServed(vrf), isComplete) << testing::PrintToString(order) << " at " << step;
      }
      ASSERT_TRUE(world.isServed(vrf)) << testing::PrintToString(order);
      EXPECT_EQ(world.neighboursOf(vrf), "3 10.1.1.2 eth0@7;");
      const auto cache = world.vrfMibsDir->mibs(vrf)->ipmib();
      EXPECT_TRUE(cache->ipAddrTableHas(Vantu::IpAddr::fromString("10.1.1.1")));
      EXPECT_EQ(cache->ipSwFwdStats(Ip::ipVersion4)->name(), vrf);
      EXPECT_EQ(cache->ipSwFwdStats().size(), 2u);
      EXPECT_FALSE(cache->ipSwFwdStats(Ip::ipVersion4)->hasNamespace() ||
                   cache->ipSwFwdStats(Ip::ipVersion6)->hasNamespace());
      EXPECT_EQ(world.vrfRootSm->vrfRoot(vrf)->ipMib(), cache);
      EXPECT_TRUE(world.ipVrfMib->vrfTableHas(Snmp::String(vrf)));
      world.localDel(vrf);
      EXPECT_FALSE(world.isServed(vrf));
      EXPECT_TRUE(world.ipVrfMib->vrfTable().empty());
      world.localIs(vrf);
      EXPECT_TRUE(world.isServed(vrf));
    } while (std::next_permutation(order.begin(), order.end()) && vrf == oddNames[0]);
  }
}

TEST_F(VrfRootSmTest, whatIsMissingIsTraced) {
  TraceCatcher traces("VrfRootSm/2");
  start();
  idIs("red", 1);
  localIs("red");
  const auto line = [](int initialized, int root, int info, int config, int id) {
    return fmt::format(
        " Nothing to do for vrf red because - initialized={} vrfRoot(vrfName)={} "
        "routingVrfInfoDir()->entityPtr(vrfName)={} routingVrfConfigDir()->vrfConfig(vrfName)={} "
        "vrfNameStatus()->vrfIdExists( vrfName )={}",
        initialized, root, info, config, id);
  };
  EXPECT_EQ(traces.takeAll(), Lines(2, line(0, 0, 0, 0, 1)));  // the record, and its state
  agentIsReady();
  runTasks();
  infoIs("red");
  EXPECT_EQ(traces.takeAll(), (Lines{"Starting VRF Backlog processing", line(1, 0, 0, 0, 1),
                                     "VRF Backlog processing done", line(1, 0, 1, 0, 1)}));
  tree.vrfNameStatus->vrfIdDel(L3::VrfName("red"));
  routingIs("red");
  EXPECT_EQ(traces.takeAll(), Lines{line(1, 0, 1, 1, 0)});
  idIs("red", 1);
  EXPECT_TRUE(isServed("red"));
  idIs("red", 2);
  EXPECT_EQ(traces.takeAll(), Lines{line(1, 1, 1, 1, 1)});
}

TEST_F(VrfRootSmTest, twoHundredVrfsTakeSeveralRuns) {
  std::vector<std::string> names;
  for (unsigned i = 0; i < 200; ++i) {
    names.push_back(fmt::format("{}{:03}", i % 2 ? "a" : "z", i));  // on both sides of "default"
    vrfIs(names.back(), i + 1);
  }
  localIs("default");
  std::sort(names.begin(), names.end());
  start();
  EXPECT_FALSE(vrfRootSm->task());
  agentIsReady();
  const auto task = vrfRootSm->task();
  EXPECT_EQ(task->name(), "vrf creation/deletion");
  EXPECT_EQ(task->priority(), 2);
  EXPECT_EQ(task->workPending(), 200u);
  // Each VRF takes one millisecond.
  struct Served : VrfRootSm::Notifiee {
    void handleServedVrf(const L3::VrfName& vrfName) override {
      order.push_back(vrfName.stringValue());
      *now += 0.001;
    }
    std::vector<std::string> order;
    double* now = nullptr;
  };
  auto served = Kel::makePtr<Served>();
  served->now = &now;
  served->notifierIs(vrfRootSm);
  TraceCatcher traces("VrfRootSm/2");
  for (unsigned run = 0; run < 3; ++run) {
    scheduler->runReady();
    EXPECT_EQ(traces.takeAll(), (Lines{"Starting VRF Backlog processing", "VRF Backlog processing yielding"}));
    const auto done = served->order.size();
    EXPECT_GE(done, (run + 1) * 10u);
    EXPECT_LE(done, (run + 1) * 11u);
    EXPECT_EQ(task->workPending(), 200 - done);
    EXPECT_EQ(vrfRootSm->vrfBookmark().stringValue(), names[done]);
    EXPECT_TRUE(vrfRootSm->vrfBacklogHas(vrfRootSm->vrfBookmark()));
  }
  // A VRF that has had its turn, or goes before it.
  localDel(names[0]);
  localDel(names[150]);
  // Enters behind the bookmark.
  vrfRootSm->vrfBacklogIs(L3::VrfName(names[0]), true);
  vrfRootSm->vrfBacklogQuantumIs(0.02);
  runTasks();  // those of the VRFs' routes among them
  const auto lines = traces.takeAll();
  const auto yields = std::count(lines.begin(), lines.end(), "VRF Backlog processing yielding");
  EXPECT_EQ(lines.front(), "Starting VRF Backlog processing");
  EXPECT_EQ(lines.back(), "VRF Backlog processing done");
  EXPECT_GE(yields, 7);
  EXPECT_LE(yields, 9);
  EXPECT_EQ(task->workPending(), 0u);
  EXPECT_EQ(task->workCount(), 200u);  // one was taken out, one entered again
  EXPECT_FALSE(isServed(names[150]));
  EXPECT_FALSE(vrfRootSm->vrfRootHas("default"));
  EXPECT_EQ(vrfRootSm->vrfRoot().size(), 199u);
  std::erase_if(served->order, [](const std::string& name) { return name.size() != 4; });
  EXPECT_TRUE(std::is_sorted(served->order.begin() + 1, served->order.begin() + 30));
  EXPECT_TRUE(scheduler->idle());
}

TEST_F(VrfRootSmTest, everyVrfThatCannotBeMadeIsTriedAgainByTheTask) {
  constexpr unsigned count = 200;
  const auto nameOf = [](unsigned i) { return fmt::format("vrf{:03}", i); };
  for (unsigned i = 1; i <= count; ++i) vrfIs(nameOf(i), i);
  routeTablesEnabled = arp->isInitialized = false;
  start();
  // Each VRF takes a millisecond.
  bool isReadable = false;
  unsigned walks = 0;
  arp->walkBegins = [&](const VrfId& vrfId) {
    if (isReadable || vrfId == VrfId(0)) return;
    ++walks;
    now += 0.001;
    throw Quillo::StoreException(Quillo::StoreException::Kind::notReady, "no reader slot is free");
  };
  TraceCatcher traces("VrfRootSm/0");
  agentIsReady();
  for (const auto tell :
       {+[](Arp::Table::TestStatus&) {}, +[](Arp::Table::TestStatus& table) { table.tableIs({}); },
        +[](Arp::Table::TestStatus& table) { table.initializedIs(); }}) {
    tell(*arp);
    EXPECT_EQ(walks, 0U) << "the task has not run yet";
    for (unsigned before = 0, goesOn = 1; goesOn != 0 && walks <= count; before = walks) {
      goesOn = scheduler->runReady();
      EXPECT_LE(walks - before, 11U) << "in one run";
    }
    EXPECT_EQ(std::exchange(walks, 0), count) << "each once";
    EXPECT_EQ(traces.takeAll(), Lines{"vrf vrf001 is not complete: no reader slot is free"});
    EXPECT_TRUE(vrfRootSm->vrfRoot().empty());
    EXPECT_TRUE(vrfMibsDir->mibs().empty());
  }
  localDel(nameOf(7));  // which its other records outlive
  isReadable = true;
  arp->isInitialized = false;
  arp->tableIs({});
  runTasks();
  for (unsigned i = 1; i <= count; ++i) ASSERT_EQ(isServed(nameOf(i)), i != 7) << i;
  const auto arpSm = vrfRootSm->vrfRoot(nameOf(1))->arpTableSm();
  EXPECT_FALSE(arpSm->initialized());
  arp->initializedIs();
  EXPECT_TRUE(arpSm->initialized());
}

TEST_F(VrfRootSmTest, contextsAreServedLastAndLeftFirst) {
  struct Log : VrfRootSm::Notifiee {
    void handleServedVrf(const L3::VrfName& vrfName) override {
      const auto mibs = world->vrfMibsDir->mibs(vrfName.stringValue());
      ASSERT_TRUE(mibs);
      text += fmt::format("{}{}:{}:{};", notifier()->servedVrfHas(vrfName) ? "+" : "-", vrfName.stringValue(),
                          neighbours(*mibs->ipmib()), mibs->ipmib()->ipSwFwdStats().size());
      EXPECT_TRUE(notifier()->vrfRootHas(vrfName.stringValue()));
      EXPECT_TRUE(world->ipVrfMib->vrfTableHas(Snmp::String(vrfName.stringValue())));
    }
    VrfWorld* world = nullptr;
    std::string text;
  };
  startReady();
  intfIs("eth0", 3);
  intfVrfIs("eth0", "red");
  arp->entryIs(neighbour(1, "10.0.0.1", "eth0"));
  auto log = Kel::makePtr<Log>();
  log->world = this;
  log->notifierIs(vrfRootSm);
  localIs("red");
  vrfIs("red", 1);
  EXPECT_EQ(log->text, "+red:3 10.0.0.1 eth0@1;:2;");
  EXPECT_EQ(vrfIfs(*ipVrfMib), "3 red eth0;");
  localDel("red");
  EXPECT_EQ(log->text, "+red:3 10.0.0.1 eth0@1;:2;-red:3 10.0.0.1 eth0@1;:2;");
  EXPECT_EQ(vrfIfs(*ipVrfMib), "");
  localIs("red");
  EXPECT_EQ(vrfIfs(*ipVrfMib), "3 red eth0;");  // its interface still says so
  EXPECT_TRUE(isServed("red"));
}

TEST_F(VrfRootSmTest, aNameThatIsTooLongIsPassedOver) {
  startReady();
  tree.routingVrfInfoDir->entityIs(Kel::makePtr<Routing::VrfInfo>(std::string(101, 'x')));
  EXPECT_TRUE(vrfRootSm->vrfRoot().empty());
}

TEST_F(VrfRootSmTest, rowsSayWhatTheRecordsSay) {
  start();
  const auto row = [&] { return ipVrfMib->vrfTable(Snmp::String("red")); };
  const L3::VrfName red("red");
  tree.allVrfConfig->vrfConfigIs(red)->routeDistinguisherIs(Vantu::RouteDistinguisher::fromString("65000:1"));
  localIs("red");
  ASSERT_TRUE(row());
  tree.allVrfStatusGlobal->vrfIs(red)->stateIs(Ip::vrfStateActive);
  EXPECT_EQ(row()->vrfState(), Ip::vrfStateActive);
  EXPECT_EQ(row()->routeDistinguisher().stringValue(), "65000:1");
  const auto before = row();
  tree.routing6VrfConfigDir->vrfConfigIs("red")->routingIs(true);
  EXPECT_TRUE(row()->vrfRoutingStatus()->ipv6());
  EXPECT_EQ(row(), before) << "which flags a VRF has is no other row";
  TraceCatcher traces("VrfRootSm/6");
  localDel("red");
  EXPECT_EQ(traces.takeAll(), Lines{" for vrf red"});
}

TEST_F(VrfRootSmTest, neighboursGoToTheVrfOfTheirId) {
  start();
  intfIs("eth0", 3);
  arp->entryIs(neighbour(0, "10.0.0.1", "eth0"));  // the default VRF's do not wait for the agent
  EXPECT_EQ(neighbours(*ipMib), "3 10.0.0.1 eth0@0;");
  // Interfaces that come while nobody watches them.
  tree.intfStatusDir->intfStatusDel(intfOf("eth0"));
  vrfRootSm = nullptr;
  intfIs("eth0", 3);
  vrfRootSmIs();
  agentIsReady();
  EXPECT_EQ(neighbours(*ipMib), "3 10.0.0.1 eth0@0;");
  TraceCatcher traces("VrfNeighbours/6");
  vrfIs("red", 1);
  EXPECT_EQ(traces.takeAll(), (Lines{"red updating arp quillo vrf id 1", "vrf root for red not found"}));
  arp->entryIs(neighbour(1, "10.0.0.1", "eth0"));
  arp->entryIs(neighbour(1, "2001:db8::1", "eth0"));
  arp->entryIs(neighbour(2, "10.0.0.9", "eth0"));  // nobody's
  EXPECT_EQ(traces.takeAll(), (Lines{"Arp entry 1/10.0.0.1/eth0 (vrf 'red') updated in arp quillo",
                                     "Arp entry 1/2001:db8::1/eth0 (vrf 'red') updated in arp quillo"}));
  EXPECT_EQ(neighboursOf("red"), "3 10.0.0.1 eth0@1;3 2001:db8::1 eth0@1;");
  arp->entryDel(neighbour(0, "10.0.0.1", "eth0").key);
  EXPECT_EQ(traces.takeAll(), Lines{"Arp entry 0/10.0.0.1/eth0 (vrf 'default') deleted from arp quillo"});
  EXPECT_EQ(neighbours(*ipMib), "");

  idIs("red", 2);
  EXPECT_EQ(traces.takeAll(), Lines{"red updating arp quillo vrf id 2"});
  EXPECT_EQ(vrfRootSm->vrfRoot("red")->vrfId(), VrfId(2));
  EXPECT_EQ(neighboursOf("red"), "3 10.0.0.9 eth0@2;");
  idIs("default", 1);
  EXPECT_EQ(vrfRootSm->defaultVrfId(), VrfId(1));
  EXPECT_EQ(neighbours(*ipMib), "3 10.0.0.1 eth0@1;3 2001:db8::1 eth0@1;");
  EXPECT_FALSE(vrfRootSm->vrfRootHas("default"));
  traces.takeAll();
  tree.vrfNameStatus->vrfIdDel(L3::VrfName("red"));
  EXPECT_EQ(traces.takeAll(), Lines{"red invalidating arp quillo vrf id "});
  EXPECT_EQ(neighboursOf("red"), "");
  arp->entryIs(neighbour(2, "10.0.0.8", "eth0"));
  EXPECT_EQ(neighboursOf("red"), "");
  idIs("red", 2);
  EXPECT_EQ(neighboursOf("red"), "3 10.0.0.8 eth0@2;3 10.0.0.9 eth0@2;");

  arp->damage = "a bad checksum";
  arp->entryIs(neighbour(2, "10.0.0.7", "eth0"));
  EXPECT_EQ(arp->reports.size(), 2u);  // once by the rows' machine, once by the route counts'
  arp->entryIs(neighbour(2, "10.0.0.8", "eth0"));
  EXPECT_EQ(neighboursOf("red"), "3 10.0.0.8 eth0@2;3 10.0.0.9 eth0@2;");  // not read is not gone
  arp->damage.reset();
  arp->tableIs({neighbour(2, "10.0.0.7", "eth0"), neighbour(1, "10.0.0.6", "eth0")});
  EXPECT_EQ(neighboursOf("red"), "3 10.0.0.7 eth0@2;");
  EXPECT_EQ(neighbours(*ipMib), "3 10.0.0.6 eth0@1;");
}

TEST_F(VrfRootSmTest, nothingHoldsAVrfThatIsGone) {
  startReady();
  intfIs("eth0", 3);
  intfVrfIs("eth0", "red");
  vrfIs("red", 1);
  arp->entryIs(neighbour(1, "10.0.0.1", "eth0"));
  const auto root = vrfRootSm->vrfRoot("red");
  const auto mibs = vrfMibsDir->mibs("red");
  const auto cache = mibs->ipmib();
  const auto arpSm = root->arpTableSm();
  localDel("red");
  EXPECT_EQ(root->use_count(), 1u);
  EXPECT_EQ(arpSm->use_count(), 1u);
  EXPECT_EQ(mibs->use_count(), 1u);
  const auto others = 2u + (root->ipMib() ? 1u : 0u);  // the VRF's root, mibs and neighbour machine
  EXPECT_LE(cache->use_count(), 2u + others);
  EXPECT_FALSE(root->arpTableSm());
  const auto watchers = tree.intfStatusDir->intfStatus(intfOf("eth0"))->use_count();
  for (int i = 0; i < 50; ++i) {
    localIs("red");
    localDel("red");
  }
  EXPECT_EQ(tree.intfStatusDir->intfStatus(intfOf("eth0"))->use_count(), watchers);
}

// Does `what` whenever a VRF is served or no more, or its cache comes or goes.
struct Meddler : VrfRootSm::Notifiee {
  void handleServedVrf(const L3::VrfName&) override { what(); }
  void handleVrfRoot(const Kel::Name&) override { what(); }
  std::function<void()> what = [] {};
};
struct MibsMeddler : VrfMibsDir::Notifiee {
  void handleMibs(const Kel::Name&) override { what(); }
  std::function<void()> what = [] {};
};

TEST_F(VrfRootSmTest, reactorsMayRemoveAVrfThatIsBeingMade) {
  startReady();
  auto meddler = Kel::makePtr<Meddler>();
  meddler->notifierIs(vrfRootSm);
  auto mibsMeddler = Kel::makePtr<MibsMeddler>();
  mibsMeddler->notifierIs(vrfMibsDir);
  meddler->what = [&] { localDel("red"); };
  localIs("red");
  infoIs("red");
  routingIs("red");
  idIs("red", 1);
  EXPECT_FALSE(isServed("red"));
  meddler->what = [] {};
  mibsMeddler->what = [&] { localDel("red"); };
  localIs("red");
  EXPECT_FALSE(isServed("red"));
  mibsMeddler->what = [] {};
  localIs("red");
  EXPECT_TRUE(isServed("red"));
  // It comes back while it goes.
  bool isFirst = true;
  meddler->what = [&] {
    if (std::exchange(isFirst, false)) localIs("red");
  };
  localDel("red");
  EXPECT_TRUE(isServed("red"));
  EXPECT_TRUE(ipVrfMib->vrfTableHas("red"));
}

TEST_F(VrfRootSmTest, theMachineMayGoInsideItsOwnWork) {
  for (int when = 0; when < 6; ++when) {
    VrfWorld world;
    world.vrfIs("blue", 2);
    world.vrfIs("red", 1);
    world.start();
    // Kept by its reactors alone, were it not for the world.
    auto meddler = Kel::makePtr<Meddler>();
    int calls = 0;
    meddler->what = [&] {
      if (calls++ != when) return;
      meddler->notifierIs(nullptr);
      world.vrfRootSm = nullptr;
    };
    meddler->notifierIs(world.vrfRootSm);
    world.agentIsReady();
    world.runTasks();
    world.localDel("red");
    EXPECT_FALSE(world.vrfRootSm) << when;
    EXPECT_TRUE(world.vrfMibsDir->mibs().empty()) << when;
    EXPECT_TRUE(world.vrfRootDir->vrfRoot().empty());
    EXPECT_TRUE(world.sm->vrfIpMib().empty());
    EXPECT_TRUE(world.ipVrfMib->vrfTable().empty());
  }
}

}  // namespace
}  // namespace IpSnmpTest
