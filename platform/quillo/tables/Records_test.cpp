// What TableMounts_test.cpp does not write: bytes that are no record, entries that have no place, and the documented format.

#include "quillo/tables/Records.h"

#include <gmock/gmock.h>

namespace Quillo::Test {
namespace {

using Arp::Table::ArpEntry;
using Arp::Table::ArpKey;
using Vrf::VrfIdMap::VrfId;

const Fib::Via goodVia{Vantu::IpAddr(1), Vantu::IntfId("eth0")};

// What a decoder finds wrong with the bytes. What they are read into stays as it was.
template <class Out>
auto faultsOf(const char* (*decode)(Bytes, Out&)) {
  return [decode](const std::string& bytes) -> std::string {
    Out out;
    const char* what = decode(bytes, out);
    EXPECT_TRUE(!what || out == Out());
    return what ? what : "";
  };
}

TEST(RecordBytes, malformedOnesAreNoRecord) {
  const auto arpKeyFault = faultsOf(decodeKey<ArpRecord<Vantu::ipv4_>>);
  const auto neighborKeyFault = faultsOf(decodeKey<ArpRecord<Vantu::ipv6_>>);
  const auto neighbourFault = faultsOf(decodeValue<ArpRecord<Vantu::ipv4_>>);
  const auto routeKeyFault = faultsOf(decodeKey<RouteRecord<Vantu::Prefix>>);
  const auto route6KeyFault = faultsOf(decodeKey<RouteRecord<Vantu::Ip6Prefix>>);
  const auto routeFault = faultsOf(decodeValue<RouteRecord<Vantu::Prefix>>);
  const auto fecKeyFault = faultsOf(decodeKey<FecRecord>);
  const auto fecFault = faultsOf(decodeValue<FecRecord>);
  const std::string vrf(3, '\1'), unknownVrf(3, '\xff'), prefix("\x0a\0\0\0\x08", 5);
  EXPECT_EQ("key too short", arpKeyFault(""));
  EXPECT_EQ("key too short", arpKeyFault(vrf + "addr"));
  EXPECT_EQ("", arpKeyFault(vrf + "addr" + std::string(255, 'n')));
  EXPECT_EQ("key too long", arpKeyFault(vrf + "addr" + std::string(256, 'n')));
  EXPECT_EQ("key of an unknown VRF", arpKeyFault(unknownVrf + "addrx"));
  EXPECT_EQ("key too short", neighborKeyFault(vrf + std::string(16, 'a')));
  EXPECT_EQ("", neighborKeyFault(vrf + std::string(17, 'a')));
  for (const auto size : {6U, 8U}) EXPECT_EQ("value of a wrong length", neighbourFault(std::string(size, '\0')));
  EXPECT_EQ("unknown flags in the value", neighbourFault(std::string("\0\0\0\0\0\0\3", 7)));

  EXPECT_EQ("", routeKeyFault(vrf + prefix));
  EXPECT_EQ("host bits in the prefix", routeKeyFault(vrf + std::string("\x0a\0\0\1\x08", 5)));
  EXPECT_EQ("prefix too long", routeKeyFault(vrf + std::string("\x0a\0\0\0\x21", 5)));
  EXPECT_EQ("prefix too long", route6KeyFault(vrf + std::string(16, '\0') + '\x81'));
  EXPECT_EQ("key of an unknown VRF", routeKeyFault(unknownVrf + prefix));
  for (const auto size : {7U, 9U}) EXPECT_EQ("key of a wrong length", routeKeyFault(std::string(size, '\0')));
  for (const auto size : {15U, 17U}) EXPECT_EQ("value of a wrong length", routeFault(std::string(size, '\1')));
  EXPECT_EQ("route without a type", routeFault(std::string(16, '\0')));
  EXPECT_EQ("unknown flags in the value", routeFault(std::string(16, '\4')));
  EXPECT_EQ("route with an unknown action", routeFault(std::string(14, '\1') + std::string("\0\4", 2)));

  EXPECT_EQ("key of a wrong length", fecKeyFault(std::string(10, '\1')));
  EXPECT_EQ("key of an unknown VRF", fecKeyFault(std::string(11, '\xff')));
  EXPECT_EQ("FEC id 0", fecKeyFault(std::string(11, '\0')));
  const auto whole = encodeValue<FecRecord>({{}, {goodVia, {Vantu::Ip6Addr(), {}}}});
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ("value too short", fecFault(whole.substr(0, size)));
  }
  EXPECT_EQ("bytes behind the last via", fecFault(whole + 'x'));
  EXPECT_EQ("too many vias", fecFault("\1\2" + whole));
  EXPECT_EQ("via of an unknown address family", fecFault(std::string("\1\0\5\0\0\0\0\0", 8)));
}

TEST(RecordBytes, whatHasNoPlaceIsRefused) {
  EXPECT_EQ(Fib::FecId(~std::uint64_t{0}), Fib::FecId::fromString("18446744073709551615"));
  for (const char* text : {"", "x", "-1", "1 ", "18446744073709551616"}) {
    EXPECT_THROW(Fib::FecId::fromString(text), Kel::RangeException) << text;
  }
  EXPECT_THROW(encodeKey<ArpRecord<Vantu::ipv4_>>({VrfId(0), {}, goodVia.intfId}), Kel::RangeException);
  EXPECT_THROW(encodeKey<ArpRecord<Vantu::ipv4_>>({VrfId(0), goodVia.hop, {}}), Kel::RangeException);
  for (const auto& unstorable : {VrfId(), VrfId(0x1000000)}) {
    EXPECT_THROW(encodeKey<ArpRecord<Vantu::ipv4_>>({unstorable, goodVia.hop, goodVia.intfId}),
                 Kel::RangeException);
  }
  EXPECT_THROW(encodeValue<RouteRecord<Vantu::Prefix>>(Fib::Route()), Kel::RangeException);
  EXPECT_THROW(encodeValue<FecRecord>({Fib::FecId(1), std::vector<Fib::Via>(513, goodVia)}), Kel::RangeException);
  EXPECT_THROW(encodeValue<FecRecord>({Fib::FecId(1), {Fib::Via()}}), Kel::RangeException);
  EXPECT_THROW(encodeKey<FecRecord>({VrfId(1), Fib::FecId()}), Kel::RangeException);
}

// The examples of the page on the format.
TEST(RecordBytes, areThoseOfTheFormat) {
  const Vantu::IpAddr address(0x0a000001);
  const Vantu::IntfId intf("red/eth0");
  EXPECT_EQ(std::string("\x00\x01\x02\x0a\x00\x00\x01red/eth0", 15),
            encodeKey<ArpRecord<Vantu::ipv4_>>({VrfId(258), address, intf}));
  EXPECT_EQ(std::string("\x02\x00\x00\x00\x00\x0a\x01", 7),
            encodeValue<ArpRecord<Vantu::ipv4_>>({{}, Vantu::EthAddr::fromString("02:00:00:00:00:0a"), {true}}));
  const Fib::Route route{Vantu::Prefix::fromString("10.1.0.0/16"),
                         Routing::Fib::RouteType(7),
                         Routing::RouteMetric(20),
                         Routing::RoutePreference(200),
                         Fib::FecId(5),
                         false,
                         false,
                         Routing::Fib::RouteAction::prohibit};
  EXPECT_EQ(std::string("\x00\x01\x02\x0a\x01\x00\x00\x10", 8),
            encodeKey<RouteRecord<Vantu::Prefix>>({VrfId(258), route.prefix}));
  EXPECT_EQ(std::string("\x07\xc8\x14\0\0\0\x05\0\0\0\0\0\0\0\x01\x03", 16),
            encodeValue<RouteRecord<Vantu::Prefix>>(route));
  EXPECT_EQ(std::string("\x00\x01\x02\0\0\0\0\0\0\0\x05", 11), encodeKey<FecRecord>({VrfId(258), Fib::FecId(5)}));
  EXPECT_EQ(std::string("\x01\0\x04\x0a\0\0\x01\x08red/eth0", 16),
            encodeValue<FecRecord>({Fib::FecId(5), {{address, intf}}}));
}

TEST(RecordBytes, keysHaveATextForPeople) {
  const VrfNames names = [](const VrfId& id) { return id == VrfId(1) ? "red" : "unknown"; };
  const auto text = [&]<class R>(R, const typename R::Key& key) {
    return keyText(R::table, encodeKey<R>(key), names);
  };
  EXPECT_EQ("VRF red 10.0.0.1 on Ether\\x0anet3",
            text(ArpRecord<Vantu::ipv4_>(), {VrfId(1), Vantu::IpAddr(0x0a000001), Vantu::IntfId("Ether\nnet3")}));
  EXPECT_EQ("VRF red ::/0", text(RouteRecord<Vantu::Ip6Prefix>(), {VrfId(1), {}}));
  EXPECT_EQ("VRF unknown 7", text(FecRecord(), {VrfId(2), Fib::FecId(7)}));
  EXPECT_EQ("VRF 1 7", keyText(TableId::fec, encodeKey<FecRecord>({VrfId(1), Fib::FecId(7)})));
  EXPECT_EQ("\\x01x", keyText(TableId::route, "\1x"));
  EXPECT_EQ("ip/config", keyText(TableId::varnix, "ip/config"));
}

}  // namespace
}  // namespace Quillo::Test
