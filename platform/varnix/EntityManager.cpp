#include "varnix/EntityManager.h"

#include <fmt/format.h>

#include <algorithm>

#include "kel/Trace.h"
#include "varnix/ByteText.h"
#include "varnix/DocumentFeed.h"
#include "varnix/TreeLoader.h"

KEL_TYPE_DEFINE(Varnix::EntityManager)

namespace Varnix {
namespace {

Kel::TraceHandle entityManagerTrace("VarnixEntityManager");

}  // namespace

EntityManager::EntityManager(const Kel::Ptr<Kel::Dir>& directory, Kel::Ptr<Quillo::Mount> mount)
    : Kel::Entity("EntityManager"),
      tree_(directory),
      mount_(std::move(mount)),
      loader_(std::make_unique<TreeLoader>(directory, tree_.openDirs())),
      feed_(std::make_unique<DocumentFeed>(mount_)) {
}

EntityManager::~EntityManager() = default;

bool EntityManager::step(std::size_t limit) {
  QTRACE_ENTRY(entityManagerTrace, this);
  if (sweeping_) {
    sweeping_ = loader_->sweep(limit);
    return true;
  }
  const auto turn = feed_->turn(limit, ready());
  if (turn.begins) {
    QTRACE(entityManagerTrace, 2) << "reading all documents of " << mount_->directory();
    loader_->beginPass();
  }
  for (const auto& item : turn.items) {
    QTRACE(entityManagerTrace, 6) << (item.isDamaged ? "damaged document of "
                                      : item.text    ? "document of "
                                                     : "no document of ")
                                  << escapeBytes(item.path);
    if (item.isDamaged) {
      loader_->keepDocument(item.path);
    } else if (item.text) {
      loader_->loadDocument(item.path, *item.text);
    } else {
      loader_->deleteDocument(item.path);
    }
  }
  sweeping_ = turn.ends;
  const bool isReadable = mount_->state() == Quillo::Mount::State::ready;
  if (turn.more && isReadable) {
    if (!ready()) statusIs(fmt::format("reading the store in {}", mount_->directory()));
    return true;
  }
  if (sweeping_) return true;
  if (!isReadable) {
    statusIs(mount_->stateText());
    return false;
  }
  if (!turn.obstacle.empty()) {
    statusIs(turn.obstacle);
    return false;
  }
  if (loader_->settle(limit - std::min(limit, turn.items.size()))) return true;
  loader_->reportUnplaced();
  if (turn.passIsIn) readyIs(true);
  if (turn.passIsIn) {
    statusIs("");
  } else {
    waitingForPass();
  }
  return false;
}

Quillo::Bookmark EntityManager::bookmark() const {
  return feed_->bookmark();
}

void EntityManager::waitingForPass() {
  const auto publisher = mount_->publisher();
  const auto who =
      publisher.alive ? publisher.text() + " is writing it" : "no publisher is running: start quorin-mirrord";
  const auto* what = feed_->heldBack() ? "was made anew; serving what the one before held until it is complete"
                                       : "is not complete yet";
  statusIs(fmt::format("the store in {} {}; {}", mount_->directory(), what, who));
}

}  // namespace Varnix
