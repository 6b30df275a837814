#include "quillo/Mount.h"

#include <fmt/format.h>

#include <algorithm>

#include "kel/Trace.h"
#include "quillo/MountImpl.h"
#include "quillo/PublisherLock.h"

namespace Quillo {

namespace {

Kel::TraceHandle mountTrace("QuilloMount");

constexpr Kel::Seconds longestPause = 30;
// Damage that comes again within this time makes the pause longer.
constexpr Kel::Seconds recurrenceSeconds = 60;

}  // namespace

MountImpl::MountImpl(const MountConfig& config)
    : directory_(config.directory),
      watch_(config.directory),
      stateText_(fmt::format("waiting for a store in {}", config.directory)) {
}

void MountImpl::stateIs(Mount::State state, const std::string& text) {
  if (text != stateText_ && !text.empty() && state == Mount::State::refused) {
    QTRACE(mountTrace, 1) << text;  // the user of the mount tells its operator
  }
  state_ = state;
  stateText_ = text;
}

void MountImpl::close() {
  if (store_) {
    store_.reset();
    knownHead_.reset();
    ++epoch_;
  }
}

void MountImpl::noticeReplacement() {
  if (store_ && store_->replaced()) {
    close();
    watch_.stale();
    stateIs(Mount::State::waiting,
            fmt::format("store {} was removed or replaced; waiting for the new one", directory_));
  }
}

void MountImpl::open() {
  try {
    store_ = std::make_shared<Environment>(directory_, Environment::Access::read, 0);
    stateIs(Mount::State::ready, "");
    Snapshot(view()).checkLayouts();
  } catch (const StoreException& e) {
    store_.reset();
    knownHead_.reset();
    switch (e.kind()) {
      case StoreException::Kind::notReady:
        stateIs(Mount::State::waiting, e.what());
        break;
      case StoreException::Kind::damaged:
        corruptionDetected(e.what());
        break;
      default:
        stateIs(Mount::State::refused, e.what());
        break;
    }
  } catch (const Pesk::CorruptionDetectedException& damage) {
    corruptionDetected(damage.what());
  }
}

void MountImpl::look(Sight& sight) {
  try {
    std::shared_ptr<View> now = view();
    sight.seq = now->head.seq;
    std::optional<CompletePass> pass = readPass(*now->env, now->txn);
    sight.passTime = pass ? pass->time : 0;
  } catch (const StoreException& e) {
    close();
    stateIs(Mount::State::refused, e.what());
  } catch (const Pesk::CorruptionDetectedException& damage) {
    corruptionDetected(damage.what());
  }
}

bool MountImpl::refresh() {
  KEL_ASSERT_TEXT(view_.expired(), "a snapshot of the store is held across turns");
  watch_.arm();
  noticeReplacement();
  if (state_ == Mount::State::damaged) {
    close();
    if (Kel::System::currentTime() - corruptionTime_ >= pause_) {
      state_ = Mount::State::waiting;  // damage that is met again from here on is another case of it
      open();
    }
  } else if (!store_) {
    open();
  }
  Sight sight;
  if (state_ == Mount::State::ready) {
    look(sight);
  }
  sight.state = state_;
  sight.epoch = epoch_;
  bool news = !seenAny_ || !(sight == seen_);
  seen_ = sight;
  seenAny_ = true;
  return news;
}

std::shared_ptr<View> MountImpl::view() {
  if (state_ != Mount::State::ready) {
    throw StoreException(StoreException::Kind::notReady, stateText_);
  }
  std::shared_ptr<View> view = view_.lock();
  if (!view) {
    view = std::make_shared<View>(store_, epoch_, knownHead_);
    view_ = view;
  }
  return view;
}

void MountImpl::corruptionDetected(const std::string& message) {
  ++corruptionCount_;
  QTRACE(mountTrace, 0) << message << " (" << corruptionCount_ << " so far)";
  if (state_ != Mount::State::damaged) {
    // The first time, at once: a fault of the moment is over then. What stays broken is not tried in a tight
    // circle.
    Kel::Seconds now = Kel::System::currentTime();
    bool recurs = corruptionCount_ > 1 && now - corruptionTime_ < recurrenceSeconds;
    pause_ = recurs ? std::clamp(pause_ * 2, 1.0, longestPause) : 0;
    corruptionTime_ = now;
    ++epoch_;
  }
  stateIs(Mount::State::damaged, message);
}

Mount::Mount(const MountConfig& config) : impl_(std::make_unique<MountImpl>(config)) {
}
Mount::~Mount() = default;

Mount::State Mount::state() const {
  return impl_->state();
}

const std::string& Mount::stateText() const {
  return impl_->stateText();
}

const std::string& Mount::directory() const {
  return impl_->directory();
}

bool Mount::refresh() {
  turnEnds();
  return impl_->refresh();
}

Snapshot Mount::snapshot() {
  return Snapshot(impl_->view());
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

int Mount::doorbellFd() const {
  return impl_->watch().fd();
}

bool Mount::drainDoorbell() {
  return impl_->watch().drain();
}

PublisherInfo Mount::publisher() const {
  return PublisherLock::holder(impl_->directory());
}

void Mount::corruptionDetected(const Pesk::CorruptionDetectedException& damage) {
  corruptionDetected(std::string(damage.what()));
}

void Mount::corruptionDetected(const std::string& message) {
  turnEnds();
  impl_->corruptionDetected(message);
}

std::uint64_t Mount::corruptionCount() const {
  return impl_->corruptionCount();
}

}  // namespace Quillo
