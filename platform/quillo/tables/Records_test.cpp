#include <gmock/gmock.h>

#include <random>
#include <set>

#include "quillo/tables/ArpRecord.h"
#include "quillo/tables/FecRecord.h"
#include "quillo/tables/RouteRecord.h"
#include "quillo/tables/VrfKey.h"

namespace Quillo::Test {
namespace {

using Arp::Table::ArpEntry;
using Arp::Table::ArpKey;
using Vrf::VrfIdMap::VrfId;

struct Random : std::mt19937 {
  unsigned below(unsigned n) { return static_cast<unsigned>((*this)() % n); }
  std::uint8_t byte() { return static_cast<std::uint8_t>(std::array{0, 1, 0x7f, 0x80, 0xff}[below(5)]); }
  template <class Address>
  Address address() {
    std::array<std::uint8_t, Address::bits / 8> bytes{};
    bytes.front() = byte();
    bytes.back() = byte();
    return Address::fromBytes(bytes);
  }
  Vantu::IpGenAddr anyAddress() {
    return below(2) ? Vantu::IpGenAddr(address<Vantu::IpAddr>()) : Vantu::IpGenAddr(address<Vantu::Ip6Addr>());
  }
  Vantu::IntfId intfId() {
    const std::string names[] = {"a", "b", "a/b", "\xff", std::string("a\0", 2), std::string(255, 'n')};
    return Vantu::IntfId(names[below(6)]);
  }
};

// Each type of record: its key with the VRF id, how both are made at random, written and read.
template <TableId Family>
struct Neighbours {
  using Key = ArpKey;
  using Entry = ArpEntry;
  static Key key(Random& random, VrfId vrfId) {
    const bool isIpv4 = Family == TableId::arp;
    return {vrfId, isIpv4 ? Vantu::IpGenAddr(random.address<Vantu::IpAddr>()) : random.address<Vantu::Ip6Addr>(),
            random.intfId()};
  }
  static Entry entry(Random& random, const Key& key) {
    return {key,
            Vantu::EthAddr::fromBytes(std::array{random.byte(), random.byte(), random.byte(), random.byte(),
                                                 random.byte(), random.byte()}),
            {random.below(2) == 0}};
  }
  static std::string keyBytes(const Key& key) { return encodeKey(key); }
  static std::string bytes(const Entry& entry) { return encodeValue(entry); }
  static const char* readKey(Bytes bytes, Key& key) { return Arp::Table::decodeKey(Family, bytes, key); }
  static const char* read(Bytes bytes, Entry& entry) { return Arp::Table::decodeValue(bytes, entry); }
  static Entry named(const Key& key) { return {key, {}, {}}; }
};

template <class P>
struct Routes {
  using Key = std::pair<VrfId, P>;
  using Entry = BasicRoute<P>;
  static Key key(Random& random, VrfId vrfId) {
    using Address = std::remove_cvref_t<decltype(P().address())>;
    return {vrfId, P(random.address<Address>(), random.below(Address::bits + 1))};
  }
  static Entry entry(Random& random, const Key& key) {
    return {key.second,
            Routing::Fib::RouteType(static_cast<std::uint8_t>(1 + random.below(255))),
            Routing::RouteMetric(static_cast<std::uint32_t>(random())),
            Routing::RoutePreference(random.byte()),
            Fib::FecId(random() * std::uint64_t{0x100000001}),
            random.below(2) == 0,
            random.below(2) == 0};
  }
  static std::string keyBytes(const Key& key) { return encodeRouteKey(key.first, key.second); }
  static std::string bytes(const Entry& entry) { return encodeRoute(entry); }
  static const char* readKey(Bytes bytes, Key& key) { return decodeRouteKey(bytes, key.first, key.second); }
  static const char* read(Bytes bytes, Entry& entry) { return decodeRoute(bytes, entry); }
  static Entry named(const Key& key) { return {key.second, {}, {}, {}, {}}; }
};

struct Fecs {
  using Key = std::pair<VrfId, Fib::FecId>;
  using Entry = Fib::Fec;
  static Key key(Random& random, VrfId vrfId) {
    return {vrfId, Fib::FecId(1 + (std::uint64_t{random.byte()} << 56 | random.byte()))};
  }
  static Entry entry(Random& random, const Key& key) {
    Entry fec{key.second, {}};
    for (auto vias = std::array{0U, 1U, 2U, 3U, 512U}[random.below(5)]; fec.via.size() < vias;) {
      fec.via.push_back({random.anyAddress(), random.below(3) ? random.intfId() : Vantu::IntfId()});
    }
    return fec;
  }
  static std::string keyBytes(const Key& key) { return encodeFecKey(key.first, key.second); }
  static std::string bytes(const Entry& entry) { return encodeFec(entry); }
  static const char* readKey(Bytes bytes, Key& key) { return decodeFecKey(bytes, key.first, key.second); }
  static const char* read(Bytes bytes, Entry& entry) { return decodeFec(bytes, entry); }
  static Entry named(const Key& key) { return {key.second, {}}; }
};

template <class Record>
struct Records : ::testing::Test {};
using RecordTypes = ::testing::Types<Neighbours<TableId::arp>, Neighbours<TableId::neighbor>, Routes<Vantu::Prefix>,
                                     Routes<Vantu::Ip6Prefix>, Fecs>;
TYPED_TEST_SUITE(Records, RecordTypes);

TYPED_TEST(Records, bytesKeepTheOrderOfTheKeysAndAllOfTheValue) {
  Random random;
  std::set<typename TypeParam::Key> keys;
  for (const auto vrf : {0U, 1U, 255U, 256U, 65535U, 0x10000U, 0xffff00U, 0xfffffeU}) {
    for (int i = 0; i < 60; ++i) keys.insert(TypeParam::key(random, VrfId(vrf)));
  }
  std::string previous;
  typename TypeParam::Entry reused;
  for (const auto& key : keys) {
    const auto bytes = TypeParam::keyBytes(key);
    EXPECT_LT(previous, bytes);
    previous = bytes;
    typename TypeParam::Key again;
    ASSERT_EQ(nullptr, TypeParam::readKey(bytes, again));
    EXPECT_TRUE(key == again);
    const auto entry = TypeParam::entry(random, key);
    auto back = TypeParam::named(key);
    ASSERT_EQ(nullptr, TypeParam::read(TypeParam::bytes(entry), back));
    EXPECT_TRUE(entry == back);
  }
}

// What is wrong with the bytes, and that what they were read into is as before.
template <class Record>
std::string keyFault(const std::string& bytes) {
  Random random;
  const auto before = Record::key(random, VrfId(7));
  auto key = before;
  const char* what = Record::readKey(bytes, key);
  EXPECT_EQ(what != nullptr, key == before);
  return what ? what : "";
}
template <class Record>
std::string fault(const std::string& bytes) {
  typename Record::Entry entry;
  const char* what = Record::read(bytes, entry);
  EXPECT_TRUE(!what || entry == typename Record::Entry());
  return what ? what : "";
}

TEST(RecordBytes, malformedOnesAreNoRecord) {
  const std::string vrf(3, '\1'), unknownVrf(3, '\xff');
  using Arp4 = Neighbours<TableId::arp>;
  EXPECT_EQ("key too short", keyFault<Arp4>(""));
  EXPECT_EQ("key too short", keyFault<Arp4>(vrf + "addr"));
  EXPECT_EQ("", keyFault<Arp4>(vrf + "addr" + std::string(255, 'n')));
  EXPECT_EQ("key too long", keyFault<Arp4>(vrf + "addr" + std::string(256, 'n')));
  EXPECT_EQ("key of an unknown VRF", keyFault<Arp4>(unknownVrf + "addrx"));
  EXPECT_EQ("key too short", keyFault<Neighbours<TableId::neighbor>>(vrf + std::string(16, 'a')));
  EXPECT_EQ("", keyFault<Neighbours<TableId::neighbor>>(vrf + std::string(17, 'a')));
  for (const unsigned size : {6U, 8U}) EXPECT_EQ("value of a wrong length", fault<Arp4>(std::string(size, '\0')));
  EXPECT_EQ("unknown flags in the value", fault<Arp4>(std::string("\0\0\0\0\0\0\3", 7)));

  using Route4 = Routes<Vantu::Prefix>;
  EXPECT_EQ("", keyFault<Route4>(vrf + std::string("\x0a\0\0\0\x08", 5)));
  EXPECT_EQ("host bits in the prefix", keyFault<Route4>(vrf + std::string("\x0a\0\0\1\x08", 5)));
  EXPECT_EQ("prefix too long", keyFault<Route4>(vrf + std::string("\x0a\0\0\0\x21", 5)));
  EXPECT_EQ("key of an unknown VRF", keyFault<Route4>(unknownVrf + std::string("\x0a\0\0\0\x08", 5)));
  EXPECT_EQ("prefix too long", keyFault<Routes<Vantu::Ip6Prefix>>(vrf + std::string(16, '\0') + '\x81'));
  for (const unsigned size : {7U, 9U})
    EXPECT_EQ("key of a wrong length", keyFault<Route4>(std::string(size, '\0')));
  for (const unsigned size : {14U, 16U})
    EXPECT_EQ("value of a wrong length", fault<Route4>(std::string(size, '\1')));
  EXPECT_EQ("route without a type", fault<Route4>(std::string(15, '\0')));
  EXPECT_EQ("unknown flags in the value", fault<Route4>(std::string(15, '\4')));

  EXPECT_EQ("key of a wrong length", keyFault<Fecs>(std::string(10, '\1')));
  EXPECT_EQ("key of an unknown VRF", keyFault<Fecs>(std::string(11, '\xff')));
  EXPECT_EQ("FEC id 0", keyFault<Fecs>(std::string(11, '\0')));
  const auto whole = encodeFec({{}, {{Vantu::IpAddr(1), {}}, {Vantu::Ip6Addr(), Vantu::IntfId("eth0")}}});
  for (std::size_t size = 0; size < whole.size(); ++size)
    EXPECT_EQ("value too short", fault<Fecs>(whole.substr(0, size)));
  EXPECT_EQ("bytes behind the last via", fault<Fecs>(whole + 'x'));
  EXPECT_EQ("too many vias", fault<Fecs>("\1\2" + whole));
  EXPECT_EQ("via of an unknown address family", fault<Fecs>(std::string("\1\0\5\0\0\0\0\0", 8)));
}

TEST(RecordBytes, whatHasNoPlaceIsRefused) {
  const ArpKey good{VrfId(0), Vantu::IpAddr(1), Vantu::IntfId("eth0")};
  EXPECT_THROW(Arp::Table::encodeKey({VrfId(0), {}, good.intfId}), Kel::RangeException);
  EXPECT_THROW(Arp::Table::encodeKey({VrfId(0), good.addr, {}}), Kel::RangeException);
  for (const VrfId& unstorable : {VrfId(), VrfId(0x1000000)}) {
    EXPECT_THROW(Arp::Table::encodeKey({unstorable, good.addr, good.intfId}), Kel::RangeException);
    EXPECT_THROW(encodeRouteKey(unstorable, Vantu::Prefix()), Kel::RangeException);
  }
  EXPECT_THROW(encodeRoute(Fib::Route()), Kel::RangeException);
  EXPECT_THROW(encodeFec({Fib::FecId(1), std::vector<Fib::Via>(513, {Vantu::IpAddr(1), {}})}), Kel::RangeException);
  EXPECT_THROW(encodeFec({Fib::FecId(1), {Fib::Via()}}), Kel::RangeException);
  EXPECT_THROW(encodeFecKey(VrfId(1), Fib::FecId()), Kel::RangeException);
}

// The examples of the page on the format.
TEST(RecordBytes, areThoseOfTheFormat) {
  const ArpEntry entry{{VrfId(258), Vantu::IpAddr(0x0a000001), Vantu::IntfId("red/eth0")},
                       Vantu::EthAddr::fromString("02:00:00:00:00:0a"),
                       {true}};
  EXPECT_EQ(std::string("\x00\x01\x02\x0a\x00\x00\x01red/eth0", 15), encodeKey(entry.key));
  EXPECT_EQ(std::string("\x02\x00\x00\x00\x00\x0a\x01", 7), encodeValue(entry));
  const Fib::Route route{Vantu::Prefix::fromString("10.1.0.0/16"),
                         Routing::Fib::RouteType(7),
                         Routing::RouteMetric(20),
                         Routing::RoutePreference(200),
                         Fib::FecId(5),
                         false};
  EXPECT_EQ(std::string("\x00\x01\x02\x0a\x01\x00\x00\x10", 8), encodeRouteKey(VrfId(258), route.prefix));
  EXPECT_EQ(std::string("\x07\xc8\x14\0\0\0\x05\0\0\0\0\0\0\0\x01", 15), encodeRoute(route));
  const Fib::Fec fec{Fib::FecId(5), {{Vantu::IpAddr(0x0a000001), Vantu::IntfId("red/eth0")}}};
  EXPECT_EQ(std::string("\x00\x01\x02\0\0\0\0\0\0\0\x05", 11), encodeFecKey(VrfId(258), fec.fecId));
  EXPECT_EQ(std::string("\x01\0\x04\x0a\0\0\x01\x08red/eth0", 16), encodeFec(fec));
}

}  // namespace
}  // namespace Quillo::Test
