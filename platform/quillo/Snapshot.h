#pragma once
// One consistent version of the store: its records, and the journal of what changed. Made by Mount::snapshot().
//
// Requires: it is taken, used and let go within one turn of the event loop. While it lives, pages that the publisher
// replaces cannot be reused and the store grows.
// Throws Pesk::CorruptionDetectedException for a record whose check fails, an error of the storage engine and a fault of
// the mapping; hand it to Mount::corruptionDetected. After a fault of the mapping every further call on snapshots and
// scans of the same version throws it too.
//
// The journal. Every change of the store takes the next sequence number (1, 2, ...). The journal is an index by that
// number, which holds the latest change of each key and nothing older: it never outgrows the data plus the tombstones of
// deleted keys. A reader that was slow, or was started again, asks for the changes after its bookmark and gets each key
// once, in the order of the latest changes.
//
// Tombstones are dropped, oldest first, past a limit. A reader whose bookmark lies before a dropped tombstone may have
// missed a deletion: it gets `tooOld` and rebuilds:
//
//   Bookmark mark = mount->snapshot().bookmark();      // first, then
//   ... scan every table of interest, over as many turns as it takes ...
//   ... then changesSince(mark, ...) as usual ...

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kel/Ptr.h"
#include "quillo/StoreException.h"
#include "quillo/Table.h"

namespace Quillo {

class Mount;
class RecordCursor;
struct View;

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

// A walk over one table in key order. Lives no longer than the turn, like its snapshot.
//
//   for (Scan scan = snapshot.scan(TableId::varnix, from); scan.valid(); scan.next()) ...
class Scan {
 public:
  Scan(Scan&&) noexcept;
  ~Scan();
  bool valid() const { return valid_; }
  void next();
  // Valid until next().
  Bytes key() const;
  Bytes value() const;
  std::uint64_t seq() const;       // of the record's latest change
  std::uint64_t checksum() const;  // the record's share in TableState::digest

 private:
  friend class Snapshot;
  Scan(std::shared_ptr<View> view, TableId table, Bytes lowerBound);
  void settle(bool found);
  std::shared_ptr<View> view_;
  std::unique_ptr<RecordCursor> cursor_;
  TableId table_;
  bool valid_ = false;
};

class Snapshot {
 public:
  Snapshot(Snapshot&&) noexcept;
  ~Snapshot();

  std::uint64_t generation() const;
  std::uint64_t seq() const;  // head of the journal
  Bookmark bookmark() const;  // of the head

  // The value, valid until the next get on this snapshot; none when the key is not there.
  std::optional<Bytes> get(TableId table, Bytes key);
  // From the first key that is not below `lowerBound`; an empty bound is the table's beginning.
  Scan scan(TableId table, Bytes lowerBound = {}) const;
  // Throws a StoreException of kind version when a table begins with a record of a layout that this program does not
  // know. Damage is left to those who come to read it.
  void checkLayouts() const;
  // At most `limit` (at least 1) changes after the bookmark, oldest first.
  Changes changesSince(const Bookmark& bookmark, std::size_t limit) const;

  bool firstPassComplete() const { return completePass().has_value(); }
  // The latest one.
  std::optional<CompletePass> completePass() const;
  TableState tableState(TableId table) const;

 private:
  friend class Mount;
  explicit Snapshot(std::shared_ptr<View> view);
  std::shared_ptr<View> view_;
  std::string buffer_;
};

// Both end a walk by returning false.
using VisitRecord = std::function<bool(const Scan& scan)>;
using VisitDamage = std::function<bool(const std::string& key, const Pesk::CorruptionDetectedException& damage)>;

// Visits the records of `table` in key order, from lower_bound(from) on. For a damaged record `damaged` is called in its
// place; to find its key costs a few reads, and some thousand where the key itself is damaged. True when the walk reached
// the end of the table. Throws damage that makes the walk itself impossible (a fault of the mapping, a damaged page).
bool scanAround(const Snapshot& snapshot, TableId table, std::string from, const VisitRecord& visit,
                const VisitDamage& damaged);

// The least key above `key` that can be stored; empty when there is none.
std::string keyAfter(std::string key);

// False when damage has made the whole version unreadable, not only a record.
bool isReadable(const Snapshot& snapshot);

}  // namespace Quillo
