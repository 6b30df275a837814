// Every key of the caches must sort as its index sorts on the wire: a manager that meets rows out of order stops
// with "OID not increasing".

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "ipsnmp/IpMib.h"

namespace IpSnmp {
namespace {

using Oid = std::vector<std::uint32_t>;

void append(Oid& oid, std::uint32_t number) {
  oid.push_back(number);
}
void append(Oid& oid, Ip::IpVersion version) {
  oid.push_back(static_cast<std::uint32_t>(version));
}
// Not IMPLIED: the length goes first.
void append(Oid& oid, const Snmp::String& bytes) {
  oid.push_back(static_cast<std::uint32_t>(bytes.bytes()));
  for (const auto byte : bytes.octets()) oid.push_back(byte);
}
void append(Oid& oid, const Vantu::IpAddr& addr) {
  for (const auto byte : addr.bytes()) oid.push_back(byte);
}
void append(Oid& oid, const InetAddress& addr) {
  append(oid, addr.version());
  append(oid, addr.bytes());
}

template <class Key>
Oid oidOf(const Key& key) {
  Oid oid;
  if constexpr (requires { append(oid, key); }) {
    append(oid, key);
  } else {
    key.kelForEachField([&](const char*, const auto& field) { append(oid, field); });
  }
  return oid;
}

struct Random {
  std::mt19937 engine{42};
  std::uint32_t below(std::uint32_t limit) {
    return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(engine);
  }
  // Few values, so that ties in the leading components are common; bytes above 127 included.
  std::uint32_t number() { return std::array<std::uint32_t, 6>{0, 1, 2, 255, 256, 0xFFFFFFFF}[below(6)]; }
  Snmp::String bytes() {
    static constexpr std::array<std::size_t, 5> lengths{0, 1, 4, 5, 16};
    Kel::String text(lengths[below(5)], '\0');
    for (auto& byte : text) byte = static_cast<char>(std::array<int, 4>{0, 1, 127, 200}[below(4)]);
    return Snmp::String(text);
  }
  Ip::IpVersion version() { return static_cast<Ip::IpVersion>(below(3)); }
  Vantu::IpAddr addr() {
    return Vantu::IpAddr(std::array<std::uint32_t, 5>{0, 1, 0x7FFFFFFF, 0x80000000, 0xC0A80001}[below(5)]);
  }
};

template <class Key>
void expectWireOrder(auto make) {
  Random random;
  std::vector<Key> keys;
  for (int i = 0; i < 400; ++i) keys.push_back(make(random));
  for (std::size_t i = 1; i < keys.size(); ++i) {
    const auto& a = keys[i - 1];
    const auto& b = keys[i];
    ASSERT_EQ(a < b, oidOf(a) < oidOf(b)) << Kel::print(a) << " against " << Kel::print(b);
    ASSERT_EQ(a == b, oidOf(a) == oidOf(b)) << Kel::print(a) << " against " << Kel::print(b);
  }
}

TEST(IndexOrder, everyKeySortsAsItsOid) {
  expectWireOrder<Vantu::IpAddr>([](Random& r) { return r.addr(); });
  expectWireOrder<Snmp::String>([](Random& r) { return r.bytes(); });
  expectWireOrder<InetAddress>([](Random& r) { return InetAddress(r.version(), r.bytes()); });
  expectWireOrder<IpAddressPrefixKey>(
      [](Random& r) { return IpAddressPrefixKey(r.number(), r.version(), r.bytes(), r.number()); });
  expectWireOrder<ArpTableIndex>([](Random& r) { return ArpTableIndex(r.number(), r.addr()); });
  expectWireOrder<IpNetToPhysicalTableIndex>(
      [](Random& r) { return IpNetToPhysicalTableIndex(r.number(), r.version(), r.bytes()); });
  expectWireOrder<IpVersionIfIndex>([](Random& r) { return IpVersionIfIndex(r.version(), r.number()); });
}

TEST(IndexOrder, addressesOfEitherFamily) {
  const auto v4 = InetAddress::fromIpAddr(Vantu::IpAddr::fromString("255.255.255.255"));
  const auto v6 = InetAddress::fromIp6Addr(Vantu::Ip6Addr::fromString("::"));
  EXPECT_LT(v4, v6);
  EXPECT_EQ(v4.bytes().bytes(), 4u);
  EXPECT_EQ(v6.bytes().bytes(), 16u);
  EXPECT_EQ(InetAddress::fromIpGenAddr(Vantu::IpAddr::fromString("10.0.0.1")),
            InetAddress(Ip::ipVersion4, Snmp::String(Kel::String("\x0a\0\0\x01", 4))));
  EXPECT_DEATH(InetAddress::fromIpGenAddr(Vantu::IpGenAddr()), "assertion failed: false");
}

TEST(IndexOrder, interfacesThatHoldAnAddressSortBySourceFirst) {
  const IntfDataKey status(addressSourceStatus, Vantu::IntfId("z"));
  const IntfDataKey config(addressSourceConfig, Vantu::IntfId("a"));
  const IntfDataKey borrowed(addressSourceBorrowed, Vantu::IntfId("a"));
  EXPECT_LT(status, config);
  EXPECT_LT(config, borrowed);
  EXPECT_LT(IntfDataKey(addressSourceConfig, Vantu::IntfId("a")),
            IntfDataKey(addressSourceConfig, Vantu::IntfId("b")));
}

}  // namespace
}  // namespace IpSnmp
