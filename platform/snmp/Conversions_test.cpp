// The SNMP value types, and the elementary conversions against net-snmp itself: what they write is what net-snmp takes,
// and what net-snmp holds is what they read.

#include "snmp/Conversions.h"

#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// Needs both.
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <span>
#include <vector>

#include "kel/Errors.h"
#include "snmp/Varbind.h"

namespace {

using Snmp::ObjectIdentifier;
using namespace std::string_view_literals;

TEST(SnmpString, sortsAsItsIndexSortsAndSurvivesItsTextForm) {
  std::vector<Snmp::String> values = {"",     "z",    "aa",         "\x80\x01"sv, "\x7f\xff"sv, "default",
                                      "\0"sv, "0x41", "\0\n\xff"sv, "\xff",       "re.d",       "0x"};
  std::ranges::sort(values);
  ObjectIdentifier previous;
  for (const auto& value : values) {
    // What the string adds to an OID as an index that is not IMPLIED.
    ObjectIdentifier index{static_cast<std::uint32_t>(value.bytes())};
    for (const std::uint8_t byte : value.octets()) index.append(byte);
    EXPECT_LT(previous, index) << value;
    previous = index;
    EXPECT_EQ(Snmp::String::fromString(value.stringValue()), value) << value;
  }
  EXPECT_EQ(Snmp::String("vrf red/1.2").stringValue(), "vrf red/1.2");
  EXPECT_EQ(Snmp::String("\x0a\x01\0\xff"sv).stringValue(), "0x0a0100ff");
  for (const auto* text : {"0x4", "0xzz"}) EXPECT_THROW(Snmp::String::fromString(text), Kel::RangeException);
  EXPECT_NO_THROW(Snmp::String(std::string(Snmp::String::maxLength, 'x')));
  EXPECT_THROW(Snmp::String(std::string(Snmp::String::maxLength + 1, 'x')), Kel::RangeException);
}

TEST(ObjectIdentifier, survivesItsTextFormAndRefusesWhatIsNone) {
  const ObjectIdentifier value{1, 3, 6, 1, 4294967295U, 0};
  EXPECT_EQ(value.stringValue(), "1.3.6.1.4294967295.0");
  EXPECT_EQ(ObjectIdentifier::fromString(".1.3.6.1.4294967295.0"), value);
  EXPECT_TRUE(ObjectIdentifier::fromString("").empty());
  EXPECT_LT((ObjectIdentifier{1, 0x7fffffff}), (ObjectIdentifier{1, 0x80000000}));
  for (const char* text : {".", "1.", "1..3", "1.-3", "1.4294967296", "iso.3", "1.3 ", "1.3x4"}) {
    EXPECT_THROW(ObjectIdentifier::fromString(text), Kel::RangeException) << text;
  }
  ObjectIdentifier longest;
  for (std::size_t i = 0; i < ObjectIdentifier::maxLength; ++i) longest.append(1);
  EXPECT_THROW(longest.append(1), Kel::RangeException);
  EXPECT_THROW(ObjectIdentifier::fromString(longest.stringValue() + ".1"), Kel::RangeException);
}

struct FreeVarbind {
  void operator()(netsnmp_variable_list* variable) const { snmp_free_varbind(variable); }
};
using Varbind = std::unique_ptr<netsnmp_variable_list, FreeVarbind>;

Varbind raw(unsigned char type, const void* bytes, std::size_t length) {
  Varbind variable(static_cast<netsnmp_variable_list*>(calloc(1, sizeof(netsnmp_variable_list))));
  snmp_set_var_typed_value(variable.get(), type, bytes, length);
  return variable;
}

// A variable that holds what `conversion` makes of `value`. Into a buffer that is too small it writes nothing.
template <class Value, class Conversion>
Varbind varbind(unsigned int type, const Value& value, Conversion conversion) {
  std::array<unsigned char, 1024> buffer{};
  const auto untouched = buffer;
  const int length = conversion(value, std::array<unsigned char, 1024>().data(), static_cast<int>(buffer.size()));
  EXPECT_LT(conversion(value, buffer.data(), length - 1), 0);
  EXPECT_EQ(buffer, untouched);
  EXPECT_EQ(conversion(value, buffer.data(), length), length);
  Varbind variable = raw(ASN_NULL, nullptr, 0);
  EXPECT_TRUE(Snmp::setVarbindValue(variable.get(), static_cast<unsigned char>(type), buffer.data(), length));
  return variable;
}

TEST(Conversions, valuesSurviveTheWayThroughNetSnmp) {
  for (const int value : {0, -1, 1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    EXPECT_EQ(AsnIntegerToS32(varbind(ASN_INTEGER, value, S32ToAsnIntegerF).get()), value);
  }
  for (const unsigned int value : {0U, 0x80000000U, 0xffffffffU}) {
    for (const unsigned int type : {ASN_UNSIGNED, ASN_COUNTER, ASN_TIMETICKS}) {
      EXPECT_EQ(AsnUnsignedToU32(varbind(type, value, U32ToAsnUnsignedF).get()), value);
    }
    const long number = value;
    EXPECT_EQ(AsnIntegerToU32(raw(ASN_INTEGER, &number, sizeof(number)).get()), value);
  }
  const Kel::String bytes("a\0b", 3);
  const auto text = varbind(ASN_OCTET_STR, bytes, StringToAsnOctetStringF);
  EXPECT_EQ(AsnOctetStringToSnmpString(text.get(), 3), Snmp::String(bytes));
  EXPECT_EQ(AsnOctetStringToSnmpString(text.get(), 1), Snmp::String("a"));
  const auto empty = varbind(ASN_OCTET_STR, Snmp::String(), SnmpStringToAsnOctetStringF);
  EXPECT_EQ(AsnOctetStringToSnmpString(empty.get(), 0), Snmp::String());
  const auto address = Vantu::IpAddr::fromString("10.1.2.255");
  for (const unsigned int type : {ASN_IPADDRESS, ASN_OCTET_STR, ASN_PRIV_IMPLIED_OCTET_STR}) {
    EXPECT_EQ(AsnIpAddressToVantuIpAddr(varbind(type, address, VantuIpAddrToAsnOctetStringF).get()), address);
  }
  const auto mac = Vantu::EthAddr::fromString("02:00:5e:10:00:ff");
  const auto macVariable = varbind(ASN_OCTET_STR, mac, VantuEthAddrToAsnOctetStringF);
  EXPECT_EQ(AsnOctetStringToSnmpString(macVariable.get(), 6).stringValue(), "0x02005e1000ff");
  ObjectIdentifier longest;
  for (unsigned i = 0; i < ObjectIdentifier::maxLength; ++i) longest.append(0xffffff80U + i);
  for (const auto& value : {ObjectIdentifier{}, ObjectIdentifier{1, 3, 0xffffffffU, 0}, longest}) {
    const auto variable = varbind(ASN_OBJECT_ID, value, SnmpObjectIdentifierToAsnOidF);
    EXPECT_TRUE(std::ranges::equal(std::span(variable->val.objid, variable->val_len / sizeof(oid)), value));
  }
  for (const auto& [value, low] : {std::pair{0xFFFFFFFFULL, 0xFFFFFFFFU}, {0x100000002ULL, 2U}, {~0ULL, ~0U}}) {
    EXPECT_EQ(AsnUnsignedToU32(varbind(ASN_COUNTER, value, U64ToCounter32F).get()), low);
    const auto counter = varbind(ASN_COUNTER64, value, U64ToCounter64F);
    EXPECT_EQ(counter->val.counter64->high << 32 | counter->val.counter64->low, value);
  }
}

TEST(Conversions, whatDoesNotFitIsRefused) {
  const std::array<unsigned char, 5> crooked{};
  const Varbind variable = raw(ASN_INTEGER, nullptr, 0);
  EXPECT_FALSE(Snmp::setVarbindValue(variable.get(), ASN_OBJECT_ID, crooked.data(), 5));
  EXPECT_FALSE(Snmp::setVarbindValue(variable.get(), ASN_INTEGER, crooked.data(), 5));
  EXPECT_FALSE(Snmp::setVarbindValue(variable.get(), ASN_OCTET_STR, crooked.data(), -1));
  for (const long number : {0x80000000L, -0x80000001L}) {
    EXPECT_THROW(AsnIntegerToS32(raw(ASN_INTEGER, &number, sizeof(number)).get()), Kel::RangeException);
  }
  const long negative = -1;
  EXPECT_THROW(AsnIntegerToU32(raw(ASN_INTEGER, &negative, sizeof(negative)).get()), Kel::RangeException);
  const Varbind negativeUnsigned = raw(ASN_UNSIGNED, &negative, sizeof(negative));
  *negativeUnsigned->val.integer = -1;
  EXPECT_THROW(AsnUnsignedToU32(negativeUnsigned.get()), Kel::RangeException);
  EXPECT_THROW(AsnUnsignedToU32(raw(ASN_INTEGER, "abcdefgh", 8).get()), Kel::RangeException);
  const Varbind texts[] = {raw(ASN_OCTET_STR, "abcd", 4), raw(ASN_INTEGER, nullptr, 0)};
  for (const auto& wrong : texts) {
    EXPECT_THROW(AsnIntegerToS32(wrong.get()), Kel::RangeException);
    EXPECT_THROW(AsnIntegerToU32(wrong.get()), Kel::RangeException);
    EXPECT_THROW(AsnOctetStringToSnmpString(wrong.get(), 5), Kel::RangeException);
    EXPECT_THROW(AsnOctetStringToSnmpString(wrong.get(), -1), Kel::RangeException);
  }
  EXPECT_THROW(AsnIpAddressToVantuIpAddr(raw(ASN_IPADDRESS, "abc", 3).get()), Kel::RangeException);
  EXPECT_THROW(AsnIpAddressToVantuIpAddr(raw(ASN_IPADDRESS, nullptr, 0).get()), Kel::RangeException);
}

TEST(Conversions, timesBecomeTicksAndUpTime) {
  const auto ticks = [](auto conversion, Kel::Seconds time) {
    return AsnUnsignedToU32(varbind(ASN_TIMETICKS, time, conversion).get());
  };
  for (const auto& [seconds, expected] : {std::pair{0.0, 0U}, {-1.0, 0U}, {12.349, 1234U}, {42949673.0, 4U}}) {
    EXPECT_EQ(ticks(SecondsToTimeTicksF, seconds), expected);
  }
  timeval start;
  gettimeofday(&start, nullptr);
  start.tv_sec -= 100;
  netsnmp_set_agent_starttime(&start);
  const auto now = Kel::System::currentTime();
  std::array<unsigned char, 11> date{};
  EXPECT_EQ(UtcSecondsToDateAndTimeF(1795368106.35, date.data(), date.size()), 11);
  EXPECT_EQ(date, (std::array<unsigned char, 11>{0x07, 0xea, 11, 22, 17, 21, 46, 3, '+', 0, 0}));
  EXPECT_EQ(UtcSecondsToDateAndTimeF(1795368106.35, date.data(), 10), -1);
  EXPECT_EQ(UtcSecondsToDateAndTimeF(0, date.data(), 8), 8);
  EXPECT_NEAR(ticks(NowSecondsToUptimeTimeTicksF, now), 10000, 50);
  EXPECT_NEAR(ticks(UtcSecondsToUptimeTimeTicks, now - 40), 6000, 50);
  EXPECT_NEAR(ticks(NowSecondsToUptimeTimeTicksF, now + 43000000), 4300010000.0 - 4294967296.0, 50) << "mod 2^32";
  for (const auto before : {now - 101, 0.0}) EXPECT_EQ(ticks(NowSecondsToUptimeTimeTicksF, before), 0U);
  const auto ticksOfSomeTimes = [&] {
    std::vector<unsigned> all;
    for (int ms = 0; ms < 10; ++ms) all.push_back(ticks(NowSecondsToUptimeTimeTicksF, now + ms / 1000.0));
    return all;
  };
  const auto first = ticksOfSomeTimes();
  while (Kel::System::currentTime() < now + 0.1)
    ASSERT_EQ(ticksOfSomeTimes(), first) << "whenever they are asked for";
}

}  // namespace
