#pragma once
// The rows of the FIB statistics, and their keys. A key's order is the order of its table's rows.

#include "fibstats/IpAddressPrefixLength.h"
#include "fibstats/RouteType.h"
#include "kel/Attribute.h"
#include "varnix/IpVersion.h"

namespace FibStatsSnmp {

class RouteTypeKey {
  KEL_VALUE_TYPE("FibStatsSnmp::RouteTypeKey", RouteTypeKey,
                 ((Ip::IpVersion, addressFamily))((FibStatsSnmp::RouteType, routeType)))
};

class PrefixLenKey {
  KEL_VALUE_TYPE("FibStatsSnmp::PrefixLenKey", PrefixLenKey,
                 ((Ip::IpVersion, addressFamily))((FibStatsSnmp::IpAddressPrefixLength, prefixLen)))
};

// What every row has.
class RouteCount : public Kel::Notifier {
  KEL_TYPE_BEGIN("FibStatsSnmp::RouteCount", RouteCount, Kel::Notifier)
 public:
  KEL_STORED(std::uint32_t, totalRoutes, TotalRoutes, 0)
  KEL_TYPE_END_DECLARE

  void totalRoutesInc(std::uint32_t n) { totalRoutesIs(totalRoutes() + n); }
  // Returns the new number, which is modulo 2^32: nothing stops it at 0.
  std::uint32_t totalRoutesDec(std::uint32_t n) {
    const std::uint32_t left = totalRoutes() - n;
    totalRoutesIs(left);
    return left;
  }
};

class SummaryEntry : public RouteCount {
  KEL_TYPE_BEGIN("FibStatsSnmp::SummaryEntry", SummaryEntry, RouteCount)
 public:
  KEL_CONSTRUCTOR(SummaryEntry, ((Ip::IpVersion, ipVersion)))
  KEL_TYPE_END_DECLARE
};

class RouteTypeEntry : public RouteCount {
  KEL_TYPE_BEGIN("FibStatsSnmp::RouteTypeEntry", RouteTypeEntry, RouteCount)
 public:
  KEL_CONSTRUCTOR(RouteTypeEntry, ((FibStatsSnmp::RouteTypeKey, key)))
  KEL_TYPE_END_DECLARE
};

class PrefixLenEntry : public RouteCount {
  KEL_TYPE_BEGIN("FibStatsSnmp::PrefixLenEntry", PrefixLenEntry, RouteCount)
 public:
  KEL_CONSTRUCTOR(PrefixLenEntry, ((FibStatsSnmp::PrefixLenKey, key)))
  KEL_TYPE_END_DECLARE
};

Kel::Ptr<SummaryEntry> summaryEntryFactory(Ip::IpVersion ipVersion);
Kel::Ptr<RouteTypeEntry> routeTypeEntryFactory(const RouteTypeKey& key);
Kel::Ptr<PrefixLenEntry> prefixLenEntryFactory(const PrefixLenKey& key);

}  // namespace FibStatsSnmp
