#include "ipsnmp/agent/neighbour/ArpTableSm.h"

#include "ipsnmp/agent/testing/TestVrfWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

// Notes what happens to the rows.
struct RowWatch : IpMib::Notifiee {
  void handleIpNetToPhysicalTable(const IpNetToPhysicalTableIndex& index) override {
    const bool isThere = notifier()->ipNetToPhysicalTableHas(index);
    log += fmt::format("{}{} {};", isThere ? "+" : "-", index.ifIndex(), keyText(index.addr()));
    if (then) then();
  }
  std::string log;
  std::function<void()> then;
  std::string take() { return std::exchange(log, {}); }
};

struct ArpTableSmTest : testing::Test, VrfWorld {
  ArpTableSmTest() {
    rows->notifierIs(ipMib);
    intfs->notifierIs(tree.intfStatusDir);
  }
  std::string table() const { return neighbours(*ipMib); }
  Ptr<ArpTableSm> machine;
  Ptr<KelIntfStatusDir> intfs = Kel::makePtr<KelIntfStatusDir>([this](const Vantu::IntfId& intfId) {
    if (machine) machine->handleIntfStatus(intfId);
  });
  Ptr<RowWatch> rows = Kel::makePtr<RowWatch>();
};

TEST_F(ArpTableSmTest, theVrfIdDecidesWhichEntriesAreThere) {
  intfIs("eth0", 3);
  arp->entryIs(neighbour(1, "10.0.0.1", "eth0"));
  arp->entryIs(neighbour(1, "2001:db8::1", "eth0"));
  arp->entryIs(neighbour(2, "10.0.0.2", "eth0"));
  TraceCatcher traces("ArpTableSm/6");
  machine = makeArpTableSm(VrfId());
  EXPECT_EQ(table(), "");
  EXPECT_EQ(traces.take(" arpQuilloVrfId: 16777215"), 1);
  machine->addArpEntry(neighbour(1, "10.0.0.1", "eth0"));
  EXPECT_EQ(traces.take("no arp quillo vrf id (yet?)"), 1);
  machine->delArpEntry(neighbour(1, "10.0.0.1", "eth0").key);
  EXPECT_EQ(traces.take("no arp quillo vrf id (yet?)"), 1);
  EXPECT_EQ(table(), "");
  machine->arpQuilloVrfIdIs(VrfId(1));
  EXPECT_EQ(traces.take(" cur: 16777215 new: 1"), 1);
  EXPECT_EQ(table(), "3 10.0.0.1 eth0@1;3 2001:db8::1 eth0@1;");
  EXPECT_EQ(rows->take(), "+3 10.0.0.1;+3 2001:db8::1;");
  machine->arpQuilloVrfIdIs(VrfId(2));
  EXPECT_EQ(rows->take(), "-3 10.0.0.1;-3 2001:db8::1;+3 10.0.0.2;");
  machine->arpQuilloVrfIdIs(VrfId(2));
  EXPECT_EQ(traces.take("ipnettophysical index: "
                        "Value('IpSnmp::IpNetToPhysicalTableIndex', ** {'ifIndex': 3, 'addr': "
                        "Value('IpSnmp::InetAddress', ** {'version': ipVersion4, 'bytes': '0x0a000002'})})"),
            1);
  machine->cleanup();
  EXPECT_EQ(table(), "");
  machine->populate();
  EXPECT_EQ(table(), "3 10.0.0.2 eth0@2;");
  // Those of another VRF are no business of this machine.
  machine->delArpEntry(neighbour(1, "10.0.0.2", "eth0").key);
  EXPECT_EQ(table(), "3 10.0.0.2 eth0@2;");
  EXPECT_DEATH(machine->addArpEntry(neighbour(1, "10.0.0.1", "eth0")),
               "assertion failed: entry.vrfId\\(\\) == arpQuilloVrfId\\(\\)");
}

