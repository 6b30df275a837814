#include "quillo/TableFollower.h"

#include <algorithm>
#include <utility>

namespace Quillo {
namespace {

Kel::TraceHandle tableFollowerTrace("QuilloFollower");

}  // namespace

bool TableFollower::step(std::size_t limit, const std::optional<Bookmark>& other) {
  QTRACE_ENTRY(tableFollowerTrace, this);
  Turn turn;
  if (mount_->state() == Mount::State::ready) {
    try {
      turn = read(limit, other);
      obstacle_.clear();
    } catch (const Pesk::CorruptionDetectedException& damage) {
      mount_->corruptionDetected(damage);
    } catch (const StoreException& error) {
      if (obstacle_ != error.what()) {
        QTRACE(tableFollowerTrace, 0) << "changes not read: " << error.what();
      }
      obstacle_ = error.what();
    }
  }
  if (turn.anew) notifyAnew();
  notifyKeys(turn.changes);
  reportDamage();
  return turn.more && mount_->state() == Mount::State::ready;
}

TableFollower::Turn TableFollower::read(std::size_t limit, const std::optional<Bookmark>& other) {
  auto snapshot = mount_->turnSnapshot();
  const auto head = snapshot->bookmark();
  const auto sameStore = [&head](const Bookmark& mark) {
    return mark.generation == head.generation && mark.epoch == head.epoch;
  };
  if (other && !sameStore(*other)) return {};
  const auto last = other ? std::min(other->seq, head.seq) : head.seq;
  constexpr Kel::Seconds endedPause = 30;
  if (endedAt_ && *endedAt_ != head && Kel::System::currentTime() - endedTime_ >= endedPause) {
    mark_.epoch = 0;  // no epoch of a mount
  }
  if (sameStore(mark_) && mark_.seq >= last) return {};
  auto changes = snapshot->changesSince(mark_, limit);
  if (changes.tooOld) {
    const auto pass = snapshot->completePass();
    if (!pass || pass->seq > last) return {};
    endedAt_.reset();
  }
  if (mark_.generation != head.generation) known_.clear();
  mark_ = changes.next;
  auto& list = changes.changes;
  if (mark_.seq > last) {
    mark_.seq = last;
    changes.more = false;
    while (!list.empty() && list.back().seq > last) list.pop_back();
  }
  return {std::move(snapshot), changes.tooOld, changes.more, std::move(list)};
}

// Calls `call` with the handlers of each watch that exists when its turn comes.
template <class Call>
void TableFollower::notify(const Call& call) {
  const auto watches = watches_;
  for (const auto* watch : watches) {
    if (std::find(watches_.begin(), watches_.end(), watch) == watches_.end()) continue;
    const auto handlers = watch->handlers_;
    try {
      call(*handlers);
    } catch (const std::exception& error) {
      QTRACE(tableFollowerTrace, 0) << "a reactor failed: " << error.what();
    }
  }
}

void TableFollower::notifyAnew() {
  QTRACE(tableFollowerTrace, 2) << (initialized_ ? "all may have changed in " : "following ")
                                << mount_->directory();
  const bool isFirst = !std::exchange(initialized_, true);
  notify([&](const TableWatch::Handlers& handlers) {
    if (const auto& handle = isFirst ? handlers.initialized : handlers.tables) handle();
  });
}

void TableFollower::notifyKeys(const std::vector<Change>& changes) {
  for (const auto& change : changes) {
    // A reactor found damage: nothing can be read until `tables` is notified.
    if (mount_->state() != Mount::State::ready) return;
    notify([&](const TableWatch::Handlers& handlers) {
      const auto at = handlers.keys.find(change.table);
      if (at != handlers.keys.end()) at->second(change.key);
    });
  }
}

bool TableFollower::isNotified(TableId table) const {
  try {
    const auto snapshot = mount_->turnSnapshot();
    const auto head = snapshot->bookmark();
    if (mark_ == head) return true;
    return mark_.generation == head.generation && mark_.epoch == head.epoch &&
           snapshot->tableState(table).version <= mark_.seq;
  } catch (const Pesk::CorruptionDetectedException&) {
  } catch (const StoreException&) {
  }
  return false;
}

std::shared_ptr<Snapshot> TableFollower::snapshot() {
  try {
    return mount_->turnSnapshot();
  } catch (const StoreException&) {
    mark_.epoch = 0;  // no epoch of a mount
    throw;
  }
}

void TableFollower::reportEndedWalk() {
  endedAt_ = mark_;
  endedTime_ = Kel::System::currentTime();
}

void TableFollower::corruptionDetected(const std::string& message) {
  if (!viewIsReadable()) {
    mount_->corruptionDetected(message);
    return;
  }
  constexpr std::size_t mostRemembered = 10'000;
  if (known_.size() >= mostRemembered) known_.clear();
  if (known_.insert(message).second) unreported_.push_back(message);
}

// Also true when no snapshot can be taken, which is not damage.
bool TableFollower::viewIsReadable() const {
  if (mount_->state() != Mount::State::ready) return true;
  try {
    return isReadable(*mount_->turnSnapshot());
  } catch (const Pesk::CorruptionDetectedException&) {
    return false;
  } catch (const StoreException&) {
    return true;
  }
}

void TableFollower::reportDamage() {
  const auto state = mount_->state();
  const bool isHere = state == Mount::State::ready || state == Mount::State::damaged;
  for (const auto& what : std::exchange(unreported_, {})) {
    if (isHere) mount_->corruptionDetected(what);
  }
}

TableWatch::TableWatch(Kel::Ptr<TableFollower> follower, Handlers handlers)
    : follower_(std::move(follower)), handlers_(std::make_shared<const Handlers>(std::move(handlers))) {
  follower_->watches_.push_back(this);
}

TableWatch::~TableWatch() {
  std::erase(follower_->watches_, this);
}

}  // namespace Quillo
