#pragma once
// For tests: a state machine of the route table over tables in memory, on a clock that the test moves.

#include "brev/testing/TestClock.h"
#include "ipsnmp/agent/route/IpRouteTableSm.h"
#include "ipsnmp/testing/TestRoutes.h"

namespace IpSnmpTest {

struct RouteSmTest : Brev::SchedulerTest, RouteTables {
  using Fecs = Ptr<const Quillo::Fib::ForwardingStatus>;

  void smIs(const Kel::Name& vrf, Ptr<const Quillo::Fib::RouteStatus> routeStatus, Fecs own, Fecs unified,
            Ptr<const IpSnmp::IpForwardFecs> all) {
    sm = Kel::makePtr<IpSnmp::IpRouteTableSm>(scheduler_, vrf, mib, routeStatus, own, unified, all, ifMib);
  }
  void smIs() { smIs("red", routes, fecs, nullptr, nullptr); }

  // From now on each look at the clock moves it, so that a run yields after so many looks.
  void tickIs(Kel::Seconds tick) {
    Kel::System::clockIs([this, tick] { return now_ += tick; });
  }
  // Until nothing is left to do now.
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
