#pragma once
// The neighbours to publish, and those of their changes that are not yet in the store.
//
// A batch takes deletions before the documents of the interfaces, and additions after them. So a reader that applies
// changes in order knows the interface of every neighbour.

#include <cstddef>
#include <map>
#include <set>

#include "mirror/kernel/KernelState.h"
#include "quillo/Publisher.h"
#include "vantu/IntfId.h"
#include "vantu/VrfId.h"

namespace Mirror {

class NeighbourTable {
 public:
  // An interface in a VRF.
  struct Place {
    Vrf::VrfIdMap::VrfId vrfId;
    Vantu::IntfId intfId;
    friend auto operator<=>(const Place&, const Place&) = default;
  };

  // The limit for one transaction; further commits write the rest.
  static constexpr std::size_t changesPerCommit = 20'000;

  // Replace all neighbours of the place, or add, change or delete one of them. Only differences become pending.
  void writeNeighbours(const Place& place, const KernelNeighbours& neighbours);
  void neighbourIs(const Place& place, const Vantu::IpGenAddr& addr, const KernelNeighbour& neighbour);
  void neighbourDel(const Place& place, const Vantu::IpGenAddr& addr);
  void placeDel(const Place& place) { writeNeighbours(place, {}); }

  std::size_t size() const { return size_; }
  bool pending() const { return !gone_.empty() || !come_.empty(); }
  // Makes all neighbours pending, for a full pass.
  void allPending();

  // Add at most changesPerCommit changes to the batch. Call written() once the commit succeeded.
  // Requires: no change between the first add and written().
  void addDeletions(Quillo::Batch& batch);
  void addAdditions(Quillo::Batch& batch);
  void written();

  // For tests and comparison.
  const std::map<Place, KernelNeighbours>& places() const { return places_; }

 private:
  using Key = std::pair<Place, Vantu::IpGenAddr>;

  std::map<Place, KernelNeighbours> places_;
  std::size_t size_ = 0;
  std::set<Key> gone_;
  std::set<Key> come_;
  std::size_t addedGone_ = 0;  // of the front of the set
  std::size_t addedCome_ = 0;
};

}  // namespace Mirror
