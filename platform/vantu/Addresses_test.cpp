#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kel/Errors.h"
#include "vantu/EthAddr.h"
#include "vantu/Ip6Prefix.h"
#include "vantu/IpGenAddr.h"
#include "vantu/Prefix.h"

namespace Vantu {
namespace {

// Checks netmask and mask of each length against a count of bits.
template <class Address>
void expectMasksBitByBit(const Address& allOnes, const Address& sample) {
  for (unsigned length = 0; length <= Address::bits; ++length) {
    const auto netmask = Address::netmask(length).bytes();
    const auto masked = sample.mask(length).bytes();
    for (unsigned bit = 0; bit < Address::bits; ++bit) {
      const unsigned shift = 7 - bit % 8;
      const bool inPrefix = bit < length;
      const bool inSample = (sample.bytes()[bit / 8] >> shift & 1) != 0;
      ASSERT_EQ((netmask[bit / 8] >> shift & 1) != 0, inPrefix) << "length " << length << " bit " << bit;
      ASSERT_EQ((masked[bit / 8] >> shift & 1) != 0, inPrefix && inSample) << "length " << length << " bit " << bit;
    }
  }
  EXPECT_EQ(allOnes.mask(Address::bits), allOnes);
  EXPECT_THROW(Address::netmask(Address::bits + 1), Kel::RangeException);
  EXPECT_THROW(allOnes.mask(Address::bits + 1), Kel::RangeException);
}

TEST(Addresses, masksKeepTheMostSignificantBits) {
  expectMasksBitByBit(IpAddr(0xFFFFFFFF), IpAddr(0xA5C3960F));
  Ip6Addr::Bytes ones;
  ones.fill(0xFF);
  expectMasksBitByBit(Ip6Addr(ones), Ip6Addr::fromString("a5c3:960f:1234:8765:dead:beef:7fff:8001"));
}

TEST(Addresses, bytesAreInNetworkOrderAndComeBack) {
  const auto v4 = IpAddr::fromString("10.1.2.3");
  EXPECT_EQ(v4.value(), 0x0A010203U);
  EXPECT_EQ(v4.bytes(), (std::array<std::uint8_t, 4>{10, 1, 2, 3}));
  EXPECT_EQ(IpAddr::fromBytes(v4.bytes()), v4);
  const auto v6 = Ip6Addr::fromString("2001:db8::7");
  EXPECT_EQ(v6.bytes()[0], 0x20);
  EXPECT_EQ(v6.bytes()[15], 7);
  EXPECT_EQ(Ip6Addr::fromBytes(v6.bytes()), v6);
  const auto mac = EthAddr::fromString("02:00:5E:10:00:0A");
  EXPECT_EQ(mac.bytes(), (EthAddr::Bytes{2, 0, 0x5E, 0x10, 0, 10}));
  EXPECT_EQ(EthAddr::fromBytes(mac.bytes()), mac);
  EXPECT_EQ(mac.stringValue(), "02:00:5e:10:00:0a");

  EXPECT_THROW(IpAddr::fromBytes(v6.bytes()), Kel::RangeException);
  EXPECT_THROW(Ip6Addr::fromBytes(v4.bytes()), Kel::RangeException);
  EXPECT_THROW(EthAddr::fromBytes({}), Kel::RangeException);
}

TEST(Addresses, linkLocalRangesEndWhereTheyEnd) {
  for (const char* text : {"169.254.0.0", "169.254.255.255", "fe80::", "fe80::1", "febf:ffff::1"}) {
    EXPECT_TRUE(IpGenAddr::fromString(text).isLinkLocal()) << text;
  }
  for (const char* text : {"", "169.253.255.255", "169.255.0.0", "10.0.0.1", "fe7f:ffff::", "fec0::", "::1"}) {
    EXPECT_FALSE(IpGenAddr::fromString(text).isLinkLocal()) << text;
  }
}

TEST(Addresses, generalAddressKeepsItsFamily) {
  const IpGenAddr v4 = IpAddr::fromString("10.0.0.1");
  EXPECT_EQ(v4.af(), Vantu::ipv4_);
  EXPECT_EQ(v4.v4().stringValue(), "10.0.0.1");
  EXPECT_THROW(v4.v6(), Kel::RangeException);

  const IpGenAddr v6 = Ip6Addr::fromString("::a00:1");
  EXPECT_EQ(v6.af(), Vantu::ipv6_);
  EXPECT_EQ(v6.v6(), Ip6Addr::fromString("::10.0.0.1"));
  EXPECT_THROW(v6.v4(), Kel::RangeException);

  EXPECT_EQ(IpGenAddr().af(), Vantu::unknown_);
  EXPECT_THROW(IpGenAddr().v4(), Kel::RangeException);
  EXPECT_NE(IpGenAddr(), IpGenAddr(IpAddr()));
  EXPECT_TRUE(IpGenAddr(IpAddr()).isZero());
  EXPECT_FALSE(v4.isZero());
  EXPECT_FALSE(v6.isZero());
}

TEST(Prefixes, addressWithMaskKeepsHostBitsAndPrefixClearsThem) {
  const auto value = IpAddrWithMask::fromString("10.1.2.3/20");
  EXPECT_EQ(value.address().stringValue(), "10.1.2.3");
  EXPECT_EQ(value.netmask().stringValue(), "255.255.240.0");
  EXPECT_EQ(value.prefix().stringValue(), "10.1.0.0");
  EXPECT_EQ(IpAddrWithMask(value.address(), 0).netmask(), IpAddr());

  const Prefix prefix(value.address(), value.length());
  EXPECT_EQ(prefix.stringValue(), "10.1.0.0/20");
  EXPECT_EQ(prefix, Prefix::fromString("10.1.15.255/20"));
  EXPECT_EQ(prefix.netmask(), value.netmask());
  EXPECT_EQ(Ip6Prefix(Ip6Addr::fromString("2001:db8:ffff::1"), 33).stringValue(), "2001:db8:8000::/33");

  // The eight bits that hold a length must not make 256 + 8 a length of 8.
  EXPECT_THROW(IpAddrWithMask(IpAddr(), 264), Kel::RangeException);
  EXPECT_THROW(Prefix(IpAddr(), 33), Kel::RangeException);
  EXPECT_THROW(Ip6AddrWithMask(Ip6Addr(), 129), Kel::RangeException);
}

TEST(Prefixes, addressWithHostBitsIsRefusedAsPrefix) {
  const auto clean = IpAddrWithMask::fromString("10.0.0.0/8");
  EXPECT_TRUE(clean.validAsPrefix());
  EXPECT_EQ(Prefix(clean).addrWithMask(), clean);
  const auto host = Ip6AddrWithMask::fromString("2001:db8::1/64");
  EXPECT_FALSE(host.validAsPrefix());
  EXPECT_THAT([&] { const Ip6Prefix refused(host); },
              testing::ThrowsMessage<Kel::RangeException>("Prefix::validAsPrefix != true not allowed"));
}

}  // namespace
}  // namespace Vantu
