#include "mirror/publish/TreePublisher.h"

#include <utility>

#include "kel/Trace.h"

namespace Mirror {

namespace {

Kel::TraceHandle treePublisherTrace("MirrorPublisher");

using Kind = Quillo::StoreException::Kind;

// Whether the fault may pass without a restart of the program.
bool mayPass(Kind kind) {
  return kind == Kind::full || kind == Kind::directory || kind == Kind::permission;
}

}  // namespace

TreePublisher::TreePublisher(Picture& picture, Quillo::PublisherConfig config)
    : picture_(picture), config_(std::move(config)) {
  open();
  config_.recreate = false;
}

void TreePublisher::open() {
  documents_.reset();
  store_.reset();
  hasPublishedAll_ = isPassBegun_ = areDocumentsIn_ = false;
  store_ = std::make_unique<Quillo::Publisher>(config_);
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
  if (isStarted_) tryPublish();
}

bool TreePublisher::tryPublish(What what) {
  try {
    write(what);
  } catch (const Quillo::StoreException& error) {
    if (!isStarted_ || !mayPass(error.kind())) throw;
    if (!hasFailed_) {
      QTRACE(treePublisherTrace, 0) << error.what() << "; trying again every second";
    }
    hasFailed_ = true;
    picture_.routes.setStoreFailing(true);
    return false;
  }
  if (hasFailed_) {
    QTRACE(treePublisherTrace, 0) << "store " << config_.directory << " is written again";
  }
  hasFailed_ = false;
  picture_.routes.setStoreFailing(false);
  return hasPublishedAll_;
}

void TreePublisher::write(What what) {
  if (isGone()) {
    QTRACE(treePublisherTrace, 0) << "store " << config_.directory << " was removed or replaced; making it anew";
    open();
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
  using Quillo::TableId;
  if (std::exchange(isPassBegun_, true)) return;
  store_->beginFullPass(
      {TableId::varnix, TableId::arp, TableId::neighbor, TableId::route, TableId::route6, TableId::fec});
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

// Whether the store was removed or replaced, or could not be created again.
bool TreePublisher::isGone() {
  if (!documents_) return true;
  try {
    store_->begin().commit();  // an empty batch
    return false;
  } catch (const Quillo::StoreException& error) {
    if (error.kind() == Kind::gone) return true;
    throw;
  }
}

}  // namespace Mirror
