#include "fibstats/FibStatsEntries.h"

KEL_TYPE_DEFINE(FibStatsSnmp::RouteCount)
KEL_TYPE_DEFINE(FibStatsSnmp::SummaryEntry)
KEL_TYPE_DEFINE(FibStatsSnmp::RouteTypeEntry)
KEL_TYPE_DEFINE(FibStatsSnmp::PrefixLenEntry)

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

}  // namespace FibStatsSnmp
