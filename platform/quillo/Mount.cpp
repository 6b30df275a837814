#include "quillo/Mount.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "kel/Trace.h"
#include "quillo/RecordReader.h"
#include "quillo/StoreFiles.h"

namespace Quillo {
namespace {

Kel::TraceHandle mountTrace("QuilloMount");

constexpr Kel::Seconds longestPause = 10;
// Damage that recurs within this time makes the pause longer.
constexpr Kel::Seconds recurrenceSeconds = 60;

}  // namespace

Mount::Mount(const MountConfig& config)
    : directory_(config.directory),
      watch_(config.directory),
      stateText_(fmt::format("waiting for a store in {}", config.directory)) {
}

void Mount::stateIs(State state, const std::string& text) {
  if (text != stateText_ && !text.empty() && state == State::refused) {
    QTRACE(mountTrace, 1) << text;  // level 1, since the user of the mount reports it to the operator
  }
  state_ = state;
  stateText_ = text;
}

void Mount::close() {
  if (store_) {
    store_.reset();
    ++epoch_;
  }
}

void Mount::noticeReplacement() {
  if (store_ && store_->replaced()) {
    close();
    watch_.stale();
    stateIs(State::waiting, fmt::format("store {} was removed or replaced; waiting for the new one", directory_));
  }
}

void Mount::open() {
  try {
    store_ = std::make_shared<Environment>(directory_, Environment::Access::read, 0);
    stateIs(State::ready, "");
    Snapshot(view()).checkLayouts();
  } catch (const StoreException& e) {
    store_.reset();
    if (e.kind() == StoreException::Kind::damaged) {
      corruptionDetected(e.what());
    } else {
      stateIs(e.kind() == StoreException::Kind::notReady ? State::waiting : State::refused, e.what());
    }
  } catch (const Pesk::CorruptionDetectedException& damage) {
    corruptionDetected(damage.what());
  }
}

void Mount::look(Sight& sight) {
  try {
    std::shared_ptr<View> now = view();
    sight.seq = now->head.seq;
    std::optional<CompletePass> pass = readPass(*now->env, now->txn);
    sight.passTime = pass ? pass->time : 0;
  } catch (const StoreException& e) {
    close();
    stateIs(State::refused, e.what());
  } catch (const Pesk::CorruptionDetectedException& damage) {
    corruptionDetected(damage.what());
  }
}

bool Mount::refresh() {
  turnEnds();
  KEL_ASSERT_TEXT(view_.expired(), "a snapshot of the store is held across turns");
  watch_.arm();
  noticeReplacement();
  if (state_ == State::damaged) {
    const bool isPauseOver = Kel::System::currentTime() - corruptionTime_ >= pause_;
    if (isPauseOver || !isReadable()) close();
    if (isPauseOver) {
      state_ = State::waiting;  // damage from here on is a new case
      open();
    }
  } else if (!store_) {
    open();
  }
  Sight sight;
  if (state_ == State::ready) look(sight);
  sight.state = state_;
  sight.epoch = epoch_;
  return std::exchange(seen_, sight) != sight;
}

bool Mount::isReadable() const {
  return state_ == State::ready || (state_ == State::damaged && store_ && !store_->faulted());
}

std::shared_ptr<View> Mount::view() {
  if (!isReadable()) throw StoreException(StoreException::Kind::notReady, stateText_);
  std::shared_ptr<View> view = view_.lock();
  if (!view) {
    view = std::make_shared<View>(store_, epoch_);
    view_ = view;
  }
  return view;
}

void Mount::corruptionDetected(const std::string& message) {
  turnEnds();
  ++corruptionCount_;
  QTRACE(mountTrace, 0) << message << " (" << corruptionCount_ << " so far)";
  reportToPublisher();
  if (state_ != State::damaged) {
    // The first attempt follows at once, in case the fault was temporary. Pauses prevent a busy loop while damage
    // lasts.
    Kel::Seconds now = Kel::System::currentTime();
    bool recurs = corruptionCount_ > 1 && now - corruptionTime_ < recurrenceSeconds;
    pause_ = recurs ? std::clamp(pause_ * 2, 1.0, longestPause) : 0;
    corruptionTime_ = now;
    ++epoch_;
  }
  stateIs(State::damaged, message);
}

Mount::~Mount() = default;

// It looks for a newer file time once a second.
void Mount::reportToPublisher() {
  const Kel::Seconds now = Kel::System::currentTime();
  if (now < nextReport_) return;
  nextReport_ = now + 1;
  const int fd = ::open(damageFile(directory_).c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) return;  // its own check finds the damage within a minute
  [[maybe_unused]] const ssize_t size = ::pwrite(fd, "1", 1, 0);
  ::close(fd);
}

Snapshot Mount::snapshot() {
  return Snapshot(view());
}

std::shared_ptr<Snapshot> Mount::turnSnapshot() {
  if (turn_) return turn_;
  auto taken = std::make_shared<Snapshot>(snapshot());
  if (turnBegins_) {
    turn_ = taken;
    turnBegins_();
  }
  return taken;
}

PublisherInfo Mount::publisher() const {
  return doorbellHolder(directory_);
}

}  // namespace Quillo
