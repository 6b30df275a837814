#pragma once
// Which prefixes of one VRF resolve through which FEC.
//
// Made for a million routes: a prefix costs two numbers of eight bytes in B-trees, one to find its FEC and one to
// find it from there, which is 17 to 25 bytes with the trees' own. A FEC costs some 50 bytes.

#include <absl/container/btree_set.h>

#include <boost/unordered/unordered_flat_map.hpp>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "kel/Ptr.h"
#include "quillo/Fec.h"
#include "vantu/Prefix.h"

namespace Quillo::Fib {

class FecRouteList : public Kel::PtrInterface {
 public:
  // FECs that can have prefixes at one time.
  static constexpr std::size_t maxFecs = std::size_t{1} << 26;

  std::size_t prefixCount() const { return byPrefix_.size(); }
  std::size_t fecCount() const { return slotOf_.size(); }

  // FecId() when the prefix is not in the list.
  FecId fecId(const Vantu::Prefix& prefix) const;
  // The prefix resolves through this FEC from now on, and through no other; FecId() takes it out of the list.
  // Throws Kel::RangeException when there are too many FECs.
  void fecIdIs(const Vantu::Prefix& prefix, const FecId& fecId);

  using Visit = std::function<bool(const Vantu::Prefix&)>;
  // The prefixes of a FEC, in order, from the first one above `*after` (null: from the first of all) until `visit`
  // returns false. `visit` must not change the list.
  void forEachPrefix(const FecId& fecId, const Vantu::Prefix* after, const Visit& visit) const;
  // The same for the prefixes of every FEC.
  void forEachPrefix(const Vantu::Prefix* after, const Visit& visit) const;

 private:
  // Small numbers stand for the FECs that have prefixes; those of FECs that lost their last one are used again.
  using Slot = std::uint32_t;
  struct Fec {
    FecId id;
    std::uint32_t prefixCount = 0;
  };

  Slot slotIs(const FecId& fecId);
  void slotReleased(Slot slot);

  // Each entry is address, length and slot in one number: 32, 6 and 26 bits in the order that the tree needs.
  absl::btree_set<std::uint64_t> byPrefix_;  // address, length, slot
  absl::btree_set<std::uint64_t> byFec_;     // slot, address, length
  boost::unordered_flat_map<FecId, Slot> slotOf_;
  std::deque<Fec> fecs_;  // by slot; it grows without moving what is there
  std::vector<Slot> freeSlots_;
};

}  // namespace Quillo::Fib
