// What the random histories do not show: traces, the work of the task, failures, and a few machines by themselves.

#include "ipsnmp/agent/vrf/VrfRootSm.h"

#include <gmock/gmock.h>

#include "ipsnmp/agent/testing/TestVrfWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

struct VrfRootSmTest : testing::Test, VrfWorld {};

TEST_F(VrfRootSmTest, everyNameMayBeAVrfs) {
  startReady();
  for (const auto& vrf : Lines{"..", "default.ipmib", "\xff\x80 \xc3\xa4", std::string(100, 'n')}) {
    const auto local = tree.allVrfStatusLocal->vrfIs(L3::VrfName(vrf));
    vrfIs(vrf, 7);
    ASSERT_TRUE(isServed(vrf)) << vrf;
    for (const bool hasNamespace : {false, true}) {
      local->hasNamespaceIs(hasNamespace);
      for (const auto& [version, stats] : vrfMibsDir->mibs(vrf)->ipmib()->ipSwFwdStats()) {
        EXPECT_TRUE(stats->hasNamespace() == hasNamespace && stats->name() == vrf);
      }
    }
    localDel(vrf);
  }
  infoIs(std::string(101, 'x'));
  EXPECT_TRUE(vrfRootSm->vrfRoot().empty());
}

TEST_F(VrfRootSmTest, whatIsMissingIsTraced) {
  TraceLines traces("VrfRootSm");
  const auto line = [](int initialized, int made, int info, int config, int id) {
    return fmt::format(
        "2  Nothing to do for vrf red because - initialized={} vrfRoot(vrfName)={} "
        "routingVrfInfoDir()->entityPtr(vrfName)={} routingVrfConfigDir()->vrfConfig(vrfName)={} "
        "vrfNameStatus()->vrfIdExists( vrfName )={}",
        initialized, made, info, config, id);
  };
  start();
  idIs("red", 1);
  localIs("red");
  EXPECT_EQ(traces.take(), Lines(3, line(0, 0, 0, 0, 1)));  // the id, the record, and its state
  agentIsReady();
  runTasks();
  infoIs("red");
  EXPECT_EQ(traces.take(), (Lines{"2 Starting VRF Backlog processing", line(1, 0, 0, 0, 1),
                                  "2 VRF Backlog processing done", line(1, 0, 1, 0, 1)}));
  tree.vrfNameStatus->vrfIdDel(L3::VrfName("red"));
  routingIs("red");
  EXPECT_EQ(traces.take(), (Lines{line(1, 0, 1, 0, 0), line(1, 0, 1, 1, 0)}));
  idIs("red", 1);
  idIs("red", 2);
  EXPECT_EQ(traces.take(), Lines{line(1, 1, 1, 1, 1)});
  const auto row = ipVrfMib->vrfTable(Snmp::String("red"));
  tree.routing6VrfConfigDir->vrfConfigIs("red")->routingIs(true);
  EXPECT_EQ(ipVrfMib->vrfTable(Snmp::String("red")), row) << "its flags change in the row";
  localDel("red");
  EXPECT_EQ(traces.take(), Lines{"6  for vrf red"});
}

// Notes the VRFs that are served, in order; a "-" for those that are left.
struct ServedLog : VrfRootSm::Notifiee {
  void handleServedVrf(const L3::VrfName& vrfName) override {
    log.push_back((notifier()->servedVrfHas(vrfName) ? "" : "-") + vrfName.stringValue());
    if (then) then();
  }
  Lines log;
  std::function<void()> then;
};

