#include <gmock/gmock.h>

#include <random>
#include <set>

#include "quillo/tables/FecRecord.h"
#include "quillo/tables/RouteRecord.h"
#include "quillo/tables/VrfKey.h"

namespace Quillo::Test {
namespace {

using Vrf::VrfIdMap::VrfId;

Vantu::Prefix randomPrefix(std::mt19937& random, Vantu::Prefix) {
  return {Vantu::IpAddr(static_cast<std::uint32_t>(random())), static_cast<unsigned>(random() % 33)};
}
Vantu::Ip6Prefix randomPrefix(std::mt19937& random, Vantu::Ip6Prefix) {
  Vantu::Ip6Addr::Bytes bytes{};
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random() % 3 * 0x7f);
  return {Vantu::Ip6Addr(bytes), static_cast<unsigned>(random() % 129)};
}

template <class PrefixType>
struct RouteRecord : ::testing::Test {};
using PrefixTypes = ::testing::Types<Vantu::Prefix, Vantu::Ip6Prefix>;
TYPED_TEST_SUITE(RouteRecord, PrefixTypes);

TYPED_TEST(RouteRecord, orderOfKeysIsThatOfTheirBytes) {
  std::mt19937 random(5);
  std::set<std::pair<VrfId, TypeParam>> keys;
  for (const auto vrf : {0U, 1U, 255U, 256U, 0xfffffeU}) {
    for (int i = 0; i < 200; ++i) keys.emplace(VrfId(vrf), randomPrefix(random, TypeParam()));
  }
  std::string previous;
  for (const auto& [vrfId, prefix] : keys) {
    const auto bytes = encodeRouteKey(vrfId, prefix);
    EXPECT_LT(previous, bytes) << prefix;
    previous = bytes;
    VrfId vrfAgain;
    TypeParam prefixAgain;
    ASSERT_EQ(nullptr, decodeRouteKey(bytes, vrfAgain, prefixAgain));
    EXPECT_EQ(vrfId, vrfAgain);
    EXPECT_EQ(prefix, prefixAgain);
    BasicRoute<TypeParam> route{prefix,
                                Routing::Fib::RouteType(static_cast<std::uint8_t>(1 + random() % 255)),
                                Routing::RouteMetric(static_cast<std::uint32_t>(random())),
                                Routing::RoutePreference(static_cast<std::uint8_t>(random())),
                                Fib::FecId(random() * std::uint64_t{0x100000001}),
                                random() % 2 == 0,
                                random() % 2 == 0};
    BasicRoute<TypeParam> again{prefix, {}, {}, {}, {}};
    ASSERT_EQ(nullptr, decodeRoute(encodeRoute(route), again));
    EXPECT_EQ(route, again);
  }
}

TYPED_TEST(RouteRecord, malformedBytesAreNoRecord) {
  const auto keyFault = [](const std::string& bytes) -> std::string {
    VrfId vrfId(7);
    TypeParam prefix;
    const char* what = decodeRouteKey(bytes, vrfId, prefix);
    if (what) {
      EXPECT_EQ(VrfId(7), vrfId);
    }
    return what ? what : "";
  };
  const auto good = encodeRouteKey(VrfId(1), TypeParam());
  EXPECT_EQ("", keyFault(good));
  EXPECT_EQ("key of a wrong length", keyFault(good.substr(1)));
  EXPECT_EQ("key of a wrong length", keyFault(good + '\0'));
  EXPECT_EQ("key of an unknown VRF", keyFault("\xff\xff\xff" + good.substr(3)));
  EXPECT_EQ("prefix too long", keyFault(good.substr(0, good.size() - 1) + '\x81'));
  auto hostBits = good;
  hostBits[3] = 1;
  EXPECT_EQ("host bits in the prefix", keyFault(hostBits));

  BasicRoute<TypeParam> route;
  EXPECT_STREQ("value of a wrong length", decodeRoute(std::string(14, '\1'), route));
  EXPECT_STREQ("value of a wrong length", decodeRoute(std::string(16, '\1'), route));
  EXPECT_STREQ("route without a type", decodeRoute(std::string(15, '\0'), route));
  EXPECT_STREQ("unknown flags in the value", decodeRoute(std::string(15, '\4'), route));
  EXPECT_THROW(encodeRoute(route), Kel::RangeException);
  EXPECT_THROW(encodeRouteKey(VrfId(), TypeParam()), Kel::RangeException);
  EXPECT_THROW(encodeRouteKey(VrfId(0x1000000), TypeParam()), Kel::RangeException);
}

Fib::Fec fecOf(std::size_t vias) {
  Fib::Fec fec{Fib::FecId(0x0102030405060708), {}};
  for (std::size_t i = 0; i < vias; ++i) {
    Vantu::Ip6Addr::Bytes bytes{0xfe, 0x80};
    bytes.back() = static_cast<std::uint8_t>(i);
    const bool isIpv4 = i % 3 != 1;
    fec.via.push_back({isIpv4 ? Vantu::IpGenAddr(Vantu::IpAddr(static_cast<std::uint32_t>(i)))
                              : Vantu::IpGenAddr(Vantu::Ip6Addr(bytes)),
                       Vantu::IntfId(std::string(i % 256, 'n'))});
  }
  return fec;
}

TEST(FecRecord, carriesEveryVia) {
  Fib::Fec again{Fib::FecId(0x0102030405060708), {}};
  for (const std::size_t vias : {0U, 1U, 2U, 512U, 3U}) {
    const auto fec = fecOf(vias);
    ASSERT_EQ(nullptr, decodeFec(encodeFec(fec), again)) << vias;
    EXPECT_TRUE(fec == again) << vias;
  }
  VrfId vrfId;
  Fib::FecId fecId;
  ASSERT_EQ(nullptr, decodeFecKey(encodeFecKey(VrfId(258), again.fecId), vrfId, fecId));
  EXPECT_EQ(VrfId(258), vrfId);
  EXPECT_EQ(again.fecId, fecId);
}

TEST(FecRecord, malformedBytesAreNoRecord) {
  const auto whole = encodeFec(fecOf(3));
  Fib::Fec fec;
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_STREQ("value too short", decodeFec(std::string_view(whole).substr(0, size), fec)) << size;
    EXPECT_TRUE(fec.via.empty());
  }
  EXPECT_STREQ("bytes behind the last via", decodeFec(whole + 'x', fec));
  EXPECT_STREQ("too many vias", decodeFec(std::string("\x01\x02", 2) + whole, fec));
  EXPECT_STREQ("via of an unknown address family", decodeFec(std::string("\1\0\5", 3) + std::string(5, '\0'), fec));

  VrfId vrfId;
  Fib::FecId fecId;
  EXPECT_STREQ("key of a wrong length", decodeFecKey(std::string(10, '\1'), vrfId, fecId));
  EXPECT_STREQ("key of an unknown VRF", decodeFecKey(std::string(11, '\xff'), vrfId, fecId));
  EXPECT_STREQ("FEC id 0", decodeFecKey(std::string(11, '\0'), vrfId, fecId));

  EXPECT_THROW(encodeFec(fecOf(513)), Kel::RangeException);
  EXPECT_THROW(encodeFec({Fib::FecId(1), {Fib::Via()}}), Kel::RangeException);
  EXPECT_THROW(encodeFecKey(VrfId(1), Fib::FecId()), Kel::RangeException);
}

// The example of the page on the format.
TEST(FibRecord, bytesAreThoseOfTheFormat) {
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
