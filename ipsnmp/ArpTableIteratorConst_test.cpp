// What a walk does beside finding rows, which modules/Tables_test.cpp shows for every index.

#include "ipsnmp/ArpTableIteratorConst.h"

#include <gmock/gmock.h>

#include "ipsnmp/testing/TestRoutes.h"
#include "quillo/testing/TestArpTable.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

struct ArpTableIterator : testing::Test {
  void rowIs(std::uint32_t ifIndex, const std::string& addr) {
    ipMib->ipNetToPhysicalTableIs(physicalIndex(ifIndex, addr), Vantu::IntfId("eth0"),
                                  Vantu::IpGenAddr::fromString(addr), Kel::makePtr<Arp::Table::TestStatus>(),
                                  Vrf::VrfIdMap::VrfId(3));
  }
  static IpNetToPhysicalTableIndex physicalIndex(std::uint32_t ifIndex, const std::string& addr) {
    return IpNetToPhysicalTableIndex(ifIndex, InetAddress::fromIpGenAddr(Vantu::IpGenAddr::fromString(addr)));
  }
  Ptr<IpMib> ipMib = Kel::makePtr<IpMib>("ipmib");
};

TEST_F(ArpTableIterator, tracesEachStepAndEachRowPassedOver) {
  for (const char* addr : {"10.0.0.1", "fe80::1", "fe80::2"}) rowIs(2, addr);
  rowIs(3, "10.0.0.1");
  EXPECT_FALSE(IpMib::ArpTableIteratorConst(ipMib, ArpTableIndex(2, ip("10.0.0.0"))).curEntry()) << "no exact one";
  IpMib::ArpTableIteratorConst at(ipMib);
  ipMib = nullptr;  // as when its VRF is removed
  TraceLines lines("ArpTableIteratorConst");
  at.fetch(ArpTableIndex(2, ip("10.0.0.1")), true);
  EXPECT_THAT(lines.take(), testing::ElementsAre(
                                "7 Index: Value('IpSnmp::ArpTableIndex', ** {'ifIndex': 2, 'ipAddr': '10.0.0.1'}) "
                                "getNext 1",
                                "7 Skipping ipv6 entry w/ index: " + Kel::print(physicalIndex(2, "fe80::1")),
                                "7 Skipping ipv6 entry w/ index: " + Kel::print(physicalIndex(2, "fe80::2")),
                                "7 Set new curEntry: " + Kel::print(ArpTableIndex(3, ip("10.0.0.1")))));
}

TEST_F(ArpTableIterator, anIpv4RowOfAnotherFamilysNeighbourAborts) {
  ipMib->ipNetToPhysicalTableIs(physicalIndex(2, "10.0.0.1"), Vantu::IntfId("eth0"),
                                Vantu::IpGenAddr::fromString("fe80::1"), nullptr, Vrf::VrfIdMap::VrfId(3));
  EXPECT_DEATH(IpMib::ArpTableIteratorConst{ipMib},
               "assertion failed: it->ipGenAddr\\(\\)\\.af\\(\\) == Vantu::ipv4_");
}

}  // namespace
}  // namespace IpSnmpTest
