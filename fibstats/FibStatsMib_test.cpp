#include "fibstats/FibStatsMib.h"

#include <gmock/gmock.h>

namespace FibStatsSnmp {
namespace {

using Ip::ipVersion4, Ip::ipVersion6;

TEST(FibStatsMib, eachFamilyIsCountedAndGoesAlone) {
  const auto mib = fibStatsMibFactory("red");
  mib->routeInc(ipVersion4, routeTypeStatic, 24);
  mib->routeDec(ipVersion6, routeTypeStatic, 24);
  EXPECT_EQ(mib->summaryTable(ipVersion4)->totalRoutes(), 1U);
  mib->routeInc(ipVersion6, routeTypeBgp, 0);
  mib->routeDelAll(ipVersion4);
  EXPECT_EQ(mib->summaryTable().keys(), std::vector{ipVersion6});
  mib->routeDec(ipVersion6, routeTypeBgp, 0);
  EXPECT_EQ(mib->summaryTable().size() + mib->routeTypeTable().size() + mib->prefixLenTable().size(), 0U);
  EXPECT_EQ(fibStatsMibFactory("fibstatsmib")->vrfName() + mib->vrfName(), "defaultred");
}

TEST(FibStatsMib, rowsAreInTheOrderOfTheirNumbers) {
  const std::vector<int> numbers{1, 2, 3, 8, 9, 13, 14, 200, 201, 202, 203, 204, 205};
  const auto mib = fibStatsMibFactory("red");
  for (auto at = numbers.rbegin(); at != numbers.rend(); ++at) {
    const auto type = RouteTypeInstance(static_cast<unsigned>(*at));
    for (const auto af : {ipVersion6, ipVersion4}) mib->routeInc(af, type, *at % 129);
  }
  std::vector<int> found;
  for (const auto& key : mib->routeTypeTable().keys()) {
    if (key.addressFamily() == (found.size() < numbers.size() ? ipVersion4 : ipVersion6)) {
      found.push_back(key.routeType());
    }
  }
  const auto half = found.begin() + static_cast<std::ptrdiff_t>(numbers.size());
  EXPECT_EQ(std::vector(found.begin(), half), numbers);
  EXPECT_EQ(std::vector(half, found.end()), numbers);
  EXPECT_TRUE(std::ranges::is_sorted(mib->prefixLenTable().keys()));
}

TEST(FibStatsMib, values) {
  EXPECT_EQ(Kel::print(RouteTypeKey(ipVersion6, routeTypeOspfv3)),
            "Value('FibStatsSnmp::RouteTypeKey', ** {'addressFamily': ipVersion6, 'routeType': routeTypeOspfv3})");
  EXPECT_EQ(Kel::print(PrefixLenKey(ipVersion4, 32)),
            "Value('FibStatsSnmp::PrefixLenKey', ** {'addressFamily': ipVersion4, 'prefixLen': "
            "Value('FibStatsSnmp::IpAddressPrefixLength', ** {'value': 32})})");
  EXPECT_EQ(RouteTypeInstance("routeTypeVcs"), routeTypeVcs);
  EXPECT_THROW(RouteTypeInstance(4), Kel::RangeException);
  for (const int length : {-1, 129}) {
    EXPECT_THAT(
        [&] { IpAddressPrefixLength wrong(length); },
        testing::ThrowsMessage<Kel::RangeException>("IpAddressPrefixLength::value < 0 or > 128 not allowed"));
  }
  const auto row = summaryEntryFactory(ipVersion4);
  EXPECT_EQ(row->totalRoutesDec(1), 0xFFFFFFFFU) << "there is no floor";
}

}  // namespace
}  // namespace FibStatsSnmp
