// The elementary conversions against net-snmp itself: what they write is what net-snmp takes, and what net-snmp
// holds is what they read.

#include "snmp/Conversions.h"

#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// Needs both.
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <sys/time.h>

#include <array>
#include <limits>
#include <memory>
#include <vector>

#include "kel/Errors.h"
#include "snmp/Varbind.h"

namespace {

struct FreeVarbind {
  void operator()(netsnmp_variable_list* variable) const { snmp_free_varbind(variable); }
};
using Varbind = std::unique_ptr<netsnmp_variable_list, FreeVarbind>;

// A variable that holds what `conversion` makes of `value`.
template <class Value, class Conversion>
Varbind varbind(unsigned int type, const Value& value, Conversion conversion) {
  std::array<unsigned char, 1024> buffer{};
  const int length = conversion(value, buffer.data(), static_cast<int>(buffer.size()));
  Varbind variable(static_cast<netsnmp_variable_list*>(calloc(1, sizeof(netsnmp_variable_list))));
  EXPECT_TRUE(Snmp::varbindValueIs(variable.get(), static_cast<unsigned char>(type), buffer.data(), length));
  return variable;
}

Varbind raw(unsigned char type, const void* bytes, std::size_t length) {
  Varbind variable(static_cast<netsnmp_variable_list*>(calloc(1, sizeof(netsnmp_variable_list))));
  snmp_set_var_typed_value(variable.get(), type, bytes, length);
  return variable;
}

TEST(Conversions, integersSurviveTheWayThroughNetSnmp) {
  for (const int value : {0, -1, 1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    const auto variable = varbind(ASN_INTEGER, value, S32ToAsnIntegerF);
    EXPECT_EQ(*variable->val.integer, value);
    EXPECT_EQ(AsnIntegerToS32(variable.get()), value);
  }
  for (const unsigned int value : {0U, 0x80000000U, 0xffffffffU}) {
    for (const unsigned int type : {ASN_UNSIGNED, ASN_COUNTER, ASN_TIMETICKS}) {
      EXPECT_EQ(AsnUnsignedToU32(varbind(type, value, U32ToAsnUnsignedF).get()), value);
    }
  }
}

TEST(Conversions, octetStringsAndAddresses) {
  const Kel::String bytes("a\0b", 3);
  const auto text = varbind(ASN_OCTET_STR, bytes, StringToAsnOctetStringF);
  EXPECT_EQ(AsnOctetStringToSnmpString(text.get(), 3), Snmp::String(bytes));
  EXPECT_EQ(AsnOctetStringToSnmpString(text.get(), 1), Snmp::String("a"));
  const auto empty = varbind(ASN_OCTET_STR, Snmp::String(), SnmpStringToAsnOctetStringF);
  EXPECT_EQ(AsnOctetStringToSnmpString(empty.get(), 0), Snmp::String());

  const auto address = Vantu::IpAddr::fromString("10.1.2.255");
  for (const unsigned int type : {ASN_IPADDRESS, ASN_OCTET_STR, ASN_PRIV_IMPLIED_OCTET_STR}) {
    const auto variable = varbind(type, address, VantuIpAddrToAsnOctetStringF);
    EXPECT_EQ(AsnIpAddressToVantuIpAddr(variable.get()), address);
    EXPECT_EQ(variable->val.string[3], 255);
  }
  const auto mac = Vantu::EthAddr::fromString("02:00:5e:10:00:ff");
  const auto macVariable = varbind(ASN_OCTET_STR, mac, VantuEthAddrToAsnOctetStringF);
  EXPECT_EQ(AsnOctetStringToSnmpString(macVariable.get(), 6).stringValue(), "0x02005e1000ff");
}

TEST(Conversions, objectIdentifiersAreWidenedForNetSnmp) {
  Snmp::ObjectIdentifier longest;
  for (unsigned i = 0; i < Snmp::ObjectIdentifier::maxLength; ++i) longest.append(0xffffff80U + i);
  for (const auto& value :
       {Snmp::ObjectIdentifier{}, Snmp::ObjectIdentifier{1, 3, 6, 1, 0xffffffffU, 0}, longest}) {
    const auto variable = varbind(ASN_OBJECT_ID, value, SnmpObjectIdentifierToAsnOidF);
    ASSERT_EQ(variable->val_len, value.size() * sizeof(oid));
    EXPECT_EQ(Snmp::objectIdentifier({variable->val.objid, value.size()}), value);
  }
  const std::array<unsigned char, 5> crooked{};
  Varbind variable = raw(ASN_INTEGER, nullptr, 0);
  EXPECT_FALSE(Snmp::varbindValueIs(variable.get(), ASN_OBJECT_ID, crooked.data(), 5));
  EXPECT_FALSE(Snmp::varbindValueIs(variable.get(), ASN_INTEGER, crooked.data(), 5));
  EXPECT_FALSE(Snmp::varbindValueIs(variable.get(), ASN_OCTET_STR, crooked.data(), -1));
  const std::vector<oid> tooWide = {1, 0x100000000UL};
  EXPECT_THROW(Snmp::objectIdentifier(tooWide), Kel::RangeException);
}

TEST(Conversions, numbersOfAnIndexHaveNoSign) {
  for (const long number : {0L, 0x7FFFFFFFL, 0x80000000L, 0xFFFFFFFFL}) {
    EXPECT_EQ(AsnIntegerToU32(raw(ASN_INTEGER, &number, sizeof(number)).get()), static_cast<unsigned>(number));
  }
  const Varbind variable = raw(ASN_INTEGER, nullptr, 0);
  EXPECT_THROW(AsnIntegerToU32(variable.get()), Kel::RangeException);
  const long negative = -1;
  EXPECT_THROW(AsnIntegerToU32(raw(ASN_INTEGER, &negative, sizeof(negative)).get()), Kel::RangeException);
  EXPECT_THROW(AsnIntegerToU32(raw(ASN_OCTET_STR, "abcd", 4).get()), Kel::RangeException);
}

TEST(Conversions, countersOf64BitsAndDurations) {
  for (const auto& [value, low] : {std::pair{0xFFFFFFFFULL, 0xFFFFFFFFU}, {0x100000002ULL, 2U}, {~0ULL, ~0U}}) {
    unsigned counter = 7;
    EXPECT_EQ(U64ToCounter32F(value, reinterpret_cast<unsigned char*>(&counter), 4), 4);
    EXPECT_EQ(counter, low);
    counter64 halves{};
    EXPECT_EQ(U64ToCounter64F(value, reinterpret_cast<unsigned char*>(&halves), 1024), int{sizeof(halves)});
    EXPECT_EQ(halves.high << 32 | halves.low, value);
    EXPECT_LT(U64ToCounter64F(value, reinterpret_cast<unsigned char*>(&halves), sizeof(halves) - 1), 0);
  }
  for (const auto& [seconds, ticks] : {std::pair{0.0, 0U}, {-1.0, 0U}, {12.349, 1234U}, {42949673.0, 4U}}) {
    unsigned value = 7;
    EXPECT_EQ(SecondsToTimeTicksF(seconds, reinterpret_cast<unsigned char*>(&value), 4), 4);
    EXPECT_EQ(value, ticks);
  }
}

TEST(Conversions, timesBecomeUpTime) {
  timeval start;
  gettimeofday(&start, nullptr);
  start.tv_sec -= 100;
  netsnmp_set_agent_starttime(&start);
  const auto ticks = [](Kel::Seconds time) {
    unsigned value = 1;
    EXPECT_EQ(NowSecondsToUptimeTimeTicksF(time, reinterpret_cast<unsigned char*>(&value), sizeof(value)), 4);
    return value;
  };
  const auto now = Kel::System::currentTime();
  EXPECT_NEAR(ticks(now), 10000, 50);
  EXPECT_NEAR(ticks(now - 40), 6000, 50);
  EXPECT_NEAR(ticks(now + 43000000), 4300010000.0 - 4294967296.0, 50) << "begins again after 2^32 ticks";
  EXPECT_EQ(ticks(now - 101), 0U) << "before the start";
  EXPECT_EQ(ticks(0), 0U);
  unsigned char small[3];
  EXPECT_LT(NowSecondsToUptimeTimeTicksF(now, small, sizeof(small)), 0);
}

TEST(Conversions, refuseAndWriteNothingWhenTheBufferIsTooSmall) {
  std::array<unsigned char, 8> buffer{};
  buffer.fill(0xee);
  const auto untouched = buffer;
  EXPECT_LT(S32ToAsnIntegerF(7, buffer.data(), 3), 0);
  EXPECT_LT(U32ToAsnUnsignedF(7, buffer.data(), 0), 0);
  EXPECT_LT(StringToAsnOctetStringF("123456789", buffer.data(), 8), 0);
  EXPECT_LT(VantuIpAddrToAsnOctetStringF(Vantu::IpAddr(1), buffer.data(), 3), 0);
  EXPECT_LT(VantuEthAddrToAsnOctetStringF(Vantu::EthAddr(), buffer.data(), 5), 0);
  EXPECT_LT(SnmpObjectIdentifierToAsnOidF({1, 3, 6}, buffer.data(), 8), 0);
  EXPECT_LT(S32ToAsnIntegerF(7, buffer.data(), -1), 0);
  EXPECT_EQ(buffer, untouched);
  EXPECT_EQ(StringToAsnOctetStringF("12345678", buffer.data(), 8), 8);
}

TEST(Conversions, badVariablesThrow) {
  const long tooLarge = 0x80000000L;
  EXPECT_THROW(AsnIntegerToS32(raw(ASN_INTEGER, &tooLarge, sizeof(tooLarge)).get()), Kel::RangeException);
  EXPECT_THROW(AsnIntegerToS32(raw(ASN_OCTET_STR, "abcd", 4).get()), Kel::RangeException);
  EXPECT_THROW(AsnIntegerToS32(raw(ASN_INTEGER, nullptr, 0).get()), Kel::RangeException);
  EXPECT_THROW(AsnUnsignedToU32(raw(ASN_INTEGER, &tooLarge, sizeof(tooLarge)).get()), Kel::RangeException);
  Varbind negative = raw(ASN_UNSIGNED, &tooLarge, sizeof(tooLarge));
  *negative->val.integer = -1;
  EXPECT_THROW(AsnUnsignedToU32(negative.get()), Kel::RangeException);
  EXPECT_THROW(AsnIpAddressToVantuIpAddr(raw(ASN_IPADDRESS, "abc", 3).get()), Kel::RangeException);
  EXPECT_THROW(AsnIpAddressToVantuIpAddr(raw(ASN_IPADDRESS, nullptr, 0).get()), Kel::RangeException);
  EXPECT_THROW(AsnOctetStringToSnmpString(raw(ASN_OCTET_STR, "abc", 3).get(), 4), Kel::RangeException);
  EXPECT_THROW(AsnOctetStringToSnmpString(raw(ASN_OCTET_STR, "abc", 3).get(), -1), Kel::RangeException);
}

}  // namespace