TEST_F(VrfRootSmTest, theTaskYieldsAndTriesEveryVrfThatCannotBeMadeAgain) {
  Lines names;
  for (unsigned i = 0; i < 200; ++i) {
    names.push_back(fmt::format("{}{:03}", i % 2 ? "a" : "z", i));  // on both sides of "default"
    vrfIs(names.back(), i + 1);
  }
  localIs("default");
  std::sort(names.begin(), names.end());
  routeTablesEnabled = false;
  start();
  bool isReadable = false;
  unsigned walks = 0;
  arp->walkBegins = [&](const VrfId& vrfId) {
    if (vrfId == VrfId(0)) return;
    ++walks;
    now += 0.001;  // each VRF takes a millisecond
    if (!isReadable) throw Quillo::StoreException(Quillo::StoreException::Kind::notReady, "no reader slot is free");
  };
  TraceLines traces("VrfRootSm");
  agentIsReady();
  const auto task = vrfRootSm->task();
  for (const auto notify :
       {+[](Arp::Table::TestStatus&) {}, +[](Arp::Table::TestStatus& table) { table.tableIs({}); },
        +[](Arp::Table::TestStatus& table) { table.initializedIs(); }}) {
    notify(*arp);
    EXPECT_EQ(walks, 0U) << "the task has not run yet";
    for (unsigned run = 1; run <= 3; ++run) {
      scheduler->runReady();
      ASSERT_EQ(walks / 10, run);
      EXPECT_EQ(task->workPending(), 200 - walks);
      EXPECT_EQ(vrfRootSm->vrfBookmark().stringValue(), names[walks]);
    }
    while (walks <= 200 && scheduler->runReady()) {
    }
    EXPECT_EQ(std::exchange(walks, 0), 200U) << "each once";
    auto lines = traces.take();
    EXPECT_EQ(lines.back(), "2 VRF Backlog processing done");
    EXPECT_THAT(lines,
                testing::IsSupersetOf({"2 Starting VRF Backlog processing", "2 VRF Backlog processing yielding"}));
    std::erase_if(lines, [](const std::string& text) { return text[0] != '0'; });
    EXPECT_EQ(lines, Lines{"0 vrf " + names[0] + " is not complete: no reader slot is free"});
    EXPECT_TRUE(vrfRootSm->vrfRoot().empty() && vrfMibsDir->mibs().empty());
  }
  isReadable = true;
  vrfRootSm->vrfBacklogQuantumIs(0.04);  // each VRF now walks the table twice
  auto served = Kel::makePtr<ServedLog>();
  served->notifierIs(vrfRootSm);
  arp->isInitialized = false;
  arp->tableIs({});
  scheduler->runReady();
  EXPECT_EQ(served->log.size() / 10, 2U);
  localDel(names[150]);                                  // before its turn; its other records outlive it
  vrfRootSm->vrfBacklogIs(L3::VrfName(names[0]), true);  // below the bookmark
  runTasks();
  EXPECT_EQ(task->workPending(), 0U);
  for (const auto& name : names) ASSERT_EQ(isServed(name), name != names[150]) << name;
  names.erase(names.begin() + 150);
  EXPECT_EQ(served->log, names);
  const auto arpSm = vrfRootSm->vrfRoot(names[0])->arpTableSm();
  EXPECT_FALSE(arpSm->initialized());
  arp->initializedIs();
  EXPECT_TRUE(arpSm->initialized());
}

