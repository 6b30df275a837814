#include "mirror/publish/TreePublisher.h"

#include <algorithm>
#include <utility>

#include "kel/System.h"
#include "kel/Trace.h"

namespace Mirror {

namespace {

Kel::TraceHandle treePublisherTrace("MirrorPublisher");

using Kind = Quillo::StoreException::Kind;

// Between two new beginnings of a damaged store, so that readers can read in between.
constexpr Kel::Seconds damagePause = 10;
// A store that is lost again within this time was not mended by a new beginning. The pauses between them then grow.
constexpr Kel::Seconds recurrence = 60;
constexpr Kel::Seconds longestPause = 10;

// Whether the fault may pass without a restart of the program.
bool mayPass(Kind kind) {
  return kind == Kind::full || kind == Kind::directory || kind == Kind::permission || kind == Kind::unsafe;
}

}  // namespace

TreePublisher::TreePublisher(Picture& picture, Quillo::PublisherConfig config)
    : picture_(picture),
      config_(config),
      store_(std::make_unique<Quillo::Publisher>(config)),
      documents_(std::make_unique<Varnix::DocumentPublisher>(picture.tree, *store_)) {
}

// From here on there is nothing to write to, until makeAnew().
void TreePublisher::lose(const std::string& why, Kel::Seconds leastPause) {
  const bool recurs = lastMadeAnew_ && Kel::System::currentTime() - *lastMadeAnew_ < recurrence;
  const bool recurredBefore = std::exchange(pause_, recurs ? std::clamp(2 * pause_, 1.0, longestPause) : 0) > 0;
  if (!recurs) {
    QTRACE(treePublisherTrace, 0) << why;
  } else if (!recurredBefore) {
    QTRACE(treePublisherTrace, 0) << why << "; since this recurs, pauses of up to " << longestPause
                                  << " s follow; look for a program that removes or writes files of the store";
  } else {
    QTRACE(treePublisherTrace, 1) << why;
  }
  if (lastMadeAnew_) mayMakeAnewAt_ = *lastMadeAnew_ + std::max(pause_, leastPause);
  documents_ = nullptr;
  hasPublishedAll_ = isPassBegun_ = areDocumentsIn_ = false;
}

// Earlier writes may have gone through the damaged pages without notice.
void TreePublisher::damaged(const std::string& why) {
  if (config_.onDamage != nullptr) config_.onDamage(why.c_str());
  lose(why, damagePause);
}

void TreePublisher::makeAnew() {
  lastMadeAnew_ = Kel::System::currentTime();
  store_->makeAnew();
  documents_ = std::make_unique<Varnix::DocumentPublisher>(picture_.tree, *store_);
}

bool TreePublisher::isUpToDate() const {
  return hasPublishedAll_ && !isPending() && picture_.routes.pending() == 0;
}

bool TreePublisher::isPending() const {
  return documents_->pending() || picture_.neighbours.pending();
}

bool TreePublisher::publish() {
  return !hasFailed_ && (isUpToDate() || tryPublish());
}

void TreePublisher::publishRoutes() {
  if (!hasFailed_ && picture_.routes.pending() > 0) tryPublish(What::routes);
}

void TreePublisher::poll() {
  isCheckDue_ = true;
  if (isStarted_ || hasFailed_) tryPublish();
}

bool TreePublisher::tryPublish(What what) {
  const bool wasLost = !documents_;
  try {
    write(what);
    if (hasFailed_) {
      QTRACE(treePublisherTrace, wasLost && pause_ > 0 ? 1 : 0)
          << "store " << config_.directory << " is written again";
    }
    setFailing(false);
    return hasPublishedAll_;
  } catch (const Quillo::StoreException& error) {
    if (error.kind() == Kind::gone) {
      lose(error.what(), 0);
    } else if (isStarted_ && error.kind() == Kind::damaged) {
      damaged(error.what());
    } else {
      if (isStarted_ ? !mayPass(error.kind()) : error.kind() != Kind::full) throw;
      if (!hasFailed_) {
        QTRACE(treePublisherTrace, 0) << error.what() << "; trying again every second";
      }
    }
  } catch (const Pesk::CorruptionDetectedException& damage) {
    damaged(damage.what());
  }
  if (!wasLost && !documents_ && Kel::System::currentTime() >= mayMakeAnewAt_) return tryPublish(what);
  setFailing(true);
  return false;
}

void TreePublisher::setFailing(bool isFailing) {
  hasFailed_ = isFailing;
  picture_.routes.setStoreFailing(isFailing);
}

void TreePublisher::write(What what) {
  if (documents_ && std::exchange(isCheckDue_, false)) store_->check(!hasFailed_);
  if (!documents_) {
    if (Kel::System::currentTime() < mayMakeAnewAt_) {
      throw Quillo::StoreException(Kind::directory, "store " + config_.directory + " was made anew a moment ago");
    }
    makeAnew();
  }
  beginPass();
  if (what == What::routes) {
    commitRoutes();
  } else if (!hasPublishedAll_) {
    writeAll();
  } else {
    writeChanges();
  }
}

// Runs once for each opened store.
void TreePublisher::beginPass() {
  if (std::exchange(isPassBegun_, true)) return;
  std::vector<Quillo::TableId> tables;
  tables.reserve(Quillo::knownTables.size());
  for (const auto& info : Quillo::knownTables) tables.push_back(info.id);
  store_->beginFullPass(tables);
  picture_.routes.allPending();
}

void TreePublisher::writeAll() {
  if (!areDocumentsIn_) {
    documents_->rewriteAll();
    picture_.neighbours.allPending();
    areDocumentsIn_ = true;
  }
  writeChanges();
  isStarted_ = true;
  if (picture_.routes.pending() > 0) return;
  store_->endFullPass();
  hasPublishedAll_ = true;
}

void TreePublisher::writeChanges() {
  if (!isPending()) commitRoutes();
  while (isPending()) commit();
}

void TreePublisher::commitRoutes() {
  auto batch = store_->begin();
  picture_.routes.addTo(batch);
  const auto result = batch.commit();
  picture_.routes.written();
  QTRACE(treePublisherTrace, 6) << result.changes << " changes of routes, journal at " << result.seq;
}

void TreePublisher::commit() {
  auto batch = store_->begin();
  picture_.neighbours.addDeletions(batch);
  documents_->addTo(batch);
  picture_.neighbours.addAdditions(batch);
  picture_.routes.addTo(batch);
  const auto result = batch.commit();
  documents_->published();
  picture_.neighbours.written();
  picture_.routes.written();
  QTRACE(treePublisherTrace, 6) << result.changes << " changes, journal at " << result.seq;
}

}  // namespace Mirror
