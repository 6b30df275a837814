#include "ipsnmp/IpForwardMib.h"

#include <gtest/gtest.h>

#include "ipsnmp/ProtocolMap.h"
#include "ipsnmp/testing/TestRoutes.h"

namespace IpSnmpTest {
namespace {

TEST(IpForwardMib, onlyRoutesOfSomeTypesAreValid) {
  const auto mib = Kel::makePtr<IpSnmp::IpForwardMib>("ipforwardmib");
  EXPECT_FALSE(mib->validRoute(Quillo::Fib::Route()));
  for (unsigned type = 0; type < 256; ++type) {
    const bool isRejected = type == 0 || type == 1 || type == 3 || type == 5;
    EXPECT_EQ(mib->validRoute(RouteTables::route(prefixOf("10.0.0.0/8"), 1, type)), !isRejected) << type;
  }
}

TEST(IpForwardMib, rowsPrintAndSortAsTheTable) {
  const auto& table = IpSnmp::IpForwardMib::kelStaticTypeInfo().attributes().back();
  EXPECT_EQ(table.name, "ipCidrRouteTable");
  EXPECT_EQ(table.typeName, "IpSnmp::IpCidrRouteTableEntry");
  const auto index = indexOf("10.0.0.0", "255.255.255.0", "10.1.1.1");
  EXPECT_EQ(Kel::print(index),
            "Value('IpSnmp::IpCidrRouteTableIndex', ** {'dest': '10.0.0.0', 'mask': '255.255.255.0', 'tos': 0, "
            "'nextHop': '10.1.1.1'})");
  const IpCidrRouteTableEntry entry(index, 3, Routing::RouteMetric(10), Routing::RoutePreference(1),
                                    Routing::Fib::RouteType(7), 4);
  EXPECT_EQ(Kel::print(entry),
            "Value('IpSnmp::IpCidrRouteTableEntry', ** {'index': " + Kel::print(index) +
                ", 'ifIndex': 3, 'metric': Value('Routing::RouteMetric', ** {'value': 10}), 'preference': "
                "Value('Routing::RoutePreference', ** {'value': 1}), 'protocol': "
                "Value('Routing::Fib::RouteType', ** {'value': 7}), 'type': 4})");
  EXPECT_LT(indexOf("10.0.0.0", "255.255.255.0", "255.0.0.0", 0x7FFFFFFF),
            indexOf("10.0.0.0", "255.255.255.0", "1.0.0.0", 0x80000000));
  EXPECT_LT(indexOf("10.0.0.0", "255.0.0.0", "9.9.9.9", 5), indexOf("10.0.0.0", "255.255.0.0", "1.1.1.1", 0));
}

TEST(ProtocolMap, fillingIsIdempotentAndTheRestIsOther) {
  IpSnmp::ProtocolMap map;
  const auto of = [&](std::uint8_t type) { return map.protocol(Routing::Fib::RouteType(type)); };
  EXPECT_EQ(of(11), IpSnmp::ipRouteProtocolOther);
  IpSnmp::fillProtocolMap(map);
  const auto once = map;
  IpSnmp::fillProtocolMap(map);
  EXPECT_EQ(map, once);
  EXPECT_EQ(map.protocol().size(), 12u);
  const std::map<unsigned, IpSnmp::IpRouteProtocol> expected = {
      {7, IpSnmp::ipRouteProtocolNetmgmt}, {10, IpSnmp::ipRouteProtocolRip},  {11, IpSnmp::ipRouteProtocolLocal},
      {15, IpSnmp::ipRouteProtocolOspf},   {20, IpSnmp::ipRouteProtocolOspf}, {21, IpSnmp::ipRouteProtocolBgp},
      {23, IpSnmp::ipRouteProtocolBgp},    {2, IpSnmp::ipRouteProtocolOther}, {14, IpSnmp::ipRouteProtocolOther},
      {24, IpSnmp::ipRouteProtocolOther}};
  for (const auto& [type, protocol] : expected) EXPECT_EQ(of(static_cast<std::uint8_t>(type)), protocol) << type;
  map.protocolIs(Routing::Fib::RouteType(7), IpSnmp::IpRouteProtocol{});
  EXPECT_EQ(of(7), IpSnmp::ipRouteProtocolOther);
  EXPECT_NE(map, once);
}

}  // namespace
}  // namespace IpSnmpTest
