#include "varnix/DocumentFeed.h"

namespace Varnix {
namespace {

using Pesk::CorruptionDetectedException;
using Quillo::Snapshot;

constexpr auto table = Quillo::TableId::varnix;

// The least key above `key` that can be stored.
std::string keyAfter(std::string key) {
  if (key.size() < Quillo::maxKeyBytes) return key + '\0';
  while (!key.empty() && key.back() == '\xff') key.pop_back();
  if (!key.empty()) key.back() = static_cast<char>(key.back() + 1);
  return key;
}

// False when damage has made the whole view unreadable.
bool readable(const Snapshot& snapshot) {
  try {
    snapshot.tableState(table);
    return true;
  } catch (const CorruptionDetectedException&) {
    return false;
  }
}

bool scanMeets(const Snapshot& snapshot, const std::string& bound, const std::string& what) {
  try {
    snapshot.scan(table, bound);
  } catch (const CorruptionDetectedException& damage) {
    return damage.what() == what;
  }
  return false;
}

// The key of the damaged record that a scan from `from` met with `what`: the greatest bound from which a scan still
// meets it. Found byte by byte, since a damaged record is not handed out. None when the scan did not fail for one
// record.
std::optional<std::string> damagedKey(const Snapshot& snapshot, const std::string& from, const std::string& what) {
  if (!readable(snapshot)) return std::nullopt;
  const auto isNotAbove = [&](const std::string& bound) {
    return bound <= from || scanMeets(snapshot, bound, what);
  };
  std::string key;
  while (key.size() < Quillo::maxKeyBytes && isNotAbove(key + '\0')) {
    unsigned low = 0;
    unsigned high = 256;
    while (high - low > 1) {
      const auto middle = (low + high) / 2;
      (isNotAbove(key + static_cast<char>(middle)) ? low : high) = middle;
    }
    key.push_back(static_cast<char>(low));
  }
  return key >= from && scanMeets(snapshot, key, what) ? std::optional(key) : std::nullopt;
}

}  // namespace

DocumentFeed::Turn DocumentFeed::turn(std::size_t limit, bool holdsBack) {
  Turn turn;
  if (mount_->state() != Quillo::Mount::State::ready) return turn;
  try {
    auto snapshot = mount_->snapshot();
    read(snapshot, limit, holdsBack, turn);
  } catch (const CorruptionDetectedException& damage) {
    turn = {};
    loading_ = false;  // the mount begins another epoch: everything is read anew
    mount_->corruptionDetected(damage);
  } catch (const Quillo::StoreException& error) {  // no view was to be had: nothing has been read
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
  turn.begins = true;
}

void DocumentFeed::load(const Snapshot& snapshot, std::size_t limit, Turn& turn) {
  for (std::size_t met = 0; turn.items.size() + met < limit;) {
    try {
      scan(snapshot, limit - met, turn);
      break;
    } catch (const CorruptionDetectedException& damage) {
      const auto key = damagedKey(snapshot, loadFrom_, damage.what());
      if (!key) throw;
      damageMet(*key, damage.what());
      loadFrom_ = keyAfter(*key);
      ++met;
    }
  }
  turn.more = true;
  turn.ends = !loading_;
}

void DocumentFeed::scan(const Snapshot& snapshot, std::size_t limit, Turn& turn) {
  for (auto scan = snapshot.scan(table, loadFrom_); scan.valid(); scan.next()) {
    if (turn.items.size() >= limit) return;
    turn.items.push_back({std::string(scan.key()), std::string(scan.value())});
    loadFrom_ = keyAfter(turn.items.back().path);
    damaged_.erase(turn.items.back().path);
  }
  loading_ = false;
}

void DocumentFeed::follow(Snapshot& snapshot, std::size_t limit, Turn& turn) {
  const auto changes = snapshot.changesSince(mark_, limit);
  if (changes.tooOld) {
    begin(snapshot, turn);
    load(snapshot, limit, turn);
    return;
  }
  for (const auto& change : changes.changes) {
    if (change.table != table) continue;
    auto& item = turn.items.emplace_back(Item{change.key, std::nullopt});
    if (change.kind == Quillo::Change::Kind::deletion) continue;
    try {
      if (const auto text = snapshot.get(table, change.key)) item.text = std::string(*text);
      damaged_.erase(change.key);
    } catch (const CorruptionDetectedException& damage) {
      if (!readable(snapshot)) throw;
      damageMet(change.key, damage.what());
    }
  }
  mark_ = changes.next;
  turn.more = changes.more;
  const auto pass = snapshot.completePass();
  turn.passIsIn = pass && pass->seq <= mark_.seq;
}

void DocumentFeed::damageMet(const std::string& path, const std::string& what) {
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
