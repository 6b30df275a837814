// What holds for every value type, and what is particular to one.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <boost/unordered/unordered_flat_map.hpp>
#include <span>
#include <vector>

#include "kel/Errors.h"
#include "vantu/EthAddr.h"
#include "vantu/IntfId.h"
#include "vantu/IpAddr.h"
#include "vantu/Prefix.h"
#include "vantu/RouteDistinguisher.h"
#include "vantu/ValueConcept.h"

namespace Vantu {
namespace {

using namespace std::string_literals;

// `ascending` is in the order that an SNMP manager sees; each of them is a key and survives its text form. What is
// malformed is refused and named.
template <class T>
void expectTexts(const std::vector<std::string>& ascending, const std::vector<std::string>& malformed) {
  boost::unordered_flat_map<T, std::size_t> places;
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    const auto a = T::fromString(ascending[i]);
    EXPECT_EQ(testing::PrintToString(a), ascending[i]);
    places[a] = i;
    for (std::size_t j = 0; j < ascending.size(); ++j) {
      const auto b = T::fromString(ascending[j]);
      EXPECT_EQ(a <=> b, i <=> j) << a << " and " << b;
      EXPECT_EQ(a == b, i == j) << a << " and " << b;
      EXPECT_EQ(places.contains(b), j <= i) << a << " and " << b;
    }
  }
  EXPECT_EQ(T(), T::fromString(ascending.front()));
  for (const auto& text : malformed) {
    try {
      const auto value = T::fromString(text);
      ADD_FAILURE() << "'" << text << "' was taken for " << value;
    } catch (const Kel::RangeException& error) {
      const auto printable = text.substr(0, std::min<std::size_t>(32, text.find('\0')));
      EXPECT_THAT(error.what(),
                  testing::AllOf(testing::HasSubstr("\"" + printable), testing::HasSubstr("expected")));
    }
  }
}

TEST(ValueTypes, areOrderedKeysWithExactTexts) {
  expectTexts<IpAddr>(
      {"0.0.0.0", "0.0.0.1", "9.255.255.255", "10.0.0.0", "127.255.255.255", "128.0.0.0", "255.255.255.255"},
      {"", "10", "10.0.0", "10.0.0.0.1", "10.0.0.256", "10.0.0.-1", " 10.0.0.1", "10.0.0.1 ", "0x0a.0.0.1",
       "010.0.0.1", "::1", "10.0.0.1\0"s, "10.0.0.1/8"});
  expectTexts<Ip6Addr>(
      {"::", "::1", "::ffff:10.0.0.1", "1::", "7fff::", "8000::", "fe80::1", "ff02::1"},
      {"", "1", ":::", "1::2::3", "12345::", "g::", "fe80::1%eth0", "10.0.0.1", "::1\0"s, "::1/64"});
  expectTexts<IpGenAddr>({"", "0.0.0.0", "10.0.0.1", "255.255.255.255", "::", "::1", "fe80::1"},
                         {"red", "10.0.0.1:5", "10.0"});
  expectTexts<IpAddrWithMask>({"0.0.0.0/0", "0.0.0.0/1", "10.0.0.0/8", "10.0.0.0/24", "10.0.0.1/8", "200.0.0.1/0"},
                              {"", "10.0.0.1", "10.0.0.1/", "/8", "10.0.0.1/33", "10.0.0.1/-1", "10.0.0.1/+8",
                               "10.0.0.1/8 ", "10.0.0.1/99999999999", "10.0.0.1/8/8", "10.0.0/8", "::/0"});
  expectTexts<Ip6AddrWithMask>({"::/0", "::/128", "2001:db8::/32", "2001:db8::/64", "2001:db8::1/32", "fe80::1/10"},
                               {"::", "::/129", "::/x", "10.0.0.1/8"});
  expectTexts<Prefix>({"0.0.0.0/0", "10.0.0.0/8", "10.0.0.0/24", "10.0.1.0/24", "192.0.2.1/32"},
                      {"", "10.0.0.0/33", "x/8"});
  expectTexts<Ip6Prefix>({"::/0", "2001:db8::/32", "2001:db8::/48", "2001:db8:1::/48", "ff02::1/128"},
                         {"", "::/129", "::"});
  expectTexts<IntfId>(
      {"", "Ethernet1", "Ethernet10", "Ethernet2", "red/eth0", std::string(IntfId::maxLength, 'x'), "\x80", "\xff"},
      {std::string(IntfId::maxLength + 1, 'x')});
  expectTexts<EthAddr>({"00:00:00:00:00:00", "00:00:00:00:00:ff", "02:00:5e:10:00:01", "80:00:00:00:00:00"},
                       {"", "02:00:5e:10:00", "02:00:5e:10:00:01:02", "2:0:5e:10:0:1", "02-00-5e-10-00-01",
                        "02:00:5e:10:00:0g", "02:00:5e:10:00:-1", "+2:00:5e:10:00:01"});
  expectTexts<RouteDistinguisher>(
      {"", "0:0", "1:4294967295", "65000:1", "65535:4294967295", "10.0.0.1:5", "10.0.0.1:65535", "0.100:7",
       "65536:0", "4200000000:7"},
      {":", "1", "1:", ":1", "1:4294967296", "65536:65536", "4294967296:1", "10.0.0.1:65536", "10.0.0:1",
       "10.0.0.256:1", "-1:1", "1:1:1", "1.65536:1", "1.:1", "a:b"});
}

template <class Address>
void expectMasks(const Address& sample) {
  const auto isSet = [](const Address& address, unsigned bit) {
    return (address.bytes()[bit / 8] >> (7 - bit % 8) & 1) != 0;
  };
  for (unsigned length = 0; length <= Address::bits; ++length) {
    for (unsigned bit = 0; bit < Address::bits; ++bit) {
      ASSERT_EQ(isSet(Address::netmask(length), bit), bit < length) << length;
      ASSERT_EQ(isSet(sample.mask(length), bit), bit < length && isSet(sample, bit)) << length;
    }
  }
  EXPECT_THROW(Address::netmask(Address::bits + 1), Kel::RangeException);
  EXPECT_THROW(sample.mask(Address::bits + 1), Kel::RangeException);
}

TEST(Addresses, masksKeepTheMostSignificantBits) {
  expectMasks(IpAddr(0xA5C3960F));
  expectMasks(Ip6Addr::fromString("a5c3:960f:1234:8765:dead:beef:7fff:8001"));
}

template <class T>
void expectBytes(const char* text, const decltype(T().bytes())& bytes) {
  const auto value = T::fromString(text);
  EXPECT_EQ(value.bytes(), bytes) << text;
  EXPECT_EQ(T::fromBytes(value.bytes()), value) << text;
  EXPECT_THROW(T::fromBytes(std::span(bytes).first(3)), Kel::RangeException);
}

TEST(Addresses, bytesAreInNetworkOrderAndComeBack) {
  expectBytes<IpAddr>("10.1.2.3", {10, 1, 2, 3});
  EXPECT_EQ(IpAddr::fromString("10.1.2.3").value(), 0x0A010203U);
  expectBytes<Ip6Addr>("2001:db8::7", {0x20, 1, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7});
  expectBytes<EthAddr>("02:00:5E:10:00:0A", {2, 0, 0x5E, 0x10, 0, 10});
  expectBytes<RouteDistinguisher>("65000:1", {0, 0, 0xFD, 0xE8, 0, 0, 0, 1});
  expectBytes<RouteDistinguisher>("10.0.0.1:258", {0, 1, 10, 0, 0, 1, 1, 2});
  expectBytes<RouteDistinguisher>("4200000000:7", {0, 2, 0xFA, 0x56, 0xEA, 0, 0, 7});
  for (const auto* text : {"1.10:7", "65546:7"}) expectBytes<RouteDistinguisher>(text, {0, 2, 0, 1, 0, 10, 0, 7});
  EXPECT_TRUE(RouteDistinguisher(RouteDistinguisher::Bytes{}).isSet()) << "zero is not unset";
  for (const RouteDistinguisher::Bytes unknown : {RouteDistinguisher::Bytes{0, 3}, {1, 0}}) {
    EXPECT_THROW(RouteDistinguisher::fromBytes(unknown), Kel::RangeException);
  }
}

TEST(Addresses, generalAddressKeepsItsFamilyAndLinkLocalRangesEndWhereTheyEnd) {
  for (const char* text : {"169.254.0.0", "169.254.255.255", "fe80::", "fe80::1", "febf:ffff::1"}) {
    EXPECT_TRUE(IpGenAddr::fromString(text).isLinkLocal()) << text;
  }
  for (const char* text : {"", "169.253.255.255", "169.255.0.0", "10.0.0.1", "fe7f:ffff::", "fec0::", "::1"}) {
    EXPECT_FALSE(IpGenAddr::fromString(text).isLinkLocal()) << text;
  }
  const IpGenAddr v4 = IpAddr::fromString("10.0.0.1"), v6 = Ip6Addr::fromString("::a00:1"), unset;
  EXPECT_TRUE(v4.af() == ipv4_ && v6.af() == ipv6_ && unset.af() == unknown_);
  EXPECT_EQ(v4.v4().stringValue(), "10.0.0.1");
  EXPECT_EQ(v6.v6(), Ip6Addr::fromString("::10.0.0.1"));
  EXPECT_THROW(v4.v6(), Kel::RangeException);
  EXPECT_THROW(v6.v4(), Kel::RangeException);
  EXPECT_THROW(unset.v4(), Kel::RangeException);
  EXPECT_TRUE(IpGenAddr(IpAddr()).isZero());
  EXPECT_FALSE(v4.isZero() || v6.isZero());
}

TEST(Prefixes, addressWithMaskKeepsHostBitsAndPrefixClearsOrRefusesThem) {
  const auto value = IpAddrWithMask::fromString("10.1.2.3/20");
  EXPECT_EQ(value.address().stringValue(), "10.1.2.3");
  EXPECT_EQ(value.netmask().stringValue(), "255.255.240.0");
  EXPECT_EQ(value.prefix().stringValue(), "10.1.0.0");
  const Prefix prefix(value.address(), value.length());
  EXPECT_EQ(prefix.stringValue(), "10.1.0.0/20");
  EXPECT_EQ(prefix, Prefix::fromString("10.1.15.255/20"));
  EXPECT_EQ(prefix, Prefix(prefix.addrWithMask()));
  EXPECT_EQ(Ip6Prefix(Ip6Addr::fromString("2001:db8:ffff::1"), 33).stringValue(), "2001:db8:8000::/33");
  // The eight bits that hold a length must not make 256 + 8 a length of 8.
  EXPECT_THROW(IpAddrWithMask(IpAddr(), 264), Kel::RangeException);
  EXPECT_THROW(Prefix(IpAddr(), 33), Kel::RangeException);
  EXPECT_THAT([] { const Ip6Prefix refused(Ip6AddrWithMask::fromString("2001:db8::1/64")); },
              testing::ThrowsMessage<Kel::RangeException>("Prefix::validAsPrefix != true not allowed"));
}

TEST(IntfIds, kindIsReadAfterTheLastSlashOrConfigured) {
  EXPECT_FALSE(IntfId("").isValid());
  EXPECT_TRUE(IntfId("/").isValid());
  MgmtIntfId::configuredIs({IntfId("eth9")});
  MgmtIntfId::configuredIs({IntfId("eth0"), IntfId("red/eth1"), IntfId()});
  for (const char* id : {"Management1", "red/Management1", "a/b/Management0", "eth0", "red/eth0", "red/eth1"}) {
    EXPECT_TRUE(MgmtIntfId::isMgmtIntfId(IntfId(id))) << id;
  }
  for (const char* id : {"", "red/", "eth1", "blue/eth1", "eth00", "eth9", "Ethernet1", "management1",
                         "Management/eth1", "xManagement1", "DynamicTunnel1"}) {
    EXPECT_FALSE(MgmtIntfId::isMgmtIntfId(IntfId(id))) << id;
  }
  MgmtIntfId::configuredIs({});
  for (const char* id : {"DynamicTunnel1.7", "red/DynamicTunnel1"}) {
    EXPECT_TRUE(DynamicTunnelIntfId::isDynamicTunnelIntfId(IntfId(id))) << id;
  }
  for (const char* id : {"", "Tunnel1", "DynamicTunnel1/eth0", "Management1"}) {
    EXPECT_FALSE(DynamicTunnelIntfId::isDynamicTunnelIntfId(IntfId(id))) << id;
  }
}

}  // namespace
}  // namespace Vantu
