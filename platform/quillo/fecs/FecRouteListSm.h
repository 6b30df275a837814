#pragma once
// Keeps a FecRouteList equal to a route table, and the interfaces of its FECs equal to a table of FECs.
//
// Routes: a changed route is looked up at once. The whole table is scanned in pieces at the start, and whenever any
// route may have changed. The scan at the start reads its first piece itself, which is all of a small table; the
// owner's task reads the others with scanPiece(). FECs: a FEC is looked up when it changes, and when it gets its
// first prefix. After a change of the whole table of FECs, it is looked up when a new scan of the routes reaches one
// of its prefixes.

#include <functional>

#include "kel/Collection.h"
#include "quillo/fecs/FecRouteList.h"
#include "quillo/tables/TableScan.h"

namespace FibUtils {

// The IPv4 next hops of a FEC (0.0.0.0 when on-link), each with the index of its via; of equal next hops the last one.
// Throws Kel::RangeException when the FEC has more than Fec::maxVias vias.
Kel::OrderedMap<Vantu::IpAddr, Quillo::Fib::ViaIndex> ipv4NextHops(const Quillo::Fib::Fec& fec);

class FecRouteListSm : public Kel::PtrInterface {
 public:
  using KelCtorTypes =
      std::tuple<Kel::Ptr<const Quillo::Fib::RouteStatus>, Kel::Ptr<const Quillo::Fib::ForwardingStatus>,
                 Kel::Ptr<Quillo::Fib::FecRouteList>>;
  static constexpr const char* kelCtorNames[] = {"routeStatus", "forwardingStatus", "fecRouteList"};
  // `forwardingStatus` is the table of the routes' FECs. If the route table is null, the list stays empty; if the table
  // of FECs is null, its FECs have no interfaces. In both cases the list is never complete.
  FecRouteListSm(Kel::Ptr<const Quillo::Fib::RouteStatus> routeStatus,
                 Kel::Ptr<const Quillo::Fib::ForwardingStatus> forwardingStatus,
                 Kel::Ptr<Quillo::Fib::FecRouteList> fecRouteList);
  auto kelCtorTie() const { return std::tie(routeStatus_, forwardingStatus_, fecRouteList_); }
  ~FecRouteListSm() override;
  void kelStart();
  // Leaves the prefixes in the list.
  void kelStop();

  // Whether pieces of the table remain to be read.
  bool isScanning() const { return scan_.isOn(); }
  void scanPiece();
  // Sets a function that is called whenever a scan begins that needs scanPiece().
  void setScanHandler(std::function<void()> scanBegins) { scanBegins_ = std::move(scanBegins); }

  // Looks up the route of this prefix, which was added, deleted or changed.
  void handleRoute(const Vantu::Prefix& prefix);
  // Looks up this FEC, which was added, deleted or changed.
  void handleFec(const Quillo::Fib::FecId& fecId);
  // Begins a scan, since any route may have changed, and reads the first piece.
  void handleRoute();
  // The same, but leaves the first piece to scanPiece() if setScanHandler() was called.
  void rescan();
  // Begins a scan that looks up all FECs, since any FEC may have changed.
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
  Quillo::TableScan<Quillo::Fib::RouteStatus> scan_;
  std::function<void()> scanBegins_;
};

}  // namespace FibUtils
