#include "fibstats/agent/FibStatsSm.h"

KEL_TYPE_DEFINE(FibStatsSnmp::FibStatsSm)
KEL_TYPE_DEFINE(FibStatsSnmp::Fib6StatsSm)

namespace FibStatsSnmp {

Kel::Ptr<FibStatsSm> fibStatsSmFactory(Kel::Ptr<const Quillo::Fib::RouteStatus> routeStatus,
                                       Kel::Ptr<const Arp::Table::Status> arpQuillo, Vrf::VrfIdMap::VrfId vrfId,
                                       Kel::Ptr<const Routing::Config> routingConfig,
                                       Kel::Ptr<FibStatsMib> fibStatsMib) {
  return Kel::makePtr<FibStatsSm>(std::move(routeStatus), std::move(arpQuillo), vrfId, std::move(routingConfig),
                                  std::move(fibStatsMib));
}

Kel::Ptr<Fib6StatsSm> fib6StatsSmFactory(Kel::Ptr<const Quillo::Fib6::RouteStatus> routeStatus,
                                         Kel::Ptr<const Arp::Table::Status> arpQuillo, Vrf::VrfIdMap::VrfId vrfId,
                                         Kel::Ptr<const Routing6::Config> routingConfig,
                                         Kel::Ptr<FibStatsMib> fibStatsMib) {
  return Kel::makePtr<Fib6StatsSm>(std::move(routeStatus), std::move(arpQuillo), vrfId, std::move(routingConfig),
                                   std::move(fibStatsMib));
}

}  // namespace FibStatsSnmp
