// The two SNMP value types: their orders as a manager sees them, and their text forms there and back.

#include <gmock/gmock.h>

#include <algorithm>
#include <vector>

#include "kel/Errors.h"
#include "snmp/ObjectIdentifier.h"
#include "snmp/String.h"

namespace {

using Snmp::ObjectIdentifier;

// The sub-identifiers that a string adds to an OID as an index that is not IMPLIED.
ObjectIdentifier asIndex(const Snmp::String& value) {
  ObjectIdentifier index{static_cast<std::uint32_t>(value.bytes())};
  for (const std::uint8_t byte : value.octets()) index.append(byte);
  return index;
}

TEST(SnmpString, sortsAsItsIndexSorts) {
  std::vector<Snmp::String> values = {"",
                                      "z",
                                      "aa",
                                      std::string_view("\x80\x01", 2),
                                      std::string_view("\x7f\xff", 2),
                                      "default",
                                      "red",
                                      std::string_view("\0", 1),
                                      "\xff",
                                      "re.d",
                                      "zzz"};
  std::sort(values.begin(), values.end());
  for (std::size_t i = 1; i < values.size(); ++i) {
    EXPECT_LT(asIndex(values[i - 1]), asIndex(values[i])) << values[i - 1] << " before " << values[i];
  }
  EXPECT_LT(Snmp::String("z"), Snmp::String("aa"));
  EXPECT_LT(Snmp::String(std::string_view("\x7f\xff", 2)), Snmp::String(std::string_view("\x80\x01", 2)));
}

TEST(SnmpString, textFormRoundTrips) {
  EXPECT_EQ(Snmp::String("vrf red/1.2").stringValue(), "vrf red/1.2");
  EXPECT_EQ(Snmp::String(std::string_view("\x0a\x01\0\xff", 4)).stringValue(), "0x0a0100ff");
  EXPECT_EQ(Snmp::String("0x41").stringValue(), "0x30783431");
  for (const Snmp::String& value : {Snmp::String(), Snmp::String("0x41"), Snmp::String("0x"), Snmp::String("a b"),
                                    Snmp::String(std::string_view("\0\n\xff", 3))}) {
    EXPECT_EQ(Snmp::String::fromString(value.stringValue()), value) << value;
  }
}

TEST(SnmpString, refusesWhatIsNoOctetString) {
  EXPECT_THROW(Snmp::String::fromString("0x4"), Kel::RangeException);
  EXPECT_THROW(Snmp::String::fromString("0xzz"), Kel::RangeException);
  EXPECT_NO_THROW(Snmp::String(std::string(Snmp::String::maxLength, 'x')));
  EXPECT_THROW(Snmp::String(std::string(Snmp::String::maxLength + 1, 'x')), Kel::RangeException);
}

TEST(ObjectIdentifier, ordersBySubIdentifierAndPrefixFirst) {
  EXPECT_LT((ObjectIdentifier{1, 3}), (ObjectIdentifier{1, 3, 0}));
  EXPECT_LT((ObjectIdentifier{1, 3, 9, 9}), (ObjectIdentifier{1, 3, 10}));
  EXPECT_LT((ObjectIdentifier{1, 0x7fffffff}), (ObjectIdentifier{1, 0x80000000}));
}

TEST(ObjectIdentifier, textFormRoundTrips) {
  const ObjectIdentifier value{1, 3, 6, 1, 4294967295U, 0};
  EXPECT_EQ(value.stringValue(), "1.3.6.1.4294967295.0");
  EXPECT_EQ(ObjectIdentifier::fromString(value.stringValue()), value);
  EXPECT_EQ(ObjectIdentifier::fromString(".1.3"), (ObjectIdentifier{1, 3}));
  EXPECT_TRUE(ObjectIdentifier::fromString("").empty());
}

TEST(ObjectIdentifier, refusesMalformedAndOverlong) {
  for (const char* text : {".", "1.", "1..3", "1.-3", "1.4294967296", "iso.3", "1.3 "}) {
    EXPECT_THROW(ObjectIdentifier::fromString(text), Kel::RangeException) << text;
  }
  ObjectIdentifier longest;
  for (std::size_t i = 0; i < ObjectIdentifier::maxLength; ++i) longest.append(1);
  EXPECT_THROW(longest.append(1), Kel::RangeException);
  EXPECT_THROW(ObjectIdentifier::fromString(longest.stringValue() + ".1"), Kel::RangeException);
}

}  // namespace
