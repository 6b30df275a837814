#include "fibstats/FibStatsMib.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace FibStatsSnmp {
namespace {

using Ip::ipVersion4, Ip::ipVersion6;

TEST(FibStatsMib, eachFamilyIsCountedAndGoesAlone) {
  const auto mib = fibStatsMibFactory("fibstatsmib");
  mib->routeInc(ipVersion4, routeTypeStatic, 24);
  mib->routeDec(ipVersion6, routeTypeStatic, 24);
  EXPECT_EQ(mib->summaryTable(ipVersion4)->totalRoutes(), 1U);
  mib->routeInc(ipVersion6, routeTypeBgp, 0);
  mib->routeDelAll(ipVersion4);
  EXPECT_EQ(mib->summaryTable().keys(), std::vector{ipVersion6});
  mib->routeDec(ipVersion6, routeTypeBgp, 0);
  EXPECT_EQ(mib->summaryTable().size() + mib->routeTypeTable().size() + mib->prefixLenTable().size(), 0U);
}

TEST(FibStatsMib, keysAreInTheOrderOfTheTables) {
  const auto mib = fibStatsMibFactory("red");
  for (const auto af : {ipVersion6, ipVersion4}) {
    for (const unsigned type : {205U, 204U, 203U, 202U, 201U, 200U, 14U, 13U, 9U, 8U, 3U, 2U, 1U}) {
      mib->routeInc(af, RouteTypeInstance(type), type == 1 ? 128 : 9);
    }
  }
  std::vector<int> numbers;
  for (const auto& key : mib->routeTypeTable().keys())
    numbers.push_back(key.addressFamily() * 1000 + key.routeType());
  EXPECT_THAT(numbers,
              ::testing::ElementsAre(1001, 1002, 1003, 1008, 1009, 1013, 1014, 1200, 1201, 1202, 1203, 1204, 1205,
                                     2001, 2002, 2003, 2008, 2009, 2013, 2014, 2200, 2201, 2202, 2203, 2204, 2205));
  EXPECT_THAT(mib->prefixLenTable().keys(),
              ::testing::ElementsAre(PrefixLenKey(ipVersion4, 9), PrefixLenKey(ipVersion4, 128),
                                     PrefixLenKey(ipVersion6, 9), PrefixLenKey(ipVersion6, 128)));
  EXPECT_TRUE(mib->prefixLenTableDel(mib->prefixLenTable().begin()));
  EXPECT_FALSE(mib->prefixLenTableHas(PrefixLenKey(ipVersion4, 9)));
}

TEST(FibStatsMib, valuesInText) {
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
  EXPECT_EQ(fibStatsMibFactory("fibstatsmib")->vrfName(), "default");
  EXPECT_EQ(fibStatsMibFactory("red")->vrfName(), "red");
}

TEST(FibStatsMib, subtractionDoesNotStopAtZero) {
  const auto row = summaryEntryFactory(ipVersion4);
  EXPECT_EQ(row->totalRoutesDec(1), 0xFFFFFFFFU);
  row->totalRoutesInc(3);
  EXPECT_EQ(row->totalRoutes(), 2U);
}

}  // namespace
}  // namespace FibStatsSnmp
