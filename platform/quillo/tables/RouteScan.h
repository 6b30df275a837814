#pragma once
// A walk over a whole route table on behalf of a follower of it, cut into pieces that fit between two requests.
//
// It names every prefix of the table, and every prefix that the follower knows and the table may have lost; the follower
// looks each one up. So a follower that knows nothing learns everything, and one that missed changes is corrected without
// losing what is still valid. Requires that the follower is notified of changes between two pieces.
//
//   scan.begin();
//   while (scan.isOn()) {                        // perhaps once a turn
//     for (const auto& prefix : scan.piece(table, known)) { ... look it up ... }
//   }

#include <algorithm>
#include <optional>
#include <vector>

#include "quillo/tables/FibTables.h"

namespace Quillo {

template <class PrefixType>
class RouteScan {
 public:
  // The most prefixes that a piece takes from each side: some tens of microseconds of work.
  static constexpr std::size_t pieceSize = 1024;

  // Begins at the first prefix, also when a scan is on.
  void begin() {
    isOn_ = true;
    after_.reset();
  }
  void end() { isOn_ = false; }
  bool isOn() const { return isOn_; }
  // While it is on: the last prefix of the pieces so far; null before the first one.
  const PrefixType* last() const { return after_ ? &*after_ : nullptr; }

  // The next prefixes, each once; ends the scan when there are none behind them. `known(after, visit)` calls `visit` with
  // the prefixes that the follower knows, in order, from upper_bound(*after) on (null: from the first) until `visit`
  // returns false. A null table has no routes. Damage is reported to the table; what could be read counts as all there
  // is.
  template <class Known>
  std::vector<PrefixType> piece(const BasicRouteStatus<PrefixType>* table, Known&& known) {
    std::vector<PrefixType> found = tablePiece(table);
    std::optional<PrefixType> last;
    if (found.size() == pieceSize) last = found.back();
    std::size_t fromKnown = 0;
    known(after_ ? &*after_ : nullptr, [&](const PrefixType& prefix) {
      if (last && *last < prefix) return false;
      found.push_back(prefix);
      if (++fromKnown < pieceSize) return true;
      last = prefix;  // the stretch ends here; what lies behind belongs to the next piece
      return false;
    });
    if (last) std::erase_if(found, [&](const PrefixType& prefix) { return *last < prefix; });
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    after_ = last;
    isOn_ = last.has_value();
    return found;
  }

 private:
  std::vector<PrefixType> tablePiece(const BasicRouteStatus<PrefixType>* table) const {
    std::vector<PrefixType> found;
    if (table == nullptr) return found;
    found.reserve(2 * pieceSize);
    try {
      table->forEachRoute(after_.value_or(PrefixType()), [&](const auto& route) {
        if (after_ && route.prefix == *after_) return true;
        found.push_back(route.prefix);
        return found.size() < pieceSize;
      });
    } catch (const Pesk::CorruptionDetectedException& damage) {
      table->corruptionDetected(damage.what());
    }
    return found;
  }

  bool isOn_ = false;
  std::optional<PrefixType> after_;  // every prefix up to this one was named
};

}  // namespace Quillo
