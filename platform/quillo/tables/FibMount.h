#pragma once
// The tables of routes and FECs of each VRF, as an agent reads them from the store.
//
//   auto follower = Kel::makePtr<Quillo::TableFollower>(mount);
//   auto fib = Kel::makePtr<Quillo::FibMount>(follower);
//   auto routes = fib->routeStatus(vrfId);
//   after each refresh of the mount, as a task:  while (follower->step(100)) ... yield if you should ...
//
// A table holds nothing: each lookup and each walk reads the store as it is at that moment. While the store cannot be
// read (there is none, it is damaged, it takes no further reader) they throw StoreException, so that nobody takes that
// for a table without entries, and once it can be read again `onTable` is told. Until the follower has told it, the
// tables are not initialized.
//
// A lookup among a million entries takes about a microsecond where Mount::turnBeginsIs is in use, and without it the
// time of a read transaction more.

#include <unordered_map>

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
  class Source;
  template <class Base>
  class Table;
  template <class PrefixType>
  class Routes;
  class Fecs;
  class Following;
  class RouteKeys;
  class Route6Keys;
  class FecKeys;
  template <class T>
  using Tables = std::unordered_map<std::uint32_t, T*>;  // by VRF id, while they exist

  template <class T, class Base>
  Kel::Ptr<const Base> table(Tables<T>& tables, const VrfId& vrfId);
  template <class Call>
  void forEachTable(const Call& call);
  void tellInitialized();
  void tellTables();
  template <class PrefixType>
  void tellRoute(const Tables<Routes<PrefixType>>& tables, const std::string& key);
  void tellFec(const std::string& key);

  const Kel::Ptr<Source> source_;
  Tables<Routes<Vantu::Prefix>> routes_;
  Tables<Routes<Vantu::Ip6Prefix>> routes6_;
  Tables<Fecs> fecs_;
  Kel::Ptr<Following> following_;
  Kel::Ptr<RouteKeys> routeKeys_;
  Kel::Ptr<Route6Keys> route6Keys_;
  Kel::Ptr<FecKeys> fecKeys_;
};

}  // namespace Quillo
