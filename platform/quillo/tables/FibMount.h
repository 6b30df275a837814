#pragma once
// The tables of routes and FECs of each VRF, read from the store.
//
//   auto follower = Kel::makePtr<Quillo::TableFollower>(mount);
//   auto fib = Kel::makePtr<Quillo::FibMount>(follower);
//   auto routes = fib->routeStatus(vrfId);
//   after each refresh of the mount, as a task:  while (follower->step(100)) ... yield if you should ...
//
// A table holds nothing: each lookup and each walk reads the store as it is at that moment. While the store cannot be
// read (there is none, it is damaged, it takes no further reader) they throw StoreException, so that no caller mistakes
// that for a table without entries; `onTable` is notified once it can be read again. The tables are initialized when the
// follower is.
//
// A lookup among a million entries takes about a microsecond where Mount::turnBeginsIs is in use, and without it the
// time of a read transaction more.

#include "quillo/TableFollower.h"
#include "quillo/tables/FibTables.h"
#include "vantu/VrfId.h"

namespace Quillo {

class FibMount : public Kel::PtrInterface {
 public:
  using VrfId = Vrf::VrfIdMap::VrfId;

  explicit FibMount(Kel::Ptr<TableFollower> follower);
  ~FibMount() override;

  // The same table as long as anybody holds it. A VRF id that no publisher can write gives a table without entries. The
  // tables keep this alive.
  Kel::Ptr<const Fib::RouteStatus> routeStatus(const VrfId& vrfId);
  Kel::Ptr<const Fib6::RouteStatus> route6Status(const VrfId& vrfId);
  Kel::Ptr<const Fib::ForwardingStatus> forwardingStatus(const VrfId& vrfId);

 private:
  template <class Record>
  class Table;
  template <class PrefixType>
  class Routes;
  class Fecs;
  struct Tables;

  template <class Call>
  void forEachTable(const Call& call);

  const std::unique_ptr<Tables> tables_;
  const TableWatch watch_;
};

}  // namespace Quillo
