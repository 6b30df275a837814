// What holds for every value type: each list of samples is in the order that an SNMP manager sees, and every sample
// survives its text form and serves as a key.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/unordered/unordered_flat_map.hpp>
#include <sstream>
#include <unordered_map>
#include <vector>

#include "kel/Errors.h"
#include "vantu/EthAddr.h"
#include "vantu/IntfId.h"
#include "vantu/Ip6Prefix.h"
#include "vantu/IpGenAddr.h"
#include "vantu/Prefix.h"
#include "vantu/RouteDistinguisher.h"
#include "vantu/ValueConcept.h"

namespace Vantu {
namespace {

struct Samples {
  std::vector<const char*> ascending;
  std::vector<std::string_view> malformed;
};

template <class T>
Samples samples();

template <>
Samples samples<IpAddr>() {
  using namespace std::string_view_literals;
  return {{"0.0.0.0", "0.0.0.1", "9.255.255.255", "10.0.0.0", "127.255.255.255", "128.0.0.0", "255.255.255.255"},
          {"", "10", "10.0.0", "10.0.0.0.1", "10.0.0.256", "10.0.0.-1", " 10.0.0.1", "10.0.0.1 ", "0x0a.0.0.1",
           "010.0.0.1", "::1", "10.0.0.1\0"sv, "10.0.0.1/8"}};
}

template <>
Samples samples<Ip6Addr>() {
  using namespace std::string_view_literals;
  return {{"::", "::1", "::ffff:10.0.0.1", "1::", "7fff::", "8000::", "fe80::1", "ff02::1"},
          {"", "1", ":::", "1::2::3", "12345::", "g::", "fe80::1%eth0", "10.0.0.1", "::1\0"sv, "::1/64"}};
}

template <>
Samples samples<IpGenAddr>() {
  return {{"", "0.0.0.0", "10.0.0.1", "255.255.255.255", "::", "::1", "fe80::1"}, {"red", "10.0.0.1:5", "10.0"}};
}

template <>
Samples samples<IpAddrWithMask>() {
  return {{"0.0.0.0/0", "0.0.0.0/1", "10.0.0.0/8", "10.0.0.0/24", "10.0.0.1/8", "200.0.0.1/0"},
          {"", "10.0.0.1", "10.0.0.1/", "/8", "10.0.0.1/33", "10.0.0.1/-1", "10.0.0.1/+8", "10.0.0.1/8 ",
           "10.0.0.1/99999999999", "10.0.0.1/8/8", "10.0.0/8", "::/0"}};
}

template <>
Samples samples<Ip6AddrWithMask>() {
  return {{"::/0", "::/128", "2001:db8::/32", "2001:db8::/64", "2001:db8::1/32", "fe80::1/10"},
          {"::", "::/129", "::/x", "10.0.0.1/8"}};
}

template <>
Samples samples<Prefix>() {
  return {{"0.0.0.0/0", "10.0.0.0/8", "10.0.0.0/24", "10.0.1.0/24", "192.0.2.1/32"}, {"", "10.0.0.0/33", "x/8"}};
}

template <>
Samples samples<Ip6Prefix>() {
  return {{"::/0", "2001:db8::/32", "2001:db8::/48", "2001:db8:1::/48", "ff02::1/128"}, {"", "::/129", "::"}};
}

template <>
Samples samples<IntfId>() {
  static const std::string longest(IntfId::maxLength, 'x');
  static const std::string tooLong(IntfId::maxLength + 1, 'x');
  return {{"", "Ethernet1", "Ethernet10", "Ethernet2", "red/eth0", longest.c_str(), "\x80", "\xff"}, {tooLong}};
}

template <>
Samples samples<EthAddr>() {
  return {{"00:00:00:00:00:00", "00:00:00:00:00:ff", "02:00:5e:10:00:01", "80:00:00:00:00:00"},
          {"", "02:00:5e:10:00", "02:00:5e:10:00:01:02", "2:0:5e:10:0:1", "02-00-5e-10-00-01", "02:00:5e:10:00:0g",
           "02:00:5e:10:00:-1", "+2:00:5e:10:00:01"}};
}

template <>
Samples samples<RouteDistinguisher>() {
  return {{"", "0:0", "1:4294967295", "65000:1", "65535:4294967295", "10.0.0.1:5", "10.0.0.1:65535", "0.100:7",
           "65536:0", "4200000000:7"},
          {":", "1", "1:", ":1", "1:4294967296", "65536:65536", "4294967296:1", "10.0.0.1:65536", "10.0.0:1",
           "10.0.0.256:1", "-1:1", "1:1:1", "1.65536:1", "1.:1", "a:b"}};
}

template <class T>
class ValueTypeTest : public testing::Test {};

using AllTypes = testing::Types<IpAddr, Ip6Addr, IpGenAddr, IpAddrWithMask, Ip6AddrWithMask, Prefix, Ip6Prefix,
                                IntfId, EthAddr, RouteDistinguisher>;
TYPED_TEST_SUITE(ValueTypeTest, AllTypes);

TYPED_TEST(ValueTypeTest, samplesAreOrderedAndDistinct) {
  const auto texts = samples<TypeParam>().ascending;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    for (std::size_t j = 0; j < texts.size(); ++j) {
      const auto a = TypeParam::fromString(texts[i]);
      const auto b = TypeParam::fromString(texts[j]);
      EXPECT_EQ(a <=> b, i <=> j) << texts[i] << " and " << texts[j];
      EXPECT_EQ(a == b, i == j) << texts[i] << " and " << texts[j];
    }
  }
  EXPECT_EQ(TypeParam(), TypeParam::fromString(texts.front()));
}

TYPED_TEST(ValueTypeTest, textFormsAreExactAndStreamed) {
  for (const auto* text : samples<TypeParam>().ascending) {
    const auto value = TypeParam::fromString(text);
    EXPECT_EQ(value.stringValue(), text);
    std::ostringstream out;
    out << value;
    EXPECT_EQ(out.str(), text);
  }
}

TYPED_TEST(ValueTypeTest, malformedTextIsRefusedAndNamed) {
  for (const auto text : samples<TypeParam>().malformed) {
    try {
      const auto value = TypeParam::fromString(text);
      ADD_FAILURE() << "'" << text << "' was taken for " << value;
    } catch (const Kel::RangeException& error) {
      const std::string_view report = error.what();
      const auto printable = text.substr(0, std::min<std::size_t>(32, text.find('\0')));
      EXPECT_NE(report.find(fmt::format("\"{}", printable)), std::string_view::npos) << report;
      EXPECT_NE(report.find("expected"), std::string_view::npos) << report;
    }
  }
}

TYPED_TEST(ValueTypeTest, servesAsKeyOfHashedContainers) {
  std::unordered_map<TypeParam, std::string> standard;
  boost::unordered_flat_map<TypeParam, std::string> flat;
  for (const auto* text : samples<TypeParam>().ascending) {
    standard[TypeParam::fromString(text)] = text;
    flat[TypeParam::fromString(text)] = text;
  }
  EXPECT_EQ(flat.size(), samples<TypeParam>().ascending.size());
  for (const auto* text : samples<TypeParam>().ascending) {
    EXPECT_EQ(standard.at(TypeParam::fromString(text)), text);
    EXPECT_EQ(flat.at(TypeParam::fromString(text)), text);
  }
}

}  // namespace
}  // namespace Vantu
