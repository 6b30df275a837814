#pragma once
// The route cache of one VRF, which route_cache_bench and route_store_bench fill and measure in processor time.

#include <fmt/format.h>
#include <malloc.h>

#include <vector>

#include "Measure.h"
#include "ipsnmp/IpCidrRouteTableIteratorConst.h"
#include "ipsnmp/agent/route/PerVrfFecSm.h"

namespace Bench {

struct RouteCache {
  // Gives ifIndexes to 32 interfaces.
  RouteCache() {
    for (int i = 0; i < 32; ++i) ifMib->ifIndexByIntfIdIs(intfId(static_cast<unsigned>(i)), i + 1);
  }
  // One of these interfaces; `number` modulo 32.
  static Vantu::IntfId intfId(unsigned number) { return Vantu::IntfId(fmt::format("Ethernet{}", number % 32)); }

  // Runs tasks until none is ready; returns the longest turn, in seconds of processor time.
  double run() const {
    double longest = 0;
    for (bool isMore = true; isMore;) {
      const auto start = CpuClock::now();
      isMore = scheduler->runReady();
      longest = std::max(longest, secondsSince(start));
    }
    return longest;
  }

  // Walks the table and returns the number of rows.
  std::size_t walk() const {
    std::size_t rows = 0;
    for (IpSnmp::IpForwardMib::IpCidrRouteTableIteratorConst at(mib); at; ++at) ++rows;
    return rows;
  }

  static constexpr std::size_t randomSteps = 300'000;
  // Searches for the row after the last row of a prefix, as a GETNEXT does, and then calls `endTurn`; `randomSteps`
  // times, each time for another of `prefixes`. Requires: `prefixes` is not empty.
  template <class EndTurn>
  void getNextAtRandom(const std::vector<Vantu::Prefix>& prefixes, EndTurn&& endTurn) const {
    IpSnmp::IpForwardMib::IpCidrRouteTableIteratorConst at(mib);
    for (std::size_t i = 0; i < randomSteps; ++i) {
      const auto& prefix = prefixes[i * 7919 % prefixes.size()];
      at.fetch(IpSnmp::IpCidrRouteTableIndex(prefix.address(), prefix.netmask(), 0, Vantu::IpAddr(0xFFFFFFFF)),
               true);
      endTurn();
    }
  }

  Kel::Ptr<Brev::TaskScheduler> scheduler = Kel::makePtr<Brev::TaskScheduler>();
  Kel::Ptr<IntfSnmp::IfMib> ifMib = Kel::makePtr<IntfSnmp::IfMib>("ifMib");
  Kel::Ptr<IpSnmp::IpForwardMib> mib = Kel::makePtr<IpSnmp::IpForwardMib>("mib");
};

// Bytes that the process has allocated with malloc().
inline std::size_t usedBytes() {
  return mallinfo2().uordblks + mallinfo2().hblkhd;
}

}  // namespace Bench
