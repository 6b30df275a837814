// What TableMounts_test.cpp does not write: bytes that are no record, entries that have no place, and the documented format.

#include <gmock/gmock.h>

#include "quillo/tables/ArpRecord.h"
#include "quillo/tables/FecRecord.h"
#include "quillo/tables/RouteRecord.h"

namespace Quillo::Test {
namespace {

using Arp::Table::ArpEntry;
using Arp::Table::ArpKey;
using Vrf::VrfIdMap::VrfId;

const Fib::Via via{Vantu::IpAddr(1), Vantu::IntfId("eth0")};

// What `read` finds wrong with the bytes. What they are read into stays as it was.
template <class Out, class Read>
std::string fault(const Read& read, const std::string& bytes) {
  Out out;
  const char* what = read(bytes, out);
  EXPECT_TRUE(!what || out == Out());
  return what ? what : "";
}
std::string neighbourKey(TableId table, const std::string& bytes) {
  return fault<ArpKey>([&](Bytes key, ArpKey& out) { return Arp::Table::decodeKey(table, key, out); }, bytes);
}
std::string neighbour(const std::string& bytes) {
  return fault<ArpEntry>(Arp::Table::decodeValue, bytes);
}
template <class P = Vantu::Prefix>
std::string routeKey(const std::string& bytes) {
  using Key = std::pair<VrfId, P>;
  return fault<Key>([](Bytes key, Key& out) { return decodeRouteKey(key, out.first, out.second); }, bytes);
}
std::string route(const std::string& bytes) {
  return fault<Fib::Route>(decodeRoute<Vantu::Prefix>, bytes);
}
std::string fecKey(const std::string& bytes) {
  using Key = std::pair<VrfId, Fib::FecId>;
  return fault<Key>([](Bytes key, Key& out) { return decodeFecKey(key, out.first, out.second); }, bytes);
}
std::string fec(const std::string& bytes) {
  return fault<Fib::Fec>(decodeFec, bytes);
}

TEST(RecordBytes, malformedOnesAreNoRecord) {
  const std::string vrf(3, '\1'), unknownVrf(3, '\xff'), prefix("\x0a\0\0\0\x08", 5);
  EXPECT_EQ("key too short", neighbourKey(TableId::arp, ""));
  EXPECT_EQ("key too short", neighbourKey(TableId::arp, vrf + "addr"));
  EXPECT_EQ("", neighbourKey(TableId::arp, vrf + "addr" + std::string(255, 'n')));
  EXPECT_EQ("key too long", neighbourKey(TableId::arp, vrf + "addr" + std::string(256, 'n')));
  EXPECT_EQ("key of an unknown VRF", neighbourKey(TableId::arp, unknownVrf + "addrx"));
  EXPECT_EQ("key too short", neighbourKey(TableId::neighbor, vrf + std::string(16, 'a')));
  EXPECT_EQ("", neighbourKey(TableId::neighbor, vrf + std::string(17, 'a')));
  for (const auto size : {6U, 8U}) EXPECT_EQ("value of a wrong length", neighbour(std::string(size, '\0')));
  EXPECT_EQ("unknown flags in the value", neighbour(std::string("\0\0\0\0\0\0\3", 7)));

  EXPECT_EQ("", routeKey(vrf + prefix));
  EXPECT_EQ("host bits in the prefix", routeKey(vrf + std::string("\x0a\0\0\1\x08", 5)));
  EXPECT_EQ("prefix too long", routeKey(vrf + std::string("\x0a\0\0\0\x21", 5)));
  EXPECT_EQ("prefix too long", routeKey<Vantu::Ip6Prefix>(vrf + std::string(16, '\0') + '\x81'));
  EXPECT_EQ("key of an unknown VRF", routeKey(unknownVrf + prefix));
  for (const auto size : {7U, 9U}) EXPECT_EQ("key of a wrong length", routeKey(std::string(size, '\0')));
  for (const auto size : {14U, 16U}) EXPECT_EQ("value of a wrong length", route(std::string(size, '\1')));
  EXPECT_EQ("route without a type", route(std::string(15, '\0')));
  EXPECT_EQ("unknown flags in the value", route(std::string(15, '\4')));

  EXPECT_EQ("key of a wrong length", fecKey(std::string(10, '\1')));
  EXPECT_EQ("key of an unknown VRF", fecKey(std::string(11, '\xff')));
  EXPECT_EQ("FEC id 0", fecKey(std::string(11, '\0')));
  const auto whole = encodeFec({{}, {via, {Vantu::Ip6Addr(), {}}}});
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ("value too short", fec(whole.substr(0, size)));
  }
  EXPECT_EQ("bytes behind the last via", fec(whole + 'x'));
  EXPECT_EQ("too many vias", fec("\1\2" + whole));
  EXPECT_EQ("via of an unknown address family", fec(std::string("\1\0\5\0\0\0\0\0", 8)));
}

TEST(RecordBytes, whatHasNoPlaceIsRefused) {
  EXPECT_THROW(Arp::Table::encodeKey({VrfId(0), {}, via.intfId}), Kel::RangeException);
  EXPECT_THROW(Arp::Table::encodeKey({VrfId(0), via.hop, {}}), Kel::RangeException);
  for (const auto& unstorable : {VrfId(), VrfId(0x1000000)}) {
    EXPECT_THROW(Arp::Table::encodeKey({unstorable, via.hop, via.intfId}), Kel::RangeException);
  }
  EXPECT_THROW(encodeRoute(Fib::Route()), Kel::RangeException);
  EXPECT_THROW(encodeFec({Fib::FecId(1), std::vector<Fib::Via>(513, via)}), Kel::RangeException);
  EXPECT_THROW(encodeFec({Fib::FecId(1), {Fib::Via()}}), Kel::RangeException);
  EXPECT_THROW(encodeFecKey(VrfId(1), Fib::FecId()), Kel::RangeException);
}

// The examples of the page on the format.
TEST(RecordBytes, areThoseOfTheFormat) {
  const Vantu::IpAddr address(0x0a000001);
  const Vantu::IntfId intf("red/eth0");
  EXPECT_EQ(std::string("\x00\x01\x02\x0a\x00\x00\x01red/eth0", 15),
            Arp::Table::encodeKey({VrfId(258), address, intf}));
  EXPECT_EQ(std::string("\x02\x00\x00\x00\x00\x0a\x01", 7),
            Arp::Table::encodeValue({{}, Vantu::EthAddr::fromString("02:00:00:00:00:0a"), {true}}));
  const Fib::Route route{Vantu::Prefix::fromString("10.1.0.0/16"),
                         Routing::Fib::RouteType(7),
                         Routing::RouteMetric(20),
                         Routing::RoutePreference(200),
                         Fib::FecId(5),
                         false};
  EXPECT_EQ(std::string("\x00\x01\x02\x0a\x01\x00\x00\x10", 8), encodeRouteKey(VrfId(258), route.prefix));
  EXPECT_EQ(std::string("\x07\xc8\x14\0\0\0\x05\0\0\0\0\0\0\0\x01", 15), encodeRoute(route));
  EXPECT_EQ(std::string("\x00\x01\x02\0\0\0\0\0\0\0\x05", 11), encodeFecKey(VrfId(258), Fib::FecId(5)));
  EXPECT_EQ(std::string("\x01\0\x04\x0a\0\0\x01\x08red/eth0", 16), encodeFec({Fib::FecId(5), {{address, intf}}}));
}

}  // namespace
}  // namespace Quillo::Test
