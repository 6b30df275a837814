#include "fibstats/FibStatsMib.h"

KEL_TYPE_DEFINE(FibStatsSnmp::RouteCount)
KEL_TYPE_DEFINE(FibStatsSnmp::SummaryEntry)
KEL_TYPE_DEFINE(FibStatsSnmp::RouteTypeEntry)
KEL_TYPE_DEFINE(FibStatsSnmp::PrefixLenEntry)
KEL_TYPE_DEFINE(FibStatsSnmp::FibStatsMib)

namespace FibStatsSnmp {

IpAddressPrefixLength::IpAddressPrefixLength(std::int64_t value) : value_(static_cast<int>(value)) {
  if (value < 0 || value > 128) {
    throw Kel::RangeException("IpAddressPrefixLength::value < 0 or > 128 not allowed");
  }
}

Kel::Ptr<SummaryEntry> summaryEntryFactory(Ip::IpVersion ipVersion) {
  return Kel::makePtr<SummaryEntry>(ipVersion);
}

Kel::Ptr<RouteTypeEntry> routeTypeEntryFactory(const RouteTypeKey& key) {
  return Kel::makePtr<RouteTypeEntry>(key);
}

Kel::Ptr<PrefixLenEntry> prefixLenEntryFactory(const PrefixLenKey& key) {
  return Kel::makePtr<PrefixLenEntry>(key);
}

void FibStatsMib::routeInc(Ip::IpVersion af, RouteType type, IpAddressPrefixLength len) {
  summaryTableIs(af)->totalRoutesInc(1);
  routeTypeTableIs(RouteTypeKey(af, type))->totalRoutesInc(1);
  prefixLenTableIs(PrefixLenKey(af, len))->totalRoutesInc(1);
}

void FibStatsMib::routeDec(Ip::IpVersion af, RouteType type, IpAddressPrefixLength len) {
  if (const auto row = summaryTable(af); row && row->totalRoutesDec(1) == 0) summaryTableDel(af);
  const RouteTypeKey typeKey(af, type);
  if (const auto row = routeTypeTable(typeKey); row && row->totalRoutesDec(1) == 0) routeTypeTableDel(typeKey);
  const PrefixLenKey lenKey(af, len);
  if (const auto row = prefixLenTable(lenKey); row && row->totalRoutesDec(1) == 0) prefixLenTableDel(lenKey);
}

void FibStatsMib::routeDelAll(Ip::IpVersion af) {
  summaryTableDel(af);
  for (const auto& key : routeTypeTable().keys()) {
    if (key.addressFamily() == af) routeTypeTableDel(key);
  }
  for (const auto& key : prefixLenTable().keys()) {
    if (key.addressFamily() == af) prefixLenTableDel(key);
  }
}

Kel::Ptr<FibStatsMib> fibStatsMibFactory(Kel::Name name) {
  return Kel::makePtr<FibStatsMib>(std::move(name));
}

}  // namespace FibStatsSnmp
