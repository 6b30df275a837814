#pragma once
// An index of the prefixes of one VRF by the FEC that each resolves through, and the search for the next prefix that
// resolves through some interface.
//
// A prefix is sought if its route may have rows, as the caller decides; nextThrough() skips all others.
//
// Designed for a million routes. Each prefix has an entry of eight bytes in two B-trees, one by prefix and one by
// FEC, which is 17 to 25 bytes with the overhead of the trees. A FEC costs some 50 bytes.
//
// There may be a million prefixes on other interfaces, or of one FEC. So the search by interface (nextThrough) must
// skip the former at no cost, and a change of a FEC must cost less than a visit of the latter. Therefore:
// - FECs with more than `largeFec` prefixes, of which there are few, are searched one by one.
// - The prefixes of all other FECs have an entry of 8 to 12 bytes in a third tree, by the FEC's set of interfaces. A
//   change of that set renews these entries.

#include <absl/container/btree_set.h>

#include <boost/unordered/unordered_flat_set.hpp>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <vector>

#include "kel/Ptr.h"
#include "quillo/tables/FibTables.h"

namespace Quillo::Fib {

class FecRouteList : public Kel::PtrInterface {
 public:
  // Maximal number of FECs with prefixes.
  static constexpr std::size_t maxFecs = std::size_t{1} << 26;
  // A FEC is large from more than this number of prefixes until it has less than half of it.
  static constexpr std::uint32_t largeFec = 256;

  std::size_t prefixCount() const { return byPrefix_.size(); }

  // FecId() when the prefix is not in the list.
  FecId fecId(const Vantu::Prefix& prefix) const;
  // Sets the FEC through which the prefix resolves, and whether the prefix is sought. FecId() removes the prefix from
  // the list. Throws Kel::RangeException above maxFecs.
  void fecIdIs(const Vantu::Prefix& prefix, const FecId& fecId, bool isSought = true);
  // The same for a route's FEC. The predicate that setSoughtPredicate() sets decides whether the prefix is sought;
  // without one, every prefix is.
  void routeIs(const Vantu::Prefix& prefix, const Route& route);
  void setSoughtPredicate(std::function<bool(const Route&)> isSought) { isSought_ = std::move(isSought); }

  using Visit = std::function<bool(const Vantu::Prefix&)>;
  // Visits the prefixes of a FEC, in order, from upper_bound(*after) on (null: from the first) until `visit` returns
  // false.
  // Requires: `visit` does not change the list.
  void forEachPrefix(const FecId& fecId, const Vantu::Prefix* after, const Visit& visit) const;
  // Visits the prefixes of all FECs likewise.
  void forEachPrefix(const Vantu::Prefix* after, const Visit& visit) const;

  // Sets the interfaces of the FEC's next hops. Only FECs with sought prefixes have interfaces: this is a no-op for
  // others, and removing the last sought prefix of a FEC removes its interfaces. Costs at most the renewal of
  // `largeFec` entries.
  // Requires: `intfs` is sorted and without duplicates.
  using Intfs = std::vector<Vantu::IntfId>;
  void setFecInterfaces(const FecId& fecId, const Intfs& intfs);
  bool hasSought(const FecId& fecId) const { return slotOf_.contains(fecId); }
  // Whether the FEC has sought prefixes and its interfaces are unset or expired.
  bool needsIntfs(const FecId& fecId) const;
  // Marks the interfaces of all FECs as expired: they may have changed.
  void expireFecInterfaces() { ++intfsVersion_; }

  // Sets the prefix up to which the list agrees with the tables (null, the initial value: nowhere).
  void setCompleteTo(const Vantu::Prefix* last);
  // Finds the first sought prefix from lower_bound(from) on whose FEC has a good interface. Where the list is
  // incomplete, `result` is that prefix or a lesser one. False when there is none.
  bool nextThrough(const Vantu::Prefix& from, const std::function<bool(const Vantu::IntfId&)>& isGood,
                   Vantu::Prefix& result) const;

 private:
  // A small number for a FEC with prefixes; it is reused when the FEC has lost its last prefix. A FEC has a second
  // slot for its prefixes that are not sought.
  using Slot = std::uint32_t;
  // A small number for a set of interfaces; 0 is the empty set.
  using IntfSet = std::uint32_t;
  struct Fec {
    FecId id;
    std::uint32_t prefixCount = 0;
    IntfSet intfSet = 0;
    std::uint32_t intfsVersion = 0;  // the list's intfsVersion_ when intfSet was set; 0: never
    bool isSought = false;
    bool isLarge = false;
  };
  struct KnownIntfs {
    const Intfs* intfs = nullptr;
    std::uint32_t useCount = 0;  // FECs
  };
  // Finds the slot of a FEC, whose id is in fecs_ alone.
  struct SlotById {
    using is_transparent = void;
    const std::deque<Fec>& fecs;
    const FecId& idOf(const FecId& fecId) const { return fecId; }
    const FecId& idOf(Slot slot) const { return fecs[slot].id; }
    std::size_t operator()(const auto& key) const { return boost::hash<FecId>()(idOf(key)); }
    bool operator()(const auto& a, const auto& b) const { return idOf(a) == idOf(b); }
  };
  using SlotOf = boost::unordered_flat_set<Slot, SlotById, SlotById>;
  using Numbers = absl::btree_set<std::uint64_t>;

  Slot slotFor(const FecId& fecId, bool isSought);
  void releaseSlot(Slot slot);
  void erasePrefix(const Vantu::Prefix& prefix, Slot slot);
  Numbers::const_iterator firstOf(const SlotOf& slots, const FecId& fecId, const Vantu::Prefix* after,
                                  Numbers::const_iterator& end) const;
  // Inserts the FEC's prefixes into byIntfSet_, or erases them.
  void renumber(Slot slot, bool isEntered);
  void setIntfSet(Slot slot, IntfSet intfSet);
  IntfSet intfSetOf(const Intfs& intfs);

  // Each entry packs address (32 bits), length (6) and slot or set (26) into one number, in the order of the tree.
  Numbers byPrefix_;      // address, length, slot
  Numbers byFec_;         // slot, address, length
  Numbers byIntfSet_;     // set of interfaces, address, length; sought prefixes of FECs that are not large
  std::deque<Fec> fecs_;  // by slot; growth does not move elements
  SlotOf slotOf_{0, SlotById{fecs_}, SlotById{fecs_}}, unsoughtSlotOf_{0, SlotById{fecs_}, SlotById{fecs_}};
  std::vector<Slot> freeSlots_;
  absl::btree_set<Slot> largeFecs_;
  std::map<Intfs, IntfSet> intfSetOf_;
  std::vector<KnownIntfs> intfSets_{1};
  std::vector<IntfSet> freeIntfSets_;
  std::uint32_t intfsVersion_ = 1;
  std::uint64_t completeTo_ = 0;  // address, length; the list is complete below
  std::function<bool(const Route&)> isSought_;
};

}  // namespace Quillo::Fib
