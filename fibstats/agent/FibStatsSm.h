#pragma once
// The state machines that keep the route counts of one VRF: FibStatsSm those of IPv4, Fib6StatsSm those of IPv6.
// What they do is said in FibStatsMachine.h.

#include "fibstats/agent/FibStatsMachine.h"

namespace FibStatsSnmp {

class FibStatsSm : public FibStatsMachine<Ip4Routes> {
  KEL_TYPE_BEGIN("FibStatsSnmp::FibStatsSm", FibStatsSm, Kel::Entity)
 public:
  using FibStatsMachine::FibStatsMachine;
  KEL_LINK(__COUNTER__, , describeConstructor<KelSelf>(type))
  KEL_TYPE_END_DECLARE

  // An entry of the table of neighbours came, went, or says something else; without a key: any of them may have.
  void handleArpEntry(const Arp::Table::ArpKey& key) { handleNeighbour(key); }
  void handleArpEntry() { handleNeighbour(); }
};

class Fib6StatsSm : public FibStatsMachine<Ip6Routes> {
  KEL_TYPE_BEGIN("FibStatsSnmp::Fib6StatsSm", Fib6StatsSm, Kel::Entity)
 public:
  using FibStatsMachine::FibStatsMachine;
  KEL_LINK(__COUNTER__, , describeConstructor<KelSelf>(type))
  KEL_TYPE_END_DECLARE

  void handleNeighborEntry(const Arp::Table::ArpKey& key) { handleNeighbour(key); }
  void handleNeighborEntry() { handleNeighbour(); }
};

// For use without an owner; inside one, the owner's create-or-get operation takes the same arguments.
Kel::Ptr<FibStatsSm> fibStatsSmFactory(Kel::Ptr<const Quillo::Fib::RouteStatus> routeStatus,
                                       Kel::Ptr<const Arp::Table::Status> arpQuillo, Vrf::VrfIdMap::VrfId vrfId,
                                       Kel::Ptr<const Routing::Config> routingConfig,
                                       Kel::Ptr<FibStatsMib> fibStatsMib);
Kel::Ptr<Fib6StatsSm> fib6StatsSmFactory(Kel::Ptr<const Quillo::Fib6::RouteStatus> routeStatus,
                                         Kel::Ptr<const Arp::Table::Status> arpQuillo, Vrf::VrfIdMap::VrfId vrfId,
                                         Kel::Ptr<const Routing6::Config> routingConfig,
                                         Kel::Ptr<FibStatsMib> fibStatsMib);

}  // namespace FibStatsSnmp
