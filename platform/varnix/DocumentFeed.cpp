#include "varnix/DocumentFeed.h"

#include <fmt/format.h>

#include "varnix/Document.h"

namespace Varnix {
namespace {

using Pesk::CorruptionDetectedException;
using Quillo::Snapshot;

}  // namespace

DocumentFeed::Turn DocumentFeed::turn(std::size_t limit, bool holdsBack) {
  Turn turn;
  if (mount_->state() != Quillo::Mount::State::ready) return turn;
  try {
    auto snapshot = mount_->snapshot();
    read(snapshot, limit, holdsBack, turn);
  } catch (const CorruptionDetectedException& damage) {
    turn = {};
    loading_ = false;  // the mount begins a new epoch, after which all documents are read anew
    mount_->corruptionDetected(damage);
  } catch (const Quillo::StoreException& error) {  // from snapshot(), so nothing has been read
    turn = {};
    turn.obstacle = error.what();
  }
  if (turn.ends || !loading_) reportDamage();
  return turn;
}

void DocumentFeed::read(Snapshot& snapshot, std::size_t limit, bool holdsBack, Turn& turn) {
  const auto now = snapshot.bookmark();
  const bool sameStore = mark_.generation == now.generation && mark_.epoch == now.epoch;
  heldBack_ = holdsBack && mark_.generation != now.generation && !snapshot.firstPassComplete();
  if (heldBack_) return;
  if (!sameStore) begin(snapshot, turn);
  if (loading_) {
    load(snapshot, limit, turn);
  } else {
    follow(snapshot, limit, turn);
  }
}

void DocumentFeed::begin(const Snapshot& snapshot, Turn& turn) {
  if (mark_.generation != snapshot.generation()) damaged_.clear();
  mark_ = snapshot.bookmark();
  loading_ = true;
  loadFrom_.clear();
  loaded_ = 0;
  turn.begins = true;
}

void DocumentFeed::load(const Snapshot& snapshot, std::size_t limit, Turn& turn) {
  const auto isFull = [&] { return turn.items.size() >= limit; };
  const auto take = [&](const Quillo::Scan& scan) {
    if (isFull()) return false;
    turn.items.push_back({std::string(scan.key()), std::string(scan.value())});
    loadFrom_ = Quillo::keyAfter(turn.items.back().path);
    damaged_.erase(turn.items.back().path);
    return true;
  };
  const auto takeDamaged = [&](const std::string& key, const CorruptionDetectedException& damage) {
    if (isFull()) return false;
    damageMet(key, damage.what(), turn);
    loadFrom_ = Quillo::keyAfter(key);
    return true;
  };
  loading_ = !Quillo::scanAround(snapshot, documentTable, loadFrom_, take, takeDamaged);
  loaded_ += turn.items.size();
  turn.more = true;
  turn.ends = !loading_;
  if (turn.ends) checkCount(snapshot, turn);
}

// A damaged key can mislead a search, which then skips records without meeting the damage.
void DocumentFeed::checkCount(const Snapshot& snapshot, Turn& turn) {
  const auto expected = snapshot.tableState(documentTable);
  if (expected.version > mark_.seq || expected.count == loaded_) return;
  const CorruptionDetectedException damage(
      mount_->directory(), Quillo::tableInfo(documentTable).name, "",
      fmt::format("a reading found {} documents, expected {}", loaded_, expected.count));
  damageMet("", damage.what(), turn);
}

void DocumentFeed::follow(Snapshot& snapshot, std::size_t limit, Turn& turn) {
  const auto changes = snapshot.changesSince(mark_, limit);
  if (changes.tooOld) {
    begin(snapshot, turn);
    load(snapshot, limit, turn);
    return;
  }
  for (const auto& change : changes.changes) {
    if (change.table != documentTable) continue;
    Item item{change.key, std::nullopt};
    try {
      if (change.kind != Quillo::Change::Kind::deletion) {
        if (const auto text = snapshot.get(documentTable, change.key)) item.text = std::string(*text);
      }
      damaged_.erase(change.key);
      turn.items.push_back(std::move(item));
    } catch (const CorruptionDetectedException& damage) {
      if (!Quillo::isReadable(snapshot)) throw;
      damageMet(change.key, damage.what(), turn);
    }
  }
  mark_ = changes.next;
  turn.more = changes.more;
  const auto pass = snapshot.completePass();
  turn.passIsIn = pass && pass->seq <= mark_.seq;
}

void DocumentFeed::damageMet(const std::string& path, const std::string& what, Turn& turn) {
  turn.items.push_back({path, std::nullopt, true});
  auto& known = damaged_[path];
  if (known == what) return;
  known = what;
  unreported_.push_back(what);
}

void DocumentFeed::reportDamage() {
  for (const auto& what : unreported_) mount_->corruptionDetected(what);
  unreported_.clear();
}

}  // namespace Varnix
