#include "mirror/TreePublisher.h"

#include "kel/Trace.h"

namespace Mirror {

namespace {

Kel::TraceHandle treePublisherTrace("MirrorPublisher");

using Kind = Quillo::StoreException::Kind;

// What may pass without anybody starting the program again.
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
  hasPublishedAll_ = false;
  store_ = std::make_unique<Quillo::Publisher>(config_);
  documents_ = std::make_unique<Varnix::DocumentPublisher>(picture_.tree, *store_);
}

bool TreePublisher::isUpToDate() const {
  return hasPublishedAll_ && !isPending();
}

bool TreePublisher::isPending() const {
  return documents_->pending() || picture_.neighbours.pending();
}

bool TreePublisher::publish() {
  return !hasFailed_ && (isUpToDate() || tryPublish());
}

void TreePublisher::poll() {
  if (isStarted_) tryPublish();
}

bool TreePublisher::tryPublish() {
  try {
    write();
  } catch (const Quillo::StoreException& error) {
    if (!isStarted_ || !mayPass(error.kind())) throw;
    if (!hasFailed_) {
      QTRACE(treePublisherTrace, 0) << error.what() << "; trying again every second";
    }
    hasFailed_ = true;
    return false;
  }
  if (hasFailed_) {
    QTRACE(treePublisherTrace, 0) << "store " << config_.directory << " is written again";
  }
  hasFailed_ = false;
  return true;
}

void TreePublisher::write() {
  if (isGone()) {
    QTRACE(treePublisherTrace, 0) << "store " << config_.directory << " was removed or replaced; making it anew";
    open();
  }
  if (!hasPublishedAll_) {
    writeAll();
    hasPublishedAll_ = isStarted_ = true;
  } else {
    writeChanges();
  }
}

void TreePublisher::writeAll() {
  using Quillo::TableId;
  store_->beginFullPass({TableId::varnix, TableId::arp, TableId::neighbor});
  documents_->rewriteAll();
  picture_.neighbours.allPending();
  writeChanges();
  store_->endFullPass();
}

void TreePublisher::writeChanges() {
  while (isPending()) commit();
}

void TreePublisher::commit() {
  auto batch = store_->begin();
  picture_.neighbours.addGone(batch);
  documents_->addTo(batch);
  picture_.neighbours.addCome(batch);
  const auto result = batch.commit();
  documents_->published();
  picture_.neighbours.written();
  QTRACE(treePublisherTrace, 6) << result.changes << " changes, journal at " << result.seq;
}

// Also after an attempt to make it anew that failed.
bool TreePublisher::isGone() {
  if (!documents_) return true;
  try {
    store_->begin().commit();  // of nothing
    return false;
  } catch (const Quillo::StoreException& error) {
    if (error.kind() == Kind::gone) return true;
    throw;
  }
}

}  // namespace Mirror
