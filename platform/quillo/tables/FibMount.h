#pragma once
// Reads the tables of routes and FECs of each VRF from the store.
//
//   auto follower = Kel::makePtr<Quillo::TableFollower>(mount);
//   auto fib = Kel::makePtr<Quillo::FibMount>(follower);
//   auto routes = fib->routeStatus(vrfId);
//   after each refresh of the mount, as a task:  while (follower->step(100)) ... yield if you should ...
//
// A table has no copy of the entries: each lookup and each walk reads the current contents of the store. Both throw
// StoreException while the store is unreadable (missing, damaged, or without a free reader slot), so that no caller
// removes its rows for that reason. `onTable` is notified once the store can be read. The tables are initialized when
// the follower is.
//
// A lookup among a million entries takes about a microsecond when lookups of a turn share a snapshot
// (Mount::setTurnHandler); otherwise each also costs a read transaction.

#include "quillo/TableFollower.h"
#include "quillo/tables/FibTables.h"
#include "vantu/VrfId.h"

namespace Quillo {

class FibMount : public Kel::PtrInterface {
 public:
  using VrfId = Vrf::VrfIdMap::VrfId;

  explicit FibMount(const Kel::Ptr<TableFollower>& follower);
  ~FibMount() override;

  // Return the same object for a VRF while a handle to it exists. A VRF id that the store cannot hold has an empty
  // table.
  // Lifetime: the tables hold this object.
  Kel::Ptr<const Fib::RouteStatus> routeStatus(const VrfId& vrfId);
  Kel::Ptr<const Fib6::RouteStatus> route6Status(const VrfId& vrfId);
  Kel::Ptr<const Fib::ForwardingStatus> forwardingStatus(const VrfId& vrfId);

 private:
  struct Tables;

  template <class Call>
  void forEachTable(const Call& call);

  const std::unique_ptr<Tables> tables_;
  const TableWatch watch_;
};

}  // namespace Quillo
