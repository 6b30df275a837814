#pragma once
// The pending changes of routes of all VRFs, written to the store in batches of limited size.
//
// Guarantees: within a batch a FEC is added before the first route that names it, and deleted after the last one. So a
// reader never finds a route whose FEC is missing.

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
  // Prefixes in one batch: some tens of milliseconds.
  static constexpr std::size_t changesPerCommit = 10'000;
  // Back-pressure: dumps of routes pause above this many pending changes, which limits the memory for them. What is
  // pending when a dump ends then fits into one commit.
  static constexpr std::size_t changesAhead = changesPerCommit / 2;

  // `routes` must outlive its membership.
  void add(VrfRoutes& routes) { members_.push_back(&routes); }
  void remove(VrfRoutes& routes) { std::erase(members_, &routes); }

  // What the store has of a VRF that is gone.
  struct Leftovers {
    Vrf::VrfIdMap::VrfId vrfId;
    std::vector<Vantu::Prefix> routes = {};
    std::vector<Vantu::Ip6Prefix> routes6 = {};
    std::vector<Quillo::Fib::FecId> fecs = {};
    std::size_t inBatch = 0;  // how many of them, routes first, are in the batch under way
    std::size_t size() const { return routes.size() + routes6.size() + fecs.size(); }
  };
  void leave(Leftovers leftovers);

  std::size_t pending() const;
  // Whether those who read lists have to wait.
  bool isFull() const { return !isStoreFailing_ && pending() > changesAhead; }
  // While nothing can be written, waiting is of no use.
  void storeFailingIs(bool isFailing) { isStoreFailing_ = isFailing; }

  // The store has nothing yet, or it is not known what it has.
  void allPending();

  // Adds what fits into one batch. It stays pending until written() tells that the commit succeeded; nothing may be
  // changed in between.
  void addTo(Quillo::Batch& batch);
  void written();

 private:
  std::size_t addLeftovers(Quillo::Batch& batch, std::size_t limit);
  bool isHeldUp(const VrfRoutes& member) const;

  std::vector<VrfRoutes*> members_;
  std::vector<VrfRoutes*> added_;  // to the batch under way
  std::list<Leftovers> leftovers_;
  bool isStoreFailing_ = false;
};

}  // namespace Mirror
