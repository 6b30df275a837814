// What modules/Tables_test.cpp does not show: buffers that are too small, traces, and values that no table has.

#include "conversions/SnmpConversions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <array>

#include "ipsnmp/ProtocolMap.h"
#include "ipsnmp/testing/TestRoutes.h"
#include "kel/Errors.h"

namespace {

TEST(SnmpConversions, aValueThatDoesNotFitIsNotWritten) {
  std::array<unsigned char, 72> buffer{};
  const auto untouched = buffer;
  for (const int length : {
           IpRoutingToAsnInteger(true, buffer.data(), 3),
           ArpEntryStaticToAsnInteger({}, buffer.data(), 3),
           RouteTypeToAsnInteger(Routing::Fib::RouteType(22), buffer.data(), 3),
           RouteMetricToAsnInteger(Routing::RouteMetric(1), buffer.data(), 3),
           VrfStateToAsnInteger(Ip::vrfStateActive, buffer.data(), 3),
           PhysicalStateToAsnInteger(Ip::ipVersion6, buffer.data(), 3),
           RouteDistinguisherToAsnOctetString(Vantu::RouteDistinguisher::fromString("65000:1"), buffer.data(), 6),
       }) {
    EXPECT_EQ(length, -1);
  }
  const auto prefix = Kel::makePtr<IpSnmp::IpAddressPrefixEntry>(
      IpSnmp::IpAddressPrefixKey(5, Ip::ipVersion4, Snmp::String("abcd"), 16));
  EXPECT_EQ(IpAddressPrefixEntryToAsnOid(prefix, buffer.data(), 71), 0) << "empty rather than failed";
  EXPECT_EQ(buffer, untouched);
  EXPECT_EQ(IpAddressPrefixEntryToAsnOid(prefix, buffer.data(), 72), 72);
  const auto longPrefix = Kel::makePtr<IpSnmp::IpAddressPrefixEntry>(
      IpSnmp::IpAddressPrefixKey(5, Ip::ipVersion4, Snmp::String(std::string(120, 'a')), 16));
  EXPECT_EQ(IpAddressPrefixEntryToAsnOid(longPrefix, buffer.data(), 72), 0);
}

TEST(SnmpConversions, nexthopGroupTypesAreTheirNumbers) {
  using Type = Routing::NexthopGroup::NexthopGroupType;
  int number = 0;
  auto* const buffer = reinterpret_cast<unsigned char*>(&number);
  for (int type = 0; type <= 5; ++type) {
    EXPECT_EQ(NhgTypeToAsnInteger(static_cast<Type>(type), buffer, 4), 4);
    EXPECT_EQ(number, type);
  }
  EXPECT_DEATH(NhgTypeToAsnInteger(static_cast<Type>(6), buffer, 4),
               "SnmpConversions: int NhgTypeToAsnInteger.*: assertion failed: !\"NhgType bad value\"");
}

TEST(SnmpConversions, protocolsAreTraced) {
  IpSnmp::fillProtocolMap(IpSnmp::protocolMap());
  IpSnmpTest::TraceLines lines("SnmpConversions");
  std::array<unsigned char, 4> buffer{};
  for (const auto type : {std::uint8_t{22}, std::uint8_t{4}}) {
    RouteTypeToAsnInteger(Routing::Fib::RouteType(type), buffer.data(), 4);
  }
  EXPECT_THAT(lines.take(), testing::ElementsAre("2 protoMap converted 22 to ipRouteProtocolBgp",
                                                 "2 protoMap converted 4 to ipRouteProtocolOther"));
}

TEST(SnmpConversions, ipVersionsAreReadFromIntegersAlone) {
  netsnmp_variable_list variable{};
  const long number = 77;
  snmp_set_var_typed_value(&variable, ASN_INTEGER, &number, sizeof(number));
  EXPECT_EQ(static_cast<int>(AsnIntegerToIpVersion(&variable)), number);
  variable.type = ASN_UNSIGNED;
  EXPECT_THROW(AsnIntegerToIpVersion(&variable), Kel::RangeException);
}

}  // namespace
