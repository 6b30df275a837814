#pragma once
// The neighbours that the shared tables must have, and the changes that are not yet written to the store.
//
// A batch gets the changes in two parts: deletions before the documents of the interfaces, additions after them. So a
// reader that applies changes in order knows an interface as long as it has neighbours.

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

  // What more is pending than this is written by further commits: one transaction must not grow without limit.
  static constexpr std::size_t changesPerCommit = 20'000;

  // Only what really differs becomes pending.
  void neighboursAre(const Place& place, const KernelNeighbours& neighbours);
  void neighbourIs(const Place& place, const Vantu::IpGenAddr& addr, const KernelNeighbour& neighbour);
  void neighbourDel(const Place& place, const Vantu::IpGenAddr& addr);
  void placeDel(const Place& place) { neighboursAre(place, {}); }

  std::size_t size() const { return size_; }
  bool pending() const { return !gone_.empty() || !come_.empty(); }
  // Everything counts as changed: for a full pass.
  void allPending();

  // Adds no more than changesPerCommit to the batch. They stay pending until written() tells that the commit
  // succeeded; nothing may be changed in between.
  void addGone(Quillo::Batch& batch);
  void addCome(Quillo::Batch& batch);
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
