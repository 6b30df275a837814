#pragma once
// A walk over all keys of a table of routes or FECs for a follower of the table, in pieces that are short enough to run
// between two requests.
//
// It returns every key of the table, and every key that the follower knows, since the table may have lost some of
// these. The follower looks each one up, so afterwards its data equal the table.
// Requires: the follower is notified of changes between two pieces.
//
//   scan.begin();
//   while (scan.isOn()) {                        // perhaps once a turn
//     for (const auto& key : scan.piece(table, known)) { ... look it up ... }
//   }

#include <algorithm>
#include <optional>
#include <vector>

#include "quillo/tables/FibTables.h"

namespace Quillo {

// `Table` is Fib::RouteStatus, Fib6::RouteStatus or Fib::ForwardingStatus.
template <class Table>
class TableScan {
 public:
  using Key = typename Table::Key;

  // Most keys of a piece from the table, and from the follower: some tens of microseconds of work.
  static constexpr std::size_t pieceSize = 1024;

  // Begins at the first key; restarts a scan that is in progress.
  void begin() {
    isOn_ = true;
    after_.reset();
  }
  void end() { isOn_ = false; }
  bool isOn() const { return isOn_; }
  // During a scan: the last key of the pieces so far; null before the first piece.
  const Key* last() const { return after_ ? &*after_ : nullptr; }

  // Returns the next keys, each once, and ends the scan after the last ones. `known(after, visit)` calls `visit` with
  // the keys that the follower knows, in order, from upper_bound(*after) on (null: from the first) until `visit`
  // returns false. A null table has no keys. Damage is reported to the table; entries that cannot be read count as
  // missing.
  template <class Known>
  std::vector<Key> piece(const Table* table, Known&& known) {
    std::vector<Key> found = tablePiece(table);
    std::optional<Key> last;
    if (found.size() == pieceSize) last = found.back();
    std::size_t fromKnown = 0;
    known(after_ ? &*after_ : nullptr, [&](const Key& key) {
      if (last && *last < key) return false;
      found.push_back(key);
      if (++fromKnown < pieceSize) return true;
      last = key;  // later keys belong to the next piece
      return false;
    });
    if (last) std::erase_if(found, [&](const Key& key) { return *last < key; });
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    after_ = last;
    isOn_ = last.has_value();
    return found;
  }

 private:
  std::vector<Key> tablePiece(const Table* table) const {
    std::vector<Key> found;
    if (table == nullptr) return found;
    found.reserve(2 * pieceSize);
    try {
      table->forEachKey(after_.value_or(Key()), [&](const Key& key) {
        if (after_ && key == *after_) return true;
        found.push_back(key);
        return found.size() < pieceSize;
      });
    } catch (const Pesk::CorruptionDetectedException& damage) {
      table->corruptionDetected(damage.what());
    }
    return found;
  }

  bool isOn_ = false;
  std::optional<Key> after_;  // the scan has returned every key up to this one
};

}  // namespace Quillo
