#include "ipsnmp/ArpTableIteratorConst.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kel/Trace.h"
#include "quillo/testing/TestArpTable.h"

namespace IpSnmp {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ArpTableIterator : public ::testing::Test {
 protected:
  void rowIs(std::uint32_t ifIndex, const std::string& addr) {
    const auto genAddr = Vantu::IpGenAddr::fromString(addr);
    ipMib->ipNetToPhysicalTableIs(physicalIndex(ifIndex, addr), Vantu::IntfId("eth0"), genAddr, arp, vrfId);
  }
  void rowDel(std::uint32_t ifIndex, const std::string& addr) {
    ipMib->ipNetToPhysicalTableDel(physicalIndex(ifIndex, addr));
  }
  static IpNetToPhysicalTableIndex physicalIndex(std::uint32_t ifIndex, const std::string& addr) {
    return IpNetToPhysicalTableIndex(ifIndex, InetAddress::fromIpGenAddr(Vantu::IpGenAddr::fromString(addr)));
  }
  static ArpTableIndex index(std::uint32_t ifIndex, const char* addr) {
    return ArpTableIndex(ifIndex, Vantu::IpAddr::fromString(addr));
  }
  static std::string text(const IpMib::ArpTableIteratorConst& at) {
    const auto& entry = at.curEntry();
    return entry ? std::to_string(entry->ifIndex()) + "/" + entry->netAddress().stringValue() : "end";
  }
  std::vector<std::string> walked() const {
    std::vector<std::string> rows;
    for (IpMib::ArpTableIteratorConst at(ipMib); at.curEntry(); at.fetch(at.curEntry()->index(), true)) {
      rows.push_back(text(at));
    }
    return rows;
  }

  Kel::Ptr<IpMib> ipMib = Kel::makePtr<IpMib>("ipmib");
  Kel::Ptr<Arp::Table::TestStatus> arp = Kel::makePtr<Arp::Table::TestStatus>();
  Vrf::VrfIdMap::VrfId vrfId{3};
};

TEST_F(ArpTableIterator, walksTheIpv4RowsInOrderOfTheIndex) {
  EXPECT_THAT(walked(), IsEmpty());
  EXPECT_EQ(text(IpMib::ArpTableIteratorConst(nullptr)), "end");
  for (const std::uint32_t ifIndex : {2U, 1U, 10U, 0xFFFFFFFFU}) rowIs(ifIndex, "fe80::1");
  EXPECT_THAT(walked(), IsEmpty());
  for (const char* addr : {"10.0.0.2", "200.0.0.1", "2001:db8::1", "9.0.0.1"}) rowIs(2, addr);
  rowIs(0xFFFFFFFF, "10.0.0.1");
  rowIs(10, "10.0.0.1");
  EXPECT_THAT(walked(),
              ElementsAre("2/9.0.0.1", "2/10.0.0.2", "2/200.0.0.1", "10/10.0.0.1", "4294967295/10.0.0.1"));
}

TEST_F(ArpTableIterator, fetchGoesToTheRowOrToTheNextOne) {
  for (const char* addr : {"10.0.0.1", "10.0.0.3", "fe80::1"}) rowIs(2, addr);
  rowIs(3, "10.0.0.1");
  const auto fetched = [this](std::uint32_t ifIndex, const char* addr, bool getNext) {
    IpMib::ArpTableIteratorConst at(ipMib);
    at.fetch(index(ifIndex, addr), getNext);
    return text(at);
  };
  EXPECT_EQ(fetched(2, "10.0.0.3", false), "2/10.0.0.3");
  EXPECT_EQ(fetched(2, "10.0.0.2", false), "end");
  EXPECT_EQ(fetched(2, "10.0.0.3", true), "3/10.0.0.1");
  EXPECT_EQ(fetched(2, "10.0.0.2", true), "2/10.0.0.3");
  EXPECT_EQ(fetched(0, "0.0.0.0", true), "2/10.0.0.1");
  EXPECT_EQ(fetched(3, "10.0.0.1", true), "end");
  EXPECT_EQ(text(IpMib::ArpTableIteratorConst(ipMib, index(3, "10.0.0.1"))), "3/10.0.0.1");
  EXPECT_EQ(text(IpMib::ArpTableIteratorConst(ipMib, index(3, "10.0.0.2"))), "end");
}

TEST_F(ArpTableIterator, survivesTheRemovalOfRowsAndOfTheVrf) {
  for (const char* addr : {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4"}) rowIs(2, addr);
  IpMib::ArpTableIteratorConst at(ipMib);
  const auto copy = at;
  rowDel(2, "10.0.0.1");
  rowDel(2, "10.0.0.2");
  EXPECT_EQ(text(at), "2/10.0.0.1") << "what is held stays readable";
  at.fetch(at.curEntry()->index(), true);
  EXPECT_EQ(text(at), "2/10.0.0.3");
  EXPECT_EQ(text(copy), "2/10.0.0.1");
  ipMib = nullptr;
  at.fetch(at.curEntry()->index(), true);
  EXPECT_EQ(text(at), "2/10.0.0.4");
  at.fetch(at.curEntry()->index(), true);
  EXPECT_EQ(text(at), "end");
}

TEST_F(ArpTableIterator, tracesEachStepAndEachRowPassedOver) {
  for (const char* addr : {"10.0.0.1", "fe80::1", "fe80::2"}) rowIs(2, addr);
  rowIs(3, "10.0.0.1");
  IpMib::ArpTableIteratorConst at(ipMib);
  std::vector<std::string> lines;
  Kel::TraceConfig::levelsAre("ArpTableIteratorConst/7");
  const auto previous = Kel::TraceConfig::sinkIs(
      [&](const Kel::TraceHandle&, unsigned, const std::string& line) { lines.push_back(line); });
  at.fetch(index(2, "10.0.0.1"), true);
  Kel::TraceConfig::sinkIs(previous);
  Kel::TraceConfig::reset();
  EXPECT_EQ(text(at), "3/10.0.0.1") << "as without traces";
  const auto skipped = [](const char* addr) {
    return "Skipping ipv6 entry w/ index: " + Kel::print(physicalIndex(2, addr));
  };
  EXPECT_THAT(
      lines, ElementsAre("Index: Value('IpSnmp::ArpTableIndex', ** {'ifIndex': 2, 'ipAddr': '10.0.0.1'}) getNext 1",
                         skipped("fe80::1"), skipped("fe80::2"),
                         "Set new curEntry: Value('IpSnmp::ArpTableIndex', ** {'ifIndex': 3, 'ipAddr': "
                         "'10.0.0.1'})"));
}

TEST_F(ArpTableIterator, anIpv4RowOfAnotherFamilysNeighbourAborts) {
  ipMib->ipNetToPhysicalTableIs(physicalIndex(2, "10.0.0.1"), Vantu::IntfId("eth0"),
                                Vantu::IpGenAddr::fromString("fe80::1"), arp, vrfId);
  EXPECT_DEATH(IpMib::ArpTableIteratorConst{ipMib},
               "assertion failed: it->ipGenAddr\\(\\)\\.af\\(\\) == Vantu::ipv4_");
}

}  // namespace
}  // namespace IpSnmp
