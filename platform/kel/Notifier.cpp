#include "kel/Notifier.h"

#include <algorithm>

#include "kel/Errors.h"

namespace Kel {

NotifieeBase::~NotifieeBase() {
  kelAttach(nullptr);
}

void NotifieeBase::kelAttach(const Ptr<const Notifier>& notifier) {
  if (notifier_ == notifier) return;
  const Ptr<const Notifier> previous = notifier_;  // detaching may release the last handle
  if (previous) previous->detach(this);
  notifier_ = notifier;
  if (notifier_) notifier_->attach(this);
}

Notifier::~Notifier() = default;

Notifier::Round::~Round() {
  if (--all.rounds == 0 && all.hasGaps) {
    std::erase(all.list, nullptr);
    all.hasGaps = false;
  }
}

void Notifier::attach(NotifieeBase* reactor) const {
  if (!reactors_) reactors_ = std::make_unique<Reactors>();
  reactors_->list.push_back(reactor);
}

void Notifier::detach(NotifieeBase* reactor) const {
  auto& list = reactors_->list;
  const auto at = std::find(list.begin(), list.end(), reactor);
  KEL_ASSERT(at != list.end());
  if (reactors_->rounds == 0) {
    list.erase(at);
  } else {
    *at = nullptr;
    reactors_->hasGaps = true;
  }
}

void Notifier::kelDeleted() {
  const Ptr<Notifier> self(this);
  kelNotify<Notifiee>([](Notifiee& reactor) { reactor.handleDel(); });
  kelStop();
}

}  // namespace Kel
