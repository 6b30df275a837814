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

  // Update the counts when the neighbour's entry was created, deleted or changed; without a key, begin a review. The
  // machine does both itself when its neighbour table notifies it. No-op for a key of another VRF. With a key: throws
  // Kel::RangeException for an address of the other IP version, and Quillo::StoreException if the store cannot be read.
  void handleArpEntry(const Arp::Table::ArpKey& key) { handleNeighbour(key); }
  void handleArpEntry() { handleNeighbour(); }
};

class Fib6StatsSm : public FibStatsMachine<Ip6Routes> {
  KEL_TYPE_BEGIN("FibStatsSnmp::Fib6StatsSm", Fib6StatsSm, FibStatsMachine<Ip6Routes>)
 public:
  using FibStatsMachine::FibStatsMachine;
  KEL_TYPE_END_DECLARE

  // As FibStatsSm::handleArpEntry().
  void handleNeighborEntry(const Arp::Table::ArpKey& key) { handleNeighbour(key); }
  void handleNeighborEntry() { handleNeighbour(); }
};

// Return a started machine, which runs until its last handle is released or kelStop() is called. No entity owns it.
// FibStatsMachine.h describes the arguments.
Kel::Ptr<FibStatsSm> fibStatsSmFactory(Kel::Ptr<const Quillo::Fib::RouteStatus> routeStatus,
                                       Kel::Ptr<const Arp::Table::Status> arpQuillo, Vrf::VrfIdMap::VrfId vrfId,
                                       Kel::Ptr<const Routing::Config> routingConfig,
                                       Kel::Ptr<FibStatsMib> fibStatsMib);
Kel::Ptr<Fib6StatsSm> fib6StatsSmFactory(Kel::Ptr<const Quillo::Fib6::RouteStatus> routeStatus,
                                         Kel::Ptr<const Arp::Table::Status> arpQuillo, Vrf::VrfIdMap::VrfId vrfId,
                                         Kel::Ptr<const Routing6::Config> routingConfig,
                                         Kel::Ptr<FibStatsMib> fibStatsMib);

}  // namespace FibStatsSnmp