TEST_F(ArpTableSmTest, rowsFollowTheIfIndex) {
  machine = makeArpTableSm(VrfId(1));
  TraceCatcher traces("ArpTableSm/6");
  machine->addArpEntry(neighbour(1, "10.0.0.1", "eth0"));
  machine->addArpEntry(neighbour(1, "10.0.0.2", "eth0"));
  EXPECT_EQ(traces.take("no ifIndex (yet?)"), 2);
  auto status = intfIs("eth0", 0);
  EXPECT_EQ(table(), "");
  status->ifIndexIs(3);
  EXPECT_EQ(table(), "3 10.0.0.1 eth0@1;3 10.0.0.2 eth0@1;");
  const auto row = ipMib->ipNetToPhysicalTable().begin()->second;
  traces.takeAll();
  machine->addArpEntry(neighbour(1, "10.0.0.1", "eth0"));
  EXPECT_EQ(traces.take("ipnettophysical index: " + Kel::print(row->index())), 1) << "of a row that is there, too";
  EXPECT_EQ(ipMib->ipNetToPhysicalTable().begin()->second, row);
  status->ifIndexIs(4);
  EXPECT_EQ(table(), "4 10.0.0.1 eth0@1;4 10.0.0.2 eth0@1;");
  status->kindIs("without a provider");
  EXPECT_EQ(table(), "");
  status->kindIs("linux");
  EXPECT_EQ(table(), "4 10.0.0.1 eth0@1;4 10.0.0.2 eth0@1;");

  // The record goes first, a neighbour then: only the other one comes back.
  tree.intfStatusDir->intfStatusDel(intfOf("eth0"));
  EXPECT_EQ(table(), "");
  traces.takeAll();
  machine->delArpEntry(neighbour(1, "10.0.0.1", "eth0").key);
  EXPECT_EQ(traces.take("no ifIndex (yet?)"), 1);
  intfIs("eth0", 5);
  EXPECT_EQ(table(), "5 10.0.0.2 eth0@1;");
  machine->delArpEntry(neighbour(1, "10.0.0.2", "eth0").key);
  EXPECT_EQ(table(), "");
  status->ifIndexIs(9);  // the old record is nobody's
  EXPECT_EQ(table(), "");
}

TEST_F(ArpTableSmTest, aChangeOfTheWholeTableLeavesWhatIsStillTrue) {
  arp->isInitialized = false;
  intfIs("eth0", 3);
  machine = makeArpTableSm(VrfId(1));
  EXPECT_FALSE(machine->initialized());
  arp->tableIs({neighbour(1, "10.0.0.1", "eth0"), neighbour(1, "10.0.0.2", "eth0"),
                neighbour(1, "10.0.0.3", "gone"), neighbour(1, "2001:db8::1", "eth0")});
  machine->handleInitialized();
  EXPECT_TRUE(machine->initialized());
  EXPECT_EQ(rows->take(), "+3 10.0.0.1;+3 10.0.0.2;+3 2001:db8::1;");
  now += 100;
  arp->tableIs({neighbour(1, "10.0.0.2", "eth0"), neighbour(1, "10.0.0.4", "eth0"),
                neighbour(2, "10.0.0.1", "eth0"), neighbour(1, "2001:db8::1", "eth0")});
  machine->handleTable();
  EXPECT_EQ(rows->take(), "-3 10.0.0.1;+3 10.0.0.4;");
  std::vector<double> updated;
  for (const auto& [index, row] : ipMib->ipNetToPhysicalTable()) updated.push_back(row->lastUpdated());
  EXPECT_EQ(updated, (std::vector<double>{1000, 1100, 1000}));
  intfIs("gone", 7);  // its neighbour is forgotten
  EXPECT_EQ(rows->take(), "");
}

