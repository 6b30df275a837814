#pragma once
// Reads the documents of a store in bounded turns: first all of them, then their changes. Internal to EntityManager.
//
// Guarantees:
// - Documents are copied out; no snapshot outlives a turn.
// - A damaged record is an item without text, and the rest is read. It is reported to the mount, which reopens the
//   store, and all documents are read again. Records that are still damaged are not reported a second time.
// - At the end of a reading of all documents their number is compared with the store's count, unless a document has
//   changed meanwhile. If they differ, the last item is a damaged one with an empty path.
// - Damage outside a record ends the turn. All documents are read again once the mount has reopened the store.

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "quillo/Mount.h"

namespace Varnix {

class DocumentFeed {
 public:
  struct Item {
    std::string path;
    std::optional<std::string> text;  // nullopt: the document does not exist, or is damaged
    bool isDamaged = false;           // in a reading of all documents, the path may be damaged as well
  };
  struct Turn {
    bool begins = false;    // these items begin a new reading of all documents
    bool ends = false;      // these items end it
    bool more = false;      // call again
    bool passIsIn = false;  // the turns so far include the first complete pass of a publisher
    std::string obstacle;   // for the operator: why this turn could not read a store that is ready
    std::vector<Item> items;
  };

  explicit DocumentFeed(Kel::Ptr<Quillo::Mount> mount) : mount_(std::move(mount)) {}

  // Reads at most `limit` (at least 1) documents; none unless the mount is ready. With `holdsBack`, a store other
  // than the one read so far is read only once it holds a complete pass. Does not throw: damage is reported to the
  // mount, and other faults are in Turn::obstacle.
  Turn turn(std::size_t limit, bool holdsBack);

  // The journal position up to which changes were read; the default (oldest) bookmark during a reading of all
  // documents.
  Quillo::Bookmark bookmark() const { return loading_ ? Quillo::Bookmark() : mark_; }

  // Whether the last turn read nothing because the store lacks a complete pass.
  bool heldBack() const { return heldBack_; }

 private:
  void read(Quillo::Snapshot& snapshot, std::size_t limit, bool holdsBack, Turn& turn);
  void begin(const Quillo::Snapshot& snapshot, Turn& turn);
  void load(const Quillo::Snapshot& snapshot, std::size_t limit, Turn& turn);
  void checkCount(const Quillo::Snapshot& snapshot, Turn& turn);
  void follow(Quillo::Snapshot& snapshot, std::size_t limit, Turn& turn);
  void damageMet(const std::string& path, const std::string& what, Turn& turn);
  void reportDamage();

  Kel::Ptr<Quillo::Mount> mount_;
  Quillo::Bookmark mark_;  // the next change to read
  bool loading_ = false;
  std::string loadFrom_;  // the first key not yet read
  std::size_t loaded_ = 0;
  bool heldBack_ = false;
  std::map<std::string, std::string> damaged_;  // what is wrong, by path
  std::vector<std::string> unreported_;
};

}  // namespace Varnix
