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

TEST(FibStatsMib, values) {
  EXPECT_THROW(RouteTypeInstance(4), Kel::RangeException);
  for (const int length : {-1, 129}) {
    EXPECT_THAT(
        [&] { IpAddressPrefixLength wrong(length); },
        testing::ThrowsMessage<Kel::RangeException>("IpAddressPrefixLength::value < 0 or > 128 not allowed"));
  }
  EXPECT_EQ(summaryEntryFactory(ipVersion4)->totalRoutesDec(1), 0xFFFFFFFFU) << "there is no floor";
}

}  // namespace
}  // namespace FibStatsSnmp
