// Interfaces that come, go and move in any order, against a model.

#include "ipsnmp/agent/interface/IfTableSm.h"

#include <array>
#include <random>
#include <tuple>

#include "ipsnmp/agent/testing/TestWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;
using Indexes = std::set<std::uint32_t>;
using Stack = std::set<std::pair<std::uint32_t, std::uint32_t>>;

struct IfTableSmTest : testing::Test, World {
  IfTableSmTest() { status->agentStatusIs("agent"); }

  Ptr<Interface::IntfCounters> countersIs(const char* intf, std::uint64_t packets, std::uint64_t multicast) {
    const auto record = tree.intfCountersDir->intfCountersIs(intfOf(intf));
    record->countersIs(Interface::LinkCounters(0, packets, multicast, 0, 0, 0, 0, 0, 0));
    return record;
  }
  static Indexes indexesOf(const IfTables& of) {
    Indexes all;
    for (const auto& [ifIndex, row] : of.ifTable()) all.insert(ifIndex);
    return all;
  }
  static Stack stackOf(const IfTables& of) {
    Stack all;
    for (const auto& [key, row] : of.ifStackTable()) all.emplace(key.higher(), key.lower());
    return all;
  }
  // The interfaces of these VRFs, and the stack that they make, by the records alone.
  void expect(const IfTables& of, const std::set<std::string>& vrfs) const {
    std::map<std::uint32_t, Ptr<Interface::IntfStatus>> there;
    for (const auto& [id, record] : tree.intfStatusDir->intfStatus()) {
      const auto config = tree.l3ConfigDir->intfConfig(id);
      if (config && record->ifIndex() != 0 && vrfs.contains(config->vrf().stringValue()))
        there[record->ifIndex()] = record;
    }
    Indexes indexes, isBelow, isAbove;
    Stack stack;
    const auto add = [&](std::uint32_t higher, std::uint32_t lower) {
      if (higher == lower || !there.contains(higher) || !there.contains(lower)) return;
      stack.emplace(higher, lower);
      isAbove.insert(higher);
      isBelow.insert(lower);
    };
    for (const auto& [ifIndex, record] : there) {
      indexes.insert(ifIndex);
      add(ifIndex, record->lowerIfIndex());
      add(record->upperIfIndex(), ifIndex);
    }
    for (const auto ifIndex : indexes) {
      if (!isBelow.contains(ifIndex)) stack.emplace(0, ifIndex);
      if (!isAbove.contains(ifIndex)) stack.emplace(ifIndex, 0);
    }
    EXPECT_EQ(indexesOf(of), indexes);
    EXPECT_EQ(stackOf(of), stack);
    EXPECT_EQ(of.ifNumber(), static_cast<int>(indexes.size()));
  }

  Ptr<Snmp::Status> status = Kel::makePtr<Snmp::Status>("status");
  Ptr<IfTables> tables = Kel::makePtr<IfTables>("iftables");
  Ptr<VrfMibsDir> mibs = Kel::makePtr<VrfMibsDir>("vrf");
  Ptr<IfTableSm> machine =
      Kel::makePtr<IfTableSm>(tree.intfStatusDir, tree.intfCountersDir, tree.l3ConfigDir, status, tables, mibs);
};

