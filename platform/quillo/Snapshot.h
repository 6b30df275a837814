#pragma once
// One consistent version of the store: its records, and the journal of changes. Made by Mount::snapshot().
//
// Requires: a caller takes, uses and releases it within one turn of the event loop. While it exists, the publisher
// cannot reuse the pages that it replaces, so the store grows.
// Throws Pesk::CorruptionDetectedException for a record whose check fails, an error of the storage engine and a fault
// of the mapping; pass it to Mount::corruptionDetected. After a fault of the mapping every further call on snapshots
// and scans of the same version throws it too.
//
// The journal. Every change of the store has the next sequence number (1, 2, ...). The journal is an index by that
// number. It holds only the latest change of each key, so its size is bounded by the data and the tombstones of
// deleted keys. A reader that was slow or restarted asks for the changes after its bookmark, and gets each key once,
// in the order of the latest changes.
//
// Above a limit, the oldest tombstones are dropped. A reader whose bookmark is older than a dropped tombstone may have
// missed a deletion, so it gets `tooOld` and rebuilds:
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

// A reader's position in the journal. The default bookmark always gets `tooOld`.
struct Bookmark {
  std::uint64_t generation = 0;  // of the store; a recreated store has another
  std::uint64_t epoch = 0;       // of the mount; damage begins a new one
  std::uint64_t seq = 0;         // the reader has seen all changes up to this number
  bool operator==(const Bookmark&) const = default;
};

struct Change {
  enum class Kind : std::uint8_t { put = 1, deletion = 2 };
  std::uint64_t seq = 0;
  // A newer publisher may write a table that this build does not know: skip its changes.
  TableId table = TableId::varnix;
  Kind kind = Kind::put;
  std::string key;
};

struct Changes {
  bool tooOld = false;  // the reader must rebuild; there are no changes, and `next` is the head
  bool more = false;    // the limit was reached: ask again with `next`
  std::vector<Change> changes;
  Bookmark next;  // pass it to the next call
};

// What a version of the store takes in the data file. The file's other pages are free for later changes.
struct StoreSizes {
  Head journal;
  std::size_t recordBytes = 0;
  std::size_t journalBytes = 0;
  std::size_t tombstoneBytes = 0;
};

// A walk over one table in key order. Lifetime: one turn, like its snapshot.
//
//   for (Scan scan = snapshot.scan(TableId::varnix, from); scan.valid(); scan.next()) ...
class Scan {
 public:
  Scan(Scan&&) noexcept;
  ~Scan();
  // Whether the scan is at a record; all operations below require it.
  bool valid() const { return valid_; }
  void next();
  // Lifetime: valid until next().
  Bytes key() const;
  Bytes value() const;
  std::uint64_t checksum() const;  // a summand of TableState::digest

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

  // The value of a key; nullopt if there is no such key. Lifetime: valid until the next get() on this snapshot.
  std::optional<Bytes> get(TableId table, Bytes key);
  // Begins at lower_bound(lowerBound); an empty bound is the beginning of the table.
  Scan scan(TableId table, Bytes lowerBound = {}) const;
  // Throws a StoreException of kind `version` when the first record of a table has a layout that this program does not
  // know. Ignores damage, which later reads report.
  void checkLayouts() const;
  // At most `limit` (at least 1) changes after the bookmark, oldest first. A key that was put and that a search does
  // not find is damage.
  Changes changesSince(const Bookmark& bookmark, std::size_t limit) const;

  bool firstPassComplete() const { return completePass().has_value(); }
  // The latest complete pass.
  std::optional<CompletePass> completePass() const;
  TableState tableState(TableId table) const;
  StoreSizes sizes() const;

 private:
  friend class Mount;
  explicit Snapshot(std::shared_ptr<View> view);
  std::shared_ptr<View> view_;
  std::string buffer_;
};

// Return false to end the walk.
using VisitRecord = std::function<bool(const Scan& scan)>;
using VisitDamage = std::function<bool(const std::string& key, const Pesk::CorruptionDetectedException& damage)>;

// Visits the records of `table` in key order from lower_bound(from) on, and calls `damaged` in place of a damaged
// record. Finding the key of such a record costs a few reads, or some thousands if the key itself is damaged. Returns
// whether the walk reached the end of the table. Throws for damage that ends the walk (a fault of the mapping, a
// damaged page).
bool scanAround(const Snapshot& snapshot, TableId table, std::string from, const VisitRecord& visit,
                const VisitDamage& damaged);

// The smallest storable key above `key`; empty when there is none.
std::string keyAfter(std::string key);

// False when damage has made the whole version unreadable.
bool isReadable(const Snapshot& snapshot);

}  // namespace Quillo
