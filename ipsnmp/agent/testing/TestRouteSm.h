#pragma once
// For tests: a route table machine over tables in memory, with a clock that only the test moves.

#include "brev/testing/TestClock.h"
#include "ipsnmp/agent/route/IpRouteTableSm.h"
#include "ipsnmp/testing/TestRoutes.h"

namespace IpSnmpTest {

// It starts with two FECs: 1 with the next hop 10.1.1.1, 2 with 10.1.1.2 and 10.1.1.3, all on eth0 with ifIndex 3.
struct RouteSmTest : Brev::SchedulerTest, RouteTables {
  using Fecs = Ptr<const Quillo::Fib::ForwardingStatus>;
  using Texts = std::vector<std::string>;

  RouteSmTest() {
    intfIs("eth0", 3);
    fecIs(1, {{"10.1.1.1", "eth0"}});
    fecIs(2, {{"10.1.1.2", "eth0"}, {"10.1.1.3", "eth0"}});
  }
  void smIs(const Kel::Name& vrf, Ptr<const Quillo::Fib::RouteStatus> routeStatus, Fecs own, Fecs unified,
            Ptr<const IpSnmp::IpForwardFecs> all) {
    sm = Kel::makePtr<IpSnmp::IpRouteTableSm>(scheduler_, vrf, mib, routeStatus, own, unified, all, ifMib);
  }
  void smIs() { smIs("red", routes, fecs, nullptr, nullptr); }
  void smRuns() {
    smIs();
    run();
  }
  // Both tables notify that anything may have changed.
  void tablesAreNotified() {
    routes->tableIs(routes->map);
    fecs->tableIs(fecs->map);
  }
  static Vantu::Prefix numbered(unsigned i, unsigned length = 24) {
    return {Vantu::IpAddr(0x0B000000 + (i << 8)), length};
  }
  void numberedRoutesAre(unsigned count, unsigned fecId) {
    for (unsigned i = 0; i < count; ++i) routes->map[numbered(i)] = route(numbered(i), fecId);
  }

  // From now on each reading of the clock advances it by `tick`, so a run yields after a fixed number of readings.
  void tickIs(Kel::Seconds tick) {
    Kel::System::clockIs([this, tick] { return now_ += tick; });
  }
  // Runs tasks until none is ready.
  void run() {
    while (scheduler_->runReady()) {
    }
  }
  void runFor(Kel::Seconds seconds) {
    now_ += seconds;
    run();
  }

  RouteModel model{*this};
  Ptr<IpSnmp::IpRouteTableSm> sm;
};

}  // namespace IpSnmpTest
