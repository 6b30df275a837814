#pragma once
// The FIB statistics cache of one VRF: how many routes its forwarding tables hold, in all, by route type and by
// prefix length. The statistics tables of a context are pointed at it.
//
// The numbers are kept one route at a time and never counted anew. A row exists just while its number is above 0.

#include "fibstats/FibStatsEntries.h"
#include "kel/Entity.h"

namespace FibStatsSnmp {

class FibStatsMib : public Kel::Entity {
  KEL_TYPE_BEGIN("FibStatsSnmp::FibStatsMib", FibStatsMib, Kel::Entity)
 public:
  KEL_NAMED(FibStatsMib, Kel::Entity)
  KEL_MEMBERS(Ordered, Ip::IpVersion, SummaryEntry, summaryTable, SummaryTable)
  KEL_MEMBERS(Ordered, RouteTypeKey, RouteTypeEntry, routeTypeTable, RouteTypeTable)
  KEL_MEMBERS(Ordered, PrefixLenKey, PrefixLenEntry, prefixLenTable, PrefixLenTable)

  // The default VRF's cache bears the name of its place, every other one the name of its VRF.
  Kel::Name vrfName() const { return name() == "fibstatsmib" ? Kel::Name("default") : name(); }
  KEL_COMPUTED(vrfName)
  KEL_TYPE_END_DECLARE

  // One more route.
  void routeInc(Ip::IpVersion af, RouteType type, IpAddressPrefixLength len);
  // One less; with the values that it was counted with. What has no row is passed over.
  void routeDec(Ip::IpVersion af, RouteType type, IpAddressPrefixLength len);
  // Every row of the address family goes.
  void routeDelAll(Ip::IpVersion af);
};

Kel::Ptr<FibStatsMib> fibStatsMibFactory(Kel::Name name);

}  // namespace FibStatsSnmp
