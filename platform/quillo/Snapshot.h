#pragma once
// One consistent view of the store. Made by Mount::snapshot().
//
// Rules:
// - Take it, use it, let it go within one turn of the event loop. While it lives, pages that the publisher replaces
//   cannot be reused and the store grows.
// - Every record is copied out of the mapping and checked before it is handed out. A record that fails, an error of
// the
//   storage engine, or a fault of the mapping raises Pesk::CorruptionDetectedException; after a fault of the
//   mapping every further call on snapshots and scans of that view raises it too. Hand the exception to
//   Mount::corruptionDetected.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "kel/Ptr.h"
#include "kel/System.h"
#include "quillo/Corruption.h"
#include "quillo/Journal.h"
#include "quillo/Table.h"

namespace Quillo {

class Mount;
class RecordCursor;
struct View;

// "A publisher has completed a pass over everything it publishes."
struct CompletePass {
  std::uint64_t seq = 0;  // head of the journal at its end
  Kel::Seconds time = 0;  // framework clock of the publisher
  std::string publisher;  // its program name
};

// What the publisher keeps beside each table, in the same transaction as the data.
struct TableState {
  std::uint64_t count = 0;    // records
  std::uint64_t digest = 0;   // sum of the checksums of the records, modulo 2^64
  std::uint64_t version = 0;  // sequence number of the latest change in the table
  bool operator==(const TableState&) const = default;
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
  friend class MountImpl;
  explicit Snapshot(std::shared_ptr<View> view);
  std::shared_ptr<View> view_;
  std::string buffer_;
};

}  // namespace Quillo
