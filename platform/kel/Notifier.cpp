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

class Notifier::Round {
 public:
  explicit Round(Reactors& reactors) : all_(reactors), size_(reactors.list.size()) { ++all_.rounds; }
  ~Round() {
    if (--all_.rounds != 0 || !all_.hasGaps) return;
    all_.list.erase(std::remove(all_.list.begin(), all_.list.end(), nullptr), all_.list.end());
    all_.hasGaps = false;
  }
  Round(const Round&) = delete;
  Round& operator=(const Round&) = delete;
  // Reactors that attach during the round are not part of it.
  std::size_t size() const { return size_; }

 private:
  Reactors& all_;
  const std::size_t size_;
};

void Notifier::forEachReactor(const std::function<void(NotifieeBase&)>& visit) const {
  // An object without reactors may be in its destructor, where no handle may be taken. One with reactors is held by
  // them.
  if (!reactors_ || reactors_->list.empty()) return;
  const Ptr<const Notifier> self(this);
  const Round round(*reactors_);
  for (std::size_t i = 0; i < round.size(); ++i) {
    // A reactor with a count of zero is being constructed or destroyed, so no handle may be taken.
    if (!reactors_->list[i] || reactors_->list[i]->use_count() == 0) continue;
    const Ptr<NotifieeBase> reactor(reactors_->list[i]);
    if (reactor->hasNotificationActive()) visit(*reactor);
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
