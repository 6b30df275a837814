#pragma once
// What changed since N.
//
// Every change of the store takes the next sequence number (1, 2, ...). The journal is an index by that number
// which holds the latest change of each key and nothing older: it never outgrows the data plus the tombstones of
// deleted keys. So a reader that was slow, or was started again, asks for the changes after its bookmark and gets
// each key once, in the order of the latest changes.
//
// Tombstones are dropped, oldest first, past a limit. A reader whose bookmark lies before a dropped tombstone may
// have missed a deletion; it is told `tooOld` and rebuilds:
//
//   Bookmark mark = mount->snapshot().bookmark();      // first, then
//   ... scan every table of interest, over as many turns as it takes ...
//   ... then changesSince(mark, ...) as usual ...

#include <cstdint>
#include <string>
#include <vector>

#include "quillo/Table.h"

namespace Quillo {

// A reader's place in the journal. The default one is older than everything: it always gets `tooOld`.
struct Bookmark {
  std::uint64_t generation = 0;  // of the store; a recreated store has another
  std::uint64_t epoch = 0;       // of the mount; damage that was met begins a new one
  std::uint64_t seq = 0;         // everything up to this number has been seen
  bool operator==(const Bookmark&) const = default;
};

struct Change {
  enum class Kind : std::uint8_t { put = 1, deletion = 2 };
  std::uint64_t seq = 0;
  // May be a number that this build does not know (a newer publisher): skip such changes.
  TableId table = TableId::varnix;
  Kind kind = Kind::put;
  std::string key;
};

struct Changes {
  bool tooOld = false;  // rebuild; the other members are then empty, `next` is the head
  bool more = false;    // the limit was reached: ask again from `next`
  std::vector<Change> changes;
  Bookmark next;  // pass it to the next call
};

}  // namespace Quillo