TEST_F(IfTableSmTest, tablesFollowTheRecordsInAnyOrder) {
  std::mt19937 random(3);
  const auto below = [&](unsigned count) { return static_cast<std::uint32_t>(random() % count); };
  bool areAllInDefault = false;
  for (int i = 0; i < 4000; ++i) {
    const auto number = 1 + below(8);
    const auto id = intfOf("eth" + std::to_string(number));
    const auto record = tree.intfStatusDir->intfStatus(id);
    switch (below(9)) {
      case 0:
      case 1:
        intfIs("eth" + std::to_string(number), number);
        break;
      case 2:
        tree.intfStatusDir->intfStatusDel(id);
        break;
      case 3:
      case 4:
        tree.l3ConfigDir->intfConfigIs(id)->vrfIs(L3::VrfName(below(3) == 0 ? "red" : "default"));
        break;
      case 5:
        if (below(3) == 0) tree.l3ConfigDir->intfConfigDel(id);
        break;
      case 6:
        if (record) record->ifIndexIs(below(2) * number);
        // A port of one of two interfaces.
        if (record && number < 6) record->upperIfIndexIs(below(3) == 0 ? 0 : 6 + below(2));
        break;
      case 7:
        if (record && number < 6) record->lowerIfIndexIs(number > 2 ? below(3) : 0);
        if (record && number > 5) record->lowerIfIndexIs(below(6));  // which the record of its port may state, too
        break;
      default:
        if (below(20) == 0) machine->setAllInDefault(areAllInDefault = !areAllInDefault);
        if (below(5) == 0) mibs->mibsDel("red");
        if (below(2) == 0) mibs->mibsIs("red");
    }
    expect(*tables, areAllInDefault ? std::set<std::string>{"default", "red"} : std::set<std::string>{"default"});
    if (const auto red = mibs->mibs("red")) expect(*red->iftables(), {"red"});
    ASSERT_FALSE(HasFailure()) << "step " << i;
  }
  machine = nullptr;
  EXPECT_TRUE(indexesOf(*tables).empty() && stackOf(*tables).empty());
}

TEST_F(IfTableSmTest, timesAreThoseOfChangesSinceTheAgentWasReady) {
  const auto record = intfIs("eth0", 3);
  tree.l3ConfigDir->intfConfigIs(intfOf("eth0"))->vrfIs(L3::VrfName("default"));
  record->operStatusIs(Interface::operStatusUp);
  countersIs("eth0", 100, 40);
  const auto row = tables->ifTable(3);
  EXPECT_EQ(row->lastChange() + row->discontinuityTime() + tables->ifTableLastChange(), 0.0);
  countersIs("eth0", 100, 41);  // counted a moment later
  EXPECT_EQ(row->inUcastPkts(), 60U) << "does not fall";
  EXPECT_EQ(row->discontinuityTime(), 0.0);
  countersIs("eth0", 7, 1);
  EXPECT_EQ(row->inUcastPkts(), 6U);
  EXPECT_GT(row->discontinuityTime(), 0.0);
  status->agentStatus()->agentReadyIs(true);
  record->mtuIs(9000);
  EXPECT_EQ(row->lastChange(), 0.0);
  record->operStatusIs(Interface::operStatusUnknown);
  record->adminStatusIs(Interface::adminStatusDown);
  EXPECT_EQ(row->operStatus(), Interface::operStatusDown);
  EXPECT_GT(row->lastChange(), 0.0);
  intfIs("eth1", 4)->lowerIfIndexIs(3);
  tree.l3ConfigDir->intfConfigIs(intfOf("eth1"))->vrfIs(L3::VrfName("default"));
  EXPECT_GT(tables->ifTableLastChange(), 0.0);
  EXPECT_GT(tables->ifTable(4)->discontinuityTime(), 0.0) << "another device may have had this ifIndex";
  EXPECT_GT(tables->ifStackLastChange(), 0.0);
  tables->ifTableLastChangeIs(0);
  tables->ifStackLastChangeIs(0);
  tree.intfStatusDir->intfStatusDel(intfOf("eth1"));
  EXPECT_GT(tables->ifTableLastChange(), 0.0) << "a row is gone";
  EXPECT_GT(tables->ifStackLastChange(), 0.0);
  for (std::size_t fallen = 0; fallen < 9; ++fallen) {
    std::array<std::uint64_t, 9> counts{9, 9, 9, 9, 9, 9, 9, 9, 9};
    const auto publish = [&](auto... each) {
      tree.intfCountersDir->intfCountersIs(intfOf("eth0"))->countersIs(Interface::LinkCounters(each...));
    };
    std::apply(publish, counts);
    row->discontinuityTimeIs(0);
    counts[fallen] = 8;
    std::apply(publish, counts);
    EXPECT_GT(row->discontinuityTime(), 0.0) << "counter " << fallen;
  }
}

}  // namespace
}  // namespace IpSnmpTest
