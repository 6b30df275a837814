#include "conversions/SnmpConversions.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "ipsnmp/ProtocolMap.h"
#include "kel/Errors.h"
#include "kel/Trace.h"
#include "snmp/Varbind.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What a conversion writes into a buffer of `size` bytes. Nothing behind it is touched.
template <class Value>
std::vector<unsigned char> written(int (*convert)(Value, unsigned char*, int), std::type_identity_t<Value> value,
                                   int size = 1024) {
  std::vector<unsigned char> buffer(2048, 0xA5);
  const auto end = buffer.begin() + std::max(convert(value, buffer.data(), size), 0);
  EXPECT_EQ(std::count(end, buffer.end(), 0xA5), buffer.end() - end);
  return {buffer.begin(), end};
}

template <class Value>
int integer(int (*convert)(Value, unsigned char*, int), std::type_identity_t<Value> value) {
  EXPECT_THAT(written(convert, value, 3), IsEmpty()) << "four bytes do not fit three";
  const auto bytes = written(convert, value, 4);
  EXPECT_EQ(bytes.size(), sizeof(int));
  int number = 0;
  std::memcpy(&number, bytes.data(), bytes.size());
  return number;
}

// The identifier as a manager would see it.
Kel::String identifier(const std::vector<unsigned char>& bytes) {
  netsnmp_variable_list variable{};
  EXPECT_TRUE(Snmp::setVarbindValue(&variable, ASN_OBJECT_ID, bytes.data(), static_cast<int>(bytes.size())));
  const std::span words(variable.val.objid, variable.val_len / sizeof(oid));
  const auto result = fmt::format("{}", fmt::join(words, "."));
  snmp_free_var_internals(&variable);
  return result;
}

TEST(SnmpConversions, flagsAndStatesMapToTheNumbersOfTheirMibs) {
  EXPECT_EQ(integer(IpRoutingToAsnInteger, true), 1);
  EXPECT_EQ(integer(IpRoutingToAsnInteger, false), 2);
  EXPECT_EQ(integer(ArpEntryStaticToAsnInteger, {.isStatic = true}), 4);
  EXPECT_EQ(integer(ArpEntryStaticToAsnInteger, {.isStatic = false}), 3);
  EXPECT_EQ(integer(RouteMetricToAsnInteger, Routing::RouteMetric(4242)), 4242);
  EXPECT_EQ(integer(VrfStateToAsnInteger, Ip::vrfStateActive), 1);
  for (const auto state : {Ip::vrfStateUnknown, Ip::vrfStateInactive, Ip::vrfStateDeleting}) {
    EXPECT_EQ(integer(VrfStateToAsnInteger, state), 2);
  }
  EXPECT_EQ(integer(PhysicalStateToAsnInteger, Ip::ipVersion6), 1);
  for (const auto version : {Ip::ipVersion4, Ip::ipVersionUnknown}) {
    EXPECT_EQ(integer(PhysicalStateToAsnInteger, version), 6);
  }
  using Type = Routing::NexthopGroup::NexthopGroupType;
  for (int number = 0; number <= 5; ++number) {
    EXPECT_EQ(integer(NhgTypeToAsnInteger, static_cast<Type>(number)), number);
  }
  EXPECT_DEATH(integer(NhgTypeToAsnInteger, static_cast<Type>(6)),
               "SnmpConversions: int NhgTypeToAsnInteger.*: assertion failed: !\"NhgType bad value\"");
}

TEST(SnmpConversions, protocolComesFromTheProcessesMap) {
  const auto proto = [](std::uint8_t type) {
    return integer(RouteTypeToAsnInteger, Routing::Fib::RouteType(type));
  };
  EXPECT_EQ(proto(22), 1);
  IpSnmp::fillProtocolMap(IpSnmp::protocolMap());
  std::vector<std::string> lines;
  Kel::TraceConfig::setLevels("SnmpConversions/0-9");
  const auto previous = Kel::TraceConfig::setSink(
      [&](const Kel::TraceHandle&, unsigned, const std::string& text) { lines.push_back(text); });
  EXPECT_EQ(proto(22), 14);
  EXPECT_EQ(proto(4), 1);
  Kel::TraceConfig::setSink(previous);
  Kel::TraceConfig::reset();
  EXPECT_THAT(lines, testing::IsSupersetOf({"protoMap converted 22 to ipRouteProtocolBgp",
                                            "protoMap converted 4 to ipRouteProtocolOther"}));
  IpSnmp::protocolMap().protocolDelAll();
}

TEST(SnmpConversions, routeDistinguisherIsItsText) {
  const auto distinguisher = Vantu::RouteDistinguisher::fromString("65000:1");
  EXPECT_THAT(written(RouteDistinguisherToAsnOctetString, distinguisher, 7),
              ElementsAre('6', '5', '0', '0', '0', ':', '1'));
  EXPECT_THAT(written(RouteDistinguisherToAsnOctetString, distinguisher, 6), IsEmpty());
  EXPECT_THAT(written(RouteDistinguisherToAsnOctetString, Vantu::RouteDistinguisher()), IsEmpty());
}

TEST(SnmpConversions, prefixEntryBecomesARowPointer) {
  const auto prefix = [](std::uint32_t ifIndex, std::string_view bytes, std::uint32_t length) {
    return Kel::makePtr<IpSnmp::IpAddressPrefixEntry>(
        IpSnmp::IpAddressPrefixKey(ifIndex, Ip::ipVersion4, Snmp::String(bytes), length));
  };
  const auto v4 = prefix(5, std::string_view("\x0a\x01\0\0", 4), 16);
  EXPECT_EQ(identifier(written(IpAddressPrefixEntryToAsnOid, v4, 72)), "1.3.6.1.2.1.4.32.1.5.5.1.4.10.1.0.0.16");
  EXPECT_EQ(identifier(written(IpAddressPrefixEntryToAsnOid, prefix(7, "", 0))), "1.3.6.1.2.1.4.32.1.5.7.1.0.0");
  EXPECT_EQ(identifier(written(IpAddressPrefixEntryToAsnOid, nullptr)), "0.0");
  std::array<unsigned char, 71> small{};
  EXPECT_EQ(IpAddressPrefixEntryToAsnOid(v4, small.data(), 71), 0) << "empty rather than failed";
}

TEST(SnmpConversions, ipVersionIsReadFromAnInteger) {
  netsnmp_variable_list variable{};
  for (const long number : {1, 2, 77}) {
    snmp_set_var_typed_value(&variable, ASN_INTEGER, &number, sizeof(number));
    EXPECT_EQ(static_cast<int>(AsnIntegerToIpVersion(&variable)), number);
  }
  variable.type = ASN_UNSIGNED;
  EXPECT_THROW(AsnIntegerToIpVersion(&variable), Kel::RangeException);
}

}  // namespace
