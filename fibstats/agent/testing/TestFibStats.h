#pragma once
// For tests: the statistics of one IP version over tables in memory, in the VRF "red", on a clock that the test moves.

#include <fmt/format.h>

#include <map>
#include <utility>

#include "brev/testing/TestClock.h"
#include "fibstats/agent/FibStatsSm.h"
#include "kel/Trace.h"
#include "quillo/testing/TestArpTable.h"
#include "quillo/testing/TestFibTables.h"

namespace FibStatsSnmp {

// The rows of one IP version: "4: total; type:count ...; length:count ...".
inline std::string rowsOf(const FibStatsMib& mib, Ip::IpVersion version) {
  const auto row = mib.summaryTable(version);
  std::string text = row ? std::to_string(row->totalRoutes()) : "none";
  text += ";";
  for (const auto& [key, entry] : mib.routeTypeTable()) {
    if (key.addressFamily() == version) text += fmt::format(" {}:{}", int{key.routeType()}, entry->totalRoutes());
  }
  text += ";";
  for (const auto& [key, entry] : mib.prefixLenTable()) {
    if (key.addressFamily() == version)
      text += fmt::format(" {}:{}", key.prefixLen().value(), entry->totalRoutes());
  }
  return text;
}

template <class Family>
struct FibStatsWorld : Brev::SchedulerTest {
  using Prefix = typename Family::Prefix;
  using Route = typename Family::RouteStatus::Route;
  using Sm = std::conditional_t<Family::version == Ip::ipVersion4, FibStatsSm, Fib6StatsSm>;
  static constexpr bool isIp4 = Family::version == Ip::ipVersion4;

  FibStatsWorld() {
    Kel::TraceConfig::levelsAre("FibStatsSm/0-9");
    previousSink = Kel::TraceConfig::sinkIs([this](const auto&, unsigned level, const auto& text) {
      lines.push_back(fmt::format("{} {}", level, text));
    });
  }
  ~FibStatsWorld() override {
    Kel::TraceConfig::sinkIs(previousSink);
    Kel::TraceConfig::reset();
  }

  static Vantu::IpGenAddr addr(unsigned n) {
    return Vantu::IpGenAddr::fromString(isIp4 ? fmt::format("10.{}.{}.{}", n >> 16U, (n >> 8U) & 255U, n & 255U)
                                              : fmt::format("2001:db8::{:x}:{:x}", n >> 16U, n & 65535U));
  }
  static Prefix host(unsigned n) { return Family::host(addr(n)); }
  static Prefix net(unsigned n, unsigned length) { return {host(n).address(), length}; }
  static Route route(const Prefix& prefix, unsigned type, unsigned preference = 1, unsigned metric = 0) {
    Route made;
    made.prefix = prefix;
    made.routeType = Routing::Fib::RouteType(static_cast<std::uint8_t>(type));
    made.routePreference = Routing::RoutePreference(static_cast<std::uint8_t>(preference));
    made.metric = Routing::RouteMetric(metric);
    return made;
  }
  static Arp::Table::ArpEntry neighbour(const Vantu::IpGenAddr& address, const char* intf, unsigned vrfId = 7) {
    Arp::Table::ArpEntry entry;
    entry.key = {Vrf::VrfIdMap::VrfId(vrfId), address, Vantu::IntfId(intf)};
    return entry;
  }

  void start() { sm = Kel::makePtr<Sm>(routes, arp, Vrf::VrfIdMap::VrfId(7), config, mib); }
  void runTasks() {
    while (scheduler_->runReady()) {
    }
  }
  std::string rows() const { return rowsOf(*mib, Family::version); }
  std::vector<std::string> takeLines() { return std::exchange(lines, {}); }

  Kel::Ptr<Quillo::TestRouteStatus<Prefix>> routes = Kel::makePtr<Quillo::TestRouteStatus<Prefix>>();
  Kel::Ptr<Arp::Table::TestStatus> arp = Kel::makePtr<Arp::Table::TestStatus>();
  Kel::Ptr<typename Family::Config> config = Kel::makePtr<typename Family::Config>("red");
  Kel::Ptr<FibStatsMib> mib = fibStatsMibFactory("red");
  Kel::Ptr<Sm> sm;
  std::vector<std::string> lines;
  Kel::TraceConfig::Sink previousSink;
};

}  // namespace FibStatsSnmp
