#pragma once
// The pending route changes of all VRFs, written to the store in batches of limited size.
//
// Guarantees: a batch adds a FEC before the first route that names it, and deletes it after the last one. So readers
// find the FEC of every route.

#include <cstddef>
#include <list>
#include <vector>

#include "quillo/Publisher.h"
#include "quillo/tables/Fec.h"
#include "vantu/Prefix.h"
#include "vantu/VrfId.h"

namespace Mirror {

class VrfRoutes;

class PublishedRoutes {
 public:
  // Prefixes in one batch; writing them takes some tens of milliseconds.
  static constexpr std::size_t changesPerCommit = 10'000;
  // Back-pressure: dumps of routes pause above this many pending changes, which limits memory. One commit then writes
  // everything that is pending at the end of a dump.
  static constexpr std::size_t changesAhead = changesPerCommit / 2;

  // Lifetime: `routes` must live until it is removed.
  void add(VrfRoutes& routes) { members_.push_back(&routes); }
  void remove(VrfRoutes& routes) { std::erase(members_, &routes); }

  // Records that the store still has for a VRF id under which the routes are no longer published. They are deleted
  // before another VRF with the same id is written.
  struct Leftovers {
    Vrf::VrfIdMap::VrfId vrfId;
    std::vector<Vantu::Prefix> routes = {};
    std::vector<Vantu::Ip6Prefix> routes6 = {};
    std::vector<Quillo::Fib::FecId> fecs = {};
    std::size_t inBatch = 0;  // how many of them, routes first, the open batch deletes
    std::size_t size() const { return routes.size() + routes6.size() + fecs.size(); }
  };
  // Makes the deletion of these records pending.
  void leave(Leftovers leftovers);

  std::size_t pending() const;
  // Whether dumps must pause. While the store cannot be written they continue, since waiting would not help.
  bool isFull() const { return !isStoreFailing_ && pending() > changesAhead; }
  void setStoreFailing(bool isFailing) { isStoreFailing_ = isFailing; }

  // Makes everything pending, since the store is empty or its contents are unknown.
  void allPending();

  // Adds as many changes as one batch takes. Call written() once the commit succeeded.
  // Requires: no change between addTo() and written().
  void addTo(Quillo::Batch& batch);
  void written();

 private:
  std::size_t addLeftovers(Quillo::Batch& batch, std::size_t limit);
  bool isHeldUp(const VrfRoutes& member) const;

  std::vector<VrfRoutes*> members_;
  std::vector<VrfRoutes*> added_;  // to the open batch
  std::list<Leftovers> leftovers_;
  bool isStoreFailing_ = false;
};

}  // namespace Mirror