// A context is entered as the last step and left as the first one, and nothing keeps the VRF then.
TEST_F(VrfRootSmTest, contextsAreServedLastAndLeftFirst) {
  startReady();
  intfIs("eth0", 3);
  intfVrfIs("eth0", "red");
  arp->entryIs(neighbour(1, "10.0.0.1", "eth0"));
  auto served = Kel::makePtr<ServedLog>();
  served->notifierIs(vrfRootSm);
  served->then = [&] {
    EXPECT_EQ(neighboursOf("red"), "3 10.0.0.1 eth0@1;");
    EXPECT_EQ(vrfMibsDir->mibs("red")->ipmib()->ipSwFwdStats().size(), 2u);
    EXPECT_TRUE(vrfRootSm->vrfRootHas("red") && ipVrfMib->vrfTableHas(Snmp::String("red")));
  };
  localIs("red");
  vrfIs("red", 1);
  const auto vrfRoot = vrfRootSm->vrfRoot("red");
  const auto mibs = vrfMibsDir->mibs("red");
  const auto arpSm = vrfRoot->arpTableSm();
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(vrfIfs(*ipVrfMib), "3 red eth0;");
    localDel("red");
    EXPECT_EQ(vrfIfs(*ipVrfMib), "");
    TraceLines traces("VrfIfTableSm");
    localIs("red");
    EXPECT_EQ(traces.take(), Lines{"6  for vrf red"});
  }
  EXPECT_EQ(served->log.size(), 11u);
  root->vrfIfTableSm()->addToVrfIfTable("default", tree.intfStatusDir->intfStatus(intfOf("eth0")));
  EXPECT_EQ(vrfIfs(*ipVrfMib), "") << "the default VRF has no rows";
  EXPECT_TRUE(vrfRoot->use_count() == 1 && mibs->use_count() == 1 && arpSm->use_count() == 1);
  // The machine may go inside the notification.
  served->then = [&] {
    served->notifierIs(nullptr);
    root->vrfRootSmDel();
    vrfRootSm = nullptr;
  };
  localDel("red");
  EXPECT_FALSE(vrfRootSm);
  EXPECT_TRUE(vrfMibsDir->mibs().empty() && root->vrfRootDir()->vrfRoot().empty() && sm->vrfIpMib().empty());
  EXPECT_TRUE(ipVrfMib->vrfTable().empty());
}

TEST_F(VrfRootSmTest, neighboursGoToTheVrfOfTheirId) {
  start();
  // Interfaces that are added while nobody watches them.
  arp->entryIs(neighbour(0, "10.0.0.1", "eth0"));
  root->vrfRootSmDel();
  intfIs("eth0", 3);
  vrfRootSmIs();
  agentIsReady();
  EXPECT_EQ(neighbours(*ipMib), "3 10.0.0.1 eth0@0;");
  TraceLines traces("VrfNeighbours");
  vrfIs("red", 1);
  EXPECT_EQ(traces.take(), (Lines{"6 red updating arp quillo vrf id 1", "6 vrf root for red not found"}));
  arp->entryIs(neighbour(1, "10.0.0.1", "eth0"));
  arp->entryIs(neighbour(1, "2001:db8::1", "eth0"));
  arp->entryIs(neighbour(2, "10.0.0.9", "eth0"));  // nobody's
  arp->entryDel(neighbour(0, "10.0.0.1", "eth0").key);
  EXPECT_EQ(traces.take(), (Lines{"6 Arp entry 1/10.0.0.1/eth0 (vrf 'red') updated in arp quillo",
                                  "6 Arp entry 1/2001:db8::1/eth0 (vrf 'red') updated in arp quillo",
                                  "6 Arp entry 0/10.0.0.1/eth0 (vrf 'default') deleted from arp quillo"}));
  idIs("red", 2);
  idIs("default", 1);
  EXPECT_TRUE(vrfRootSm->vrfRoot("red")->vrfId() == VrfId(2) && vrfRootSm->defaultVrfId() == VrfId(1));
  traces.take();
  tree.vrfNameStatus->vrfIdDel(L3::VrfName("red"));
  EXPECT_EQ(traces.take(), Lines{"6 red invalidating arp quillo vrf id "});
  // One that cannot be read keeps its row.
  const auto before = neighbours(*ipMib);
  EXPECT_EQ(before, "3 10.0.0.1 eth0@1;3 2001:db8::1 eth0@1;");
  arp->damage = "a bad checksum";
  arp->entryIs(neighbour(1, "10.0.0.2", "eth0"));
  arp->entryDel(neighbour(1, "10.0.0.1", "eth0").key);
  EXPECT_EQ(arp->reports.size(), 2u);
  EXPECT_EQ(neighbours(*ipMib), before);
}

}  // namespace
}  // namespace IpSnmpTest
