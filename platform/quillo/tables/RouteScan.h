#pragma once
// A walk over a whole route table for a follower of the table, in pieces that are short enough to run between two
// requests.
//
// It returns every prefix of the table, and every prefix that the follower knows, since the table may have lost some of
// these. The follower looks each one up, so afterwards its data equal the table.
// Requires: the follower is notified of changes between two pieces.
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
  // Most prefixes of a piece from the table, and from the follower: some tens of microseconds of work.
  static constexpr std::size_t pieceSize = 1024;

  // Begins at the first prefix; restarts a scan that is in progress.
  void begin() {
    isOn_ = true;
    after_.reset();
  }
  void end() { isOn_ = false; }
  bool isOn() const { return isOn_; }
  // During a scan: the last prefix of the pieces so far; null before the first piece.
  const PrefixType* last() const { return after_ ? &*after_ : nullptr; }

  // Returns the next prefixes, each once, and ends the scan after the last ones. `known(after, visit)` calls `visit`
  // with the prefixes that the follower knows, in order, from upper_bound(*after) on (null: from the first) until
  // `visit` returns false. A null table has no routes. Damage is reported to the table; routes that cannot be
  // read count as missing.
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
      last = prefix;  // later prefixes belong to the next piece
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
  std::optional<PrefixType> after_;  // the scan has returned every prefix up to this one
};

}  // namespace Quillo
