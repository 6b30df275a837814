#pragma once
// Finds damage that no single lookup can see.
//
// A checksum proves only that a record is intact. To prove that a search finds every record, the scrubber walks each
// table in bounded steps, and compares count and digest with those that the publisher keeps for the table.
//
//   Scrubber scrubber(mount);
//   when idle: scrubber.step(1000) until it does not return `more`; again a minute later.
//
// The walk of a table starts again when the table changes between two steps. After `maxRestarts` the comparison of the
// table is skipped for this round; its records were checked nevertheless.
//
// Damage that the last round found is not reported again, since a report makes all readers of the mount rebuild.

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "kel/Ptr.h"
#include "quillo/Mount.h"

namespace Quillo {

class Scrubber {
 public:
  enum class Outcome {
    more,          // call again
    clean,         // a round over all tables is complete; the next call begins a new round
    inconclusive,  // the round is complete, but a table changed too fast to be compared
    damaged,       // damage was found, and reported if it is new; the next call begins a new round
    notReady,      // the store cannot be read now
  };
  static constexpr unsigned maxRestarts = 16;

  explicit Scrubber(Kel::Ptr<Mount> mount) : mount_(std::move(mount)) {}

  // Checks at most `budget` records (at least 1) on one snapshot.
  Outcome step(std::size_t budget);

 private:
  using Damage = std::pair<std::uint64_t, std::string>;  // generation of the store, message

  Outcome walk(std::size_t budget);
  Outcome nextTable();
  void beginRound();

  Kel::Ptr<Mount> mount_;
  std::size_t table_ = 0;  // index in knownTables
  bool begun_ = false;     // expected_ belongs to this table
  bool gaveUp_ = false;
  unsigned restarts_ = 0;
  std::uint64_t generation_ = 0;
  TableState expected_;
  TableState found_;
  std::string position_;  // first key not yet walked
  Damage known_;
};

}  // namespace Quillo
