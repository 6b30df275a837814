// What a walk does beside finding rows, which modules/Tables_test.cpp shows for every index.

#include "ipsnmp/ArpTableIteratorConst.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kel/Trace.h"
#include "quillo/testing/TestArpTable.h"

namespace IpSnmp {
namespace {

using ::testing::ElementsAre;

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
  static std::string text(const IpMib::ArpTableIteratorConst& at) {
    const auto& entry = at.curEntry();
    return entry ? std::to_string(entry->ifIndex()) + "/" + entry->netAddress().stringValue() : "end";
  }
  Kel::Ptr<IpMib> ipMib = Kel::makePtr<IpMib>("ipmib");
  Kel::Ptr<Arp::Table::TestStatus> arp = Kel::makePtr<Arp::Table::TestStatus>();
  Vrf::VrfIdMap::VrfId vrfId{3};
};

TEST_F(ArpTableIterator, survivesTheRemovalOfRowsAndOfTheVrf) {
  for (const char* addr : {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4"}) rowIs(2, addr);
  const auto atIndex = [this](const char* addr) {
    return text(IpMib::ArpTableIteratorConst(ipMib, ArpTableIndex(2, Vantu::IpAddr::fromString(addr))));
  };
  EXPECT_EQ(atIndex("10.0.0.3"), "2/10.0.0.3");
  EXPECT_EQ(atIndex("10.0.0.0"), "end") << "an exact search does not go on to the next row";
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
  at.fetch(ArpTableIndex(2, Vantu::IpAddr::fromString("10.0.0.1")), true);
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
