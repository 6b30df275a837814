// What the random histories do not show: traces, damage, the order of changes, and a machine by itself.

#include "ipsnmp/agent/neighbour/ArpTableSm.h"

#include <gmock/gmock.h>

#include "ipsnmp/agent/testing/TestVrfWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;
using testing::Contains;

struct RowWatch : IpMib::Notifiee {
  void handleIpNetToPhysicalTable(const IpNetToPhysicalTableIndex& index) override {
    const bool isThere = notifier()->ipNetToPhysicalTableHas(index);
    log += fmt::format("{}{} {};", isThere ? "+" : "-", index.ifIndex(), keyText(index.addr()));
  }
  std::string log;
  std::string take() { return std::exchange(log, {}); }
};

struct ArpTableSmTest : testing::Test, VrfWorld {
  ArpTableSmTest() { rows->notifierIs(ipMib); }
  void machineIs(VrfId id) { machine = Kel::makePtr<ArpTableSm>(tree.intfStatusDir, ipMib, arp, id); }
  Ptr<ArpTableSm> machine;
  Ptr<RowWatch> rows = Kel::makePtr<RowWatch>();
};

TEST_F(ArpTableSmTest, theVrfIdDecidesWhichEntriesHaveRows) {
  arp->tableIs(
      {neighbour(1, "10.0.0.1", "eth0"), neighbour(1, "2001:db8::1", "eth0"), neighbour(2, "10.0.0.2", "eth0")});
  const auto entry = neighbour(1, "10.0.0.1", "eth0");
  // An event, its trace, and what happens to the rows.
  const auto expect = [&, lines = std::make_shared<TraceLines>("ArpTableSm")](auto event, const char* line,
                                                                              const std::string& changes) {
    event();
    EXPECT_THAT(lines->take(), Contains(line));
    EXPECT_EQ(rows->take(), changes) << line;
  };
  expect([&] { machineIs(VrfId(1)); }, "6 no ifIndex (yet?)", "");
  expect([&] { machine->delArpEntry(entry.key); }, "6 no ifIndex (yet?)", "");
  intfIs("eth0", 3);
  expect([&] { machineIs(VrfId()); }, "6  arpQuilloVrfId: 16777215", "");
  expect([&] { machine->addArpEntry(entry); }, "6 no arp quillo vrf id (yet?)", "");
  expect([&] { machine->delArpEntry(entry.key); }, "6 no arp quillo vrf id (yet?)", "");
  expect([&] { machine->arpQuilloVrfIdIs(VrfId(1)); }, "6  cur: 16777215 new: 1", "+3 10.0.0.1;+3 2001:db8::1;");
  expect([&] { machine->addArpEntry(entry); },
         "6 ipnettophysical index: Value('IpSnmp::IpNetToPhysicalTableIndex', ** {'ifIndex': 3, 'addr': "
         "Value('IpSnmp::InetAddress', ** {'version': ipVersion4, 'bytes': '0x0a000001'})})",
         "");
  expect([&] { machine->arpQuilloVrfIdIs(VrfId(2)); }, "6  cur: 1 new: 2",
         "-3 10.0.0.1;-3 2001:db8::1;+3 10.0.0.2;");
  machine->delArpEntry(neighbour(1, "10.0.0.2", "eth0").key);
  EXPECT_EQ(rows->take(), "") << "that of another VRF";
  machine->cleanup();
  machine->populate();
  EXPECT_EQ(rows->take(), "-3 10.0.0.2;+3 10.0.0.2;");
  EXPECT_DEATH(machine->addArpEntry(entry), "assertion failed: entry.vrfId\\(\\) == arpQuilloVrfId\\(\\)");
}

TEST_F(ArpTableSmTest, damageIsReportedAndCostsNoRow) {
  intfIs("eth0", 3);
  arp->tableIs({neighbour(1, "10.0.0.1", "eth0"), neighbour(1, "2001:db8::1", "eth0")});
  machineIs(VrfId(1));
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
  // Nor does a row go while the table cannot be read.
  arp->isReadable = false;
  machine->handleTable();
  arp->isReadable = true;
  arp->damage = "a fault";
  unsigned walks = 0;
  arp->walkBegins = [&](const auto&) { arp->isReadable = ++walks < 2; };  // the lookups after it fail
  machine->handleTable();
  EXPECT_EQ(rows->take(), "");
  arp->walkBegins = [](const auto&) {};
  arp->isReadable = true;
  arp->damage.reset();
  machine->handleTable();
  EXPECT_EQ(rows->take(), "-3 10.0.0.1;");
}

TEST_F(ArpTableSmTest, aSuccessorRemovesTheRowsThatAMachineLeaves) {
  intfIs("eth0", 3);
  arp->tableIs(
      {neighbour(1, "10.0.0.1", "eth0"), neighbour(2, "10.0.0.1", "eth0"), neighbour(1, "10.0.0.2", "eth0")});
  auto vrfRoot = Kel::makePtr<VrfRoot>("red");
  auto old = vrfRoot->arpTableSmIs(tree.intfStatusDir, ipMib, arp, VrfId(1));
  old->arpQuilloVrfIdIs(VrfId(3));
  EXPECT_EQ(vrfRoot->arpTableSmIs(tree.intfStatusDir, ipMib, arp, VrfId(1)), old);
  old->arpQuilloVrfIdIs(VrfId(1));
  vrfRoot->arpTableSmDel();
  tree.intfStatusDir->intfStatusDel(intfOf("eth0"));
  old->addArpEntry(neighbour(1, "10.0.0.3", "eth0"));  // it was stopped
  EXPECT_EQ(neighbours(*ipMib), "3 10.0.0.1 eth0@1;3 10.0.0.2 eth0@1;");
  intfIs("eth0", 3);
  vrfRoot->arpTableSmIs(tree.intfStatusDir, ipMib, arp, VrfId(2));
  EXPECT_EQ(neighbours(*ipMib), "3 10.0.0.1 eth0@2;");
}

}  // namespace
}  // namespace IpSnmpTest
