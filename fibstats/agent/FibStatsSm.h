#pragma once
// The state machines that keep the route counts of one VRF: FibStatsSm for IPv4, Fib6StatsSm for IPv6.
// FibStatsMachine.h describes the counting.

#include "fibstats/agent/FibStatsMachine.h"

namespace FibStatsSnmp {

class FibStatsSm : public FibStatsMachine<Ip4Routes> {
  KEL_TYPE_BEGIN("FibStatsSnmp::FibStatsSm", FibStatsSm, FibStatsMachine<Ip4Routes>)
 public:
  using FibStatsMachine::FibStatsMachine;
  KEL_TYPE_END_DECLARE

  // Call it when the neighbour's entry was created, deleted or changed; without a key: when any entry may have changed.
  void handleArpEntry(const Arp::Table::ArpKey& key) { handleNeighbour(key); }
  void handleArpEntry() { handleNeighbour(); }
};

class Fib6StatsSm : public FibStatsMachine<Ip6Routes> {
  KEL_TYPE_BEGIN("FibStatsSnmp::Fib6StatsSm", Fib6StatsSm, FibStatsMachine<Ip6Routes>)
 public:
  using FibStatsMachine::FibStatsMachine;
  KEL_TYPE_END_DECLARE

  void handleNeighborEntry(const Arp::Table::ArpKey& key) { handleNeighbour(key); }
  void handleNeighborEntry() { handleNeighbour(); }
};

// Create a machine without an owner. An owner's create-or-get operation takes the same arguments.
Kel::Ptr<FibStatsSm> fibStatsSmFactory(Kel::Ptr<const Quillo::Fib::RouteStatus> routeStatus,
                                       Kel::Ptr<const Arp::Table::Status> arpQuillo, Vrf::VrfIdMap::VrfId vrfId,
                                       Kel::Ptr<const Routing::Config> routingConfig,
                                       Kel::Ptr<FibStatsMib> fibStatsMib);
Kel::Ptr<Fib6StatsSm> fib6StatsSmFactory(Kel::Ptr<const Quillo::Fib6::RouteStatus> routeStatus,
                                         Kel::Ptr<const Arp::Table::Status> arpQuillo, Vrf::VrfIdMap::VrfId vrfId,
                                         Kel::Ptr<const Routing6::Config> routingConfig,
                                         Kel::Ptr<FibStatsMib> fibStatsMib);

}  // namespace FibStatsSnmp