TEST_F(ArpTableSmTest, damageIsReportedAndCostsNoRow) {
  intfIs("eth0", 3);
  arp->tableIs({neighbour(1, "10.0.0.1", "eth0"), neighbour(1, "2001:db8::1", "eth0")});
  machine = makeArpTableSm(VrfId(1));
  arp->tableIs({neighbour(1, "10.0.0.2", "eth0"), neighbour(1, "2001:db8::2", "eth0")});
  arp->damage = "a bad checksum";
  rows->take();
  machine->handleTable();
  EXPECT_EQ(arp->reports.size(), 2u);
  EXPECT_EQ(rows->take(), "+3 10.0.0.2;+3 2001:db8::2;");  // what could be read
  // What is damaged stays, whatever else is gone.
  arp->damagedKey = neighbour(1, "10.0.0.1", "eth0").key;
  machine->handleTable();
  EXPECT_EQ(rows->take(), "-3 2001:db8::1;");
  arp->damage.reset();
  machine->handleTable();
  EXPECT_EQ(rows->take(), "-3 10.0.0.1;");
}

TEST_F(ArpTableSmTest, aNewMachineStandsOnNoOldRows) {
  intfIs("eth0", 3);
  arp->tableIs(
      {neighbour(1, "10.0.0.1", "eth0"), neighbour(2, "10.0.0.1", "eth0"), neighbour(1, "10.0.0.2", "eth0")});
  auto root = Kel::makePtr<VrfRoot>("red");
  auto old = root->arpTableSmIs(tree.intfStatusDir, ipMib, arp, VrfId(1));
  old->arpQuilloVrfIdIs(VrfId(3));
  EXPECT_EQ(root->arpTableSmIs(tree.intfStatusDir, ipMib, arp, VrfId(1)), old);
  old->arpQuilloVrfIdIs(VrfId(1));
  root->arpTableSmDel();
  EXPECT_EQ(table(), "3 10.0.0.1 eth0@1;3 10.0.0.2 eth0@1;");
  tree.intfStatusDir->intfStatusDel(intfOf("eth0"));
  old->addArpEntry(neighbour(1, "10.0.0.3", "eth0"));  // it has ceased to react
  EXPECT_EQ(table(), "3 10.0.0.1 eth0@1;3 10.0.0.2 eth0@1;");
  intfIs("eth0", 3);
  root->arpTableSmIs(tree.intfStatusDir, ipMib, arp, VrfId(2));
  EXPECT_EQ(table(), "3 10.0.0.1 eth0@2;");
}

TEST_F(ArpTableSmTest, reactorsOfTheRowsMayDoAnything) {
  std::vector<Arp::Table::ArpEntry> entries;
  for (int i = 1; i < 20; ++i) entries.push_back(neighbour(1, fmt::format("10.0.0.{}", i), "eth0"));
  entries.push_back(neighbour(2, "10.1.0.1", "eth0"));
  arp->tableIs(entries);
  auto status = intfIs("eth0", 3);
  machine = makeArpTableSm(VrfId());
  for (const auto size : {1u, 5u}) {
    rows->then = [&] {
      const auto& row = ipMib->ipNetToPhysicalTable();
      if (row.size() == size && row.begin()->second->arpQuilloVrfId() == VrfId(1)) {
        machine->arpQuilloVrfIdIs(VrfId(2));
      }
    };
    machine->arpQuilloVrfIdIs(VrfId(1));
    EXPECT_EQ(table(), "3 10.1.0.1 eth0@2;");
  }

  rows->then = nullptr;
  machine->arpQuilloVrfIdIs(VrfId(1));
  bool isFirst = true;
  rows->then = [&] {
    if (std::exchange(isFirst, false)) status->ifIndexIs(6);
  };
  status->ifIndexIs(5);
  EXPECT_EQ(ipMib->ipNetToPhysicalTable().size(), 19u);
  EXPECT_EQ(ipMib->ipNetToPhysicalTable().begin()->first.ifIndex(), 6u);

  rows->then = [&] { machine = nullptr; };
  status->ifIndexIs(7);
  EXPECT_FALSE(machine);
  const auto left = table();
  status->ifIndexIs(8);
  EXPECT_EQ(table(), left);
}

}  // namespace
}  // namespace IpSnmpTest
