#pragma once
// Reads the documents of a store in bounded turns: first all there are, then what changes. Internal to the entity
// manager.
//
// Documents are copied out, and no snapshot lives when a turn ends. Damage is reported to the mount. A damaged
// record is left out, as if it were not there, and the rest is read; the mount then opens the store again,
// everything is read anew, and what is damaged still is left out without another report. Damage that leads the
// reading itself astray ends the turn; reading begins anew when the mount has reopened the store.

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
    std::optional<std::string> text;  // none: there is no such document (any more)
  };
  struct Turn {
    bool begins = false;  // a new reading of all documents begins with these items
    bool ends = false;    // with these items, all documents have been given
    bool more = false;    // call again
    // Everything up to the end of the first complete pass of a publisher has been given.
    bool passIsIn = false;
    std::string obstacle;  // why the store, ready as it is, could not be read in this turn; for the operator
    std::vector<Item> items;
  };

  explicit DocumentFeed(Kel::Ptr<Quillo::Mount> mount) : mount_(std::move(mount)) {}

  // At most `limit` (at least 1) documents. Nothing when the mount is not ready. With `holdsBack`, a store that is
  // not the one read so far is left alone until it holds a complete pass.
  Turn turn(std::size_t limit, bool holdsBack);

  // Everything up to there has been given; older than everything while not all documents were given once.
  Quillo::Bookmark bookmark() const { return loading_ ? Quillo::Bookmark() : mark_; }

  // The last turn held back.
  bool heldBack() const { return heldBack_; }

 private:
  void read(Quillo::Snapshot& snapshot, std::size_t limit, bool holdsBack, Turn& turn);
  void begin(const Quillo::Snapshot& snapshot, Turn& turn);
  void load(const Quillo::Snapshot& snapshot, std::size_t limit, Turn& turn);
  void follow(Quillo::Snapshot& snapshot, std::size_t limit, Turn& turn);
  void damageMet(const std::string& path, const std::string& what);
  void reportDamage();

  Kel::Ptr<Quillo::Mount> mount_;
  Quillo::Bookmark mark_;  // where following goes on
  bool loading_ = false;
  std::string loadFrom_;  // the first key not yet given
  bool heldBack_ = false;
  std::map<std::string, std::string> damaged_;  // what is wrong, by path
  std::vector<std::string> unreported_;
};

}  // namespace Varnix
