#pragma once
// Keeps a FecRouteList in step with a route table, and the interfaces of its FECs with a table of FECs.
//
// A route that changes is looked up at once. The whole table is read at the start, and whenever it notifies that anything
// may have changed. That goes in pieces: the first at once, which is all of a small table, the others when the owner calls
// scanPiece() in a task of its own. A FEC is looked up when it changes and when it gets its first prefix; after a change of
// the whole table of FECs, when a new scan of the routes meets its prefixes.

#include <functional>

#include "kel/Collection.h"
#include "quillo/fecs/FecRouteList.h"
#include "quillo/tables/RouteScan.h"

namespace FibUtils {

// The IPv4 next hops of a FEC (0.0.0.0 when on-link), each with the place of its via; of equal ones the last via counts.
// Throws Kel::RangeException when the FEC has more vias than a FEC may have.
Kel::OrderedMap<Vantu::IpAddr, Quillo::Fib::ViaIndex> ipv4NextHops(const Quillo::Fib::Fec& fec);

class FecRouteListSm : public Kel::PtrInterface {
 public:
  using KelCtorTypes =
      std::tuple<Kel::Ptr<const Quillo::Fib::RouteStatus>, Kel::Ptr<const Quillo::Fib::ForwardingStatus>,
                 Kel::Ptr<Quillo::Fib::FecRouteList>>;
  static constexpr const char* kelCtorNames[] = {"routeStatus", "forwardingStatus", "fecRouteList"};
  // `forwardingStatus` is the table of the routes' FECs. Either table may be null: the list then stays empty, or its FECs
  // without interfaces, and is never complete.
  FecRouteListSm(Kel::Ptr<const Quillo::Fib::RouteStatus> routeStatus,
                 Kel::Ptr<const Quillo::Fib::ForwardingStatus> forwardingStatus,
                 Kel::Ptr<Quillo::Fib::FecRouteList> fecRouteList);
  auto kelCtorTie() const { return std::tie(routeStatus_, forwardingStatus_, fecRouteList_); }
  ~FecRouteListSm() override;
  void kelStart();
  // Leaves the list as it is.
  void kelStop();

  const Kel::Ptr<const Quillo::Fib::RouteStatus>& routeStatus() const { return routeStatus_; }
  const Kel::Ptr<const Quillo::Fib::ForwardingStatus>& forwardingStatus() const { return forwardingStatus_; }
  const Kel::Ptr<Quillo::Fib::FecRouteList>& fecRouteList() const { return fecRouteList_; }

  // There are pieces of the table left to read.
  bool isScanning() const { return scan_.isOn(); }
  void scanPiece();
  // Called whenever a scan begins that one piece does not end.
  void scanBeginsIs(std::function<void()> scanBegins) { scanBegins_ = std::move(scanBegins); }

  // The route of this prefix was added, deleted or changed.
  void handleRoute(const Vantu::Prefix& prefix);
  // This FEC was.
  void handleFec(const Quillo::Fib::FecId& fecId);
  // Any route may have changed.
  void handleRoute();
  // The same, but where scanBeginsIs() was called nothing is read before the first scanPiece().
  void rescan();
  // Any FEC may have changed.
  void rescanFecs();

 private:
  class KelRouteStatus;
  class KelForwardingStatus;
  void beginScan();

  const Kel::Ptr<const Quillo::Fib::RouteStatus> routeStatus_;
  const Kel::Ptr<const Quillo::Fib::ForwardingStatus> forwardingStatus_;
  const Kel::Ptr<Quillo::Fib::FecRouteList> fecRouteList_;
  Kel::Ptr<KelRouteStatus> kelRouteStatus_;  // null: not started, or stopped
  Kel::Ptr<KelForwardingStatus> kelForwardingStatus_;
  Quillo::Fib::Fec fecScratch_;
  Quillo::RouteScan<Vantu::Prefix> scan_;
  std::function<void()> scanBegins_;
};

}  // namespace FibUtils
