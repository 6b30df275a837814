// The part of NamespaceMirror that dumps routes.

#include <linux/if.h>

#include "mirror/NamespaceMirror.h"

namespace Mirror {

void NamespaceMirror::updateTables() {
  vrfsVersion_ = picture_.vrfs.version();
  routes_.updateTables(writer_.tables(state_));
}

std::optional<Kel::Seconds> NamespaceMirror::due() const {
  return isBusy() || !isComplete() ? std::nullopt : routes_.due();
}

bool NamespaceMirror::areRoutesDue() const {
  const auto when = due();
  return when && Kel::System::currentTime() >= *when;
}

void NamespaceMirror::beginRoutes(Extent extent) {
  updateTables();
  if (extent == Extent::routes && !routes_.confirmDump()) return;
  isListingRoutes_ = true;
  isRoutesStepOver_ = false;
  routes_.beginDump();
  nextOfRoutes();
}

void NamespaceMirror::nextOfRoutes() {
  if (const auto* step = routes_.step()) {
    stepIs(step->what, step->table);
    return;
  }
  isListingRoutes_ = false;
  routes_.endDump();
  if (!isComplete()) show();
}

// Back-pressure, and work between two steps. The wait does not count as a stuck dump.
bool NamespaceMirror::mustWait() {
  if (isRoutesStepOver_) {
    workOnRoutes();
  } else if (!picture_.routes.isFull()) {
    return false;
  }
  lastReply_ = Kel::System::currentTime();
  return true;
}

void NamespaceMirror::workOnRoutes() {
  if (!routes_.work()) return;
  isRoutesStepOver_ = false;
  nextOfRoutes();
}

void NamespaceMirror::handleRoutesEnd(bool mayLack) {
  isRoutesStepOver_ = true;
  routes_.endStep(mayLack, pieces_);
  workOnRoutes();
}

// Notes links whose change lets the kernel delete routes.
void NamespaceMirror::handleLink(const LinkMessage& link) {
  constexpr std::uint32_t movingFlags = IFF_UP | IFF_RUNNING | IFF_LOWER_UP;
  const KernelInterface* known = state_.interface(link.ifIndex);
  const bool isKnown = known && known->link;
  if (link.isDeleted || (isKnown && ((known->link->flags ^ link.flags) & movingFlags))) {
    routes_.noteLinkChange(link.ifIndex);
  }
}

}  // namespace Mirror
