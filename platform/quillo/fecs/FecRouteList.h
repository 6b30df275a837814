#pragma once
// An index of the prefixes of one VRF by the FEC that each resolves through, and the search for the next prefix that
// resolves through some interface.
//
// Made for a million routes: a prefix costs two numbers of eight bytes in B-trees, one to find its FEC and one to find it
// from the FEC, which is 17 to 25 bytes with the trees' own. A FEC costs some 80 bytes.
//
// The search for an interface (nextThrough) must not look at prefixes that do not resolve through it, and a change of a
// FEC must not cost a step for each of its prefixes: of both there may be a million. So each FEC with more than `largeFec`
// prefixes is searched by itself: there cannot be many. The prefixes of all others have a third number, which finds them
// from the set of interfaces of their FEC and is renewed when that set changes: 8 to 12 bytes for each.

#include <absl/container/btree_set.h>

#include <boost/unordered/unordered_flat_map.hpp>
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
  // FECs that can have prefixes at one time.
  static constexpr std::size_t maxFecs = std::size_t{1} << 26;
  // A FEC with more prefixes is large until it has less than half of them.
  static constexpr std::uint32_t largeFec = 256;

  std::size_t prefixCount() const { return byPrefix_.size(); }

  // FecId() when the prefix is not in the list.
  FecId fecId(const Vantu::Prefix& prefix) const;
  // Sets the one FEC that the prefix resolves through; FecId() removes the prefix from the list. nextThrough() passes over
  // a prefix that is not sought. Throws Kel::RangeException when there are too many FECs.
  void fecIdIs(const Vantu::Prefix& prefix, const FecId& fecId, bool isSought = true);
  // The same for the FEC of a route, where the rule that soughtIs() sets decides whether it is sought (without a rule, all
  // are).
  void routeIs(const Vantu::Prefix& prefix, const Route& route);
  void soughtIs(std::function<bool(const Route&)> isSought) { isSought_ = std::move(isSought); }

  using Visit = std::function<bool(const Vantu::Prefix&)>;
  // The prefixes of a FEC, in order, from the first one above `*after` (null: from the first of all) until `visit`
  // returns false. `visit` must not change the list.
  void forEachPrefix(const FecId& fecId, const Vantu::Prefix* after, const Visit& visit) const;
  // The same for the prefixes of every FEC.
  void forEachPrefix(const Vantu::Prefix* after, const Visit& visit) const;

  // The interfaces of the FEC's next hops, sorted. A FEC without sought prefixes is left out, and one whose last sought
  // prefix goes is forgotten. Costs no more than the renumbering of `largeFec` prefixes.
  using Intfs = std::vector<Vantu::IntfId>;
  void fecIntfsIs(const FecId& fecId, const Intfs& intfs);
  bool hasSought(const FecId& fecId) const { return slotOf_.contains(fecId); }
  // The FEC has sought prefixes, and its interfaces were set neither since it has them nor since fecIntfsExpire().
  bool needsIntfs(const FecId& fecId) const;
  // Every FEC may have other interfaces now.
  void fecIntfsExpire() { ++intfsVersion_; }

  // Up to this prefix the list agrees with the tables (null: nowhere, as at first).
  void completeToIs(const Vantu::Prefix* last);
  // Finds the first sought prefix, from `from` on, whose FEC has a good interface. Where the list is not complete the
  // result may be a prefix before it, but none after it. False when there is none.
  bool nextThrough(const Vantu::Prefix& from, const std::function<bool(const Vantu::IntfId&)>& isGood,
                   Vantu::Prefix& result) const;

 private:
  // Small numbers stand for the FECs that have prefixes; those of FECs that lost their last one are used again. A FEC has
  // another one for the prefixes that are not sought.
  using Slot = std::uint32_t;
  // The same for sets of interfaces; 0 is the empty one.
  using IntfSet = std::uint32_t;
  struct Fec {
    FecId id;
    std::uint32_t prefixCount = 0;
    IntfSet intfSet = 0;
    std::uint64_t intfsVersion = 0;  // when the set was set; 0: never
    bool isSought = false;
    bool isLarge = false;
  };
  struct KnownIntfs {
    const Intfs* intfs = nullptr;
    std::uint32_t useCount = 0;  // FECs
  };
  using SlotOf = boost::unordered_flat_map<FecId, Slot>;
  using Numbers = absl::btree_set<std::uint64_t>;

  Slot slotIs(const FecId& fecId, bool isSought);
  void slotReleased(Slot slot);
  void prefixDel(const Vantu::Prefix& prefix, Slot slot);
  Numbers::const_iterator firstOf(const SlotOf& slots, const FecId& fecId, const Vantu::Prefix* after,
                                  Numbers::const_iterator& end) const;
  // Enters the FEC's prefixes under its set of interfaces, or takes them out.
  void renumber(Slot slot, bool isEntered);
  void intfSetIs(Slot slot, IntfSet intfSet);
  IntfSet intfSetOf(const Intfs& intfs);

  // Each entry is address, length and slot in one number: 32, 6 and 26 bits in the order that the tree needs.
  Numbers byPrefix_;   // address, length, slot
  Numbers byFec_;      // slot, address, length
  Numbers byIntfSet_;  // set of interfaces, address, length; sought prefixes of FECs that are not large
  SlotOf slotOf_, unsoughtSlotOf_;
  std::deque<Fec> fecs_;  // by slot; it grows without moving what is there
  std::vector<Slot> freeSlots_;
  absl::btree_set<Slot> largeFecs_;
  std::map<Intfs, IntfSet> intfSetOf_;
  std::vector<KnownIntfs> intfSets_{1};
  std::vector<IntfSet> freeIntfSets_;
  std::uint64_t intfsVersion_ = 1;
  std::uint64_t completeTo_ = 0;  // address, length; the list is complete below
  std::function<bool(const Route&)> isSought_;
};

}  // namespace Quillo::Fib
