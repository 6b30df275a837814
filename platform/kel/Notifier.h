#pragma once
// Change notification.
//
// A reactor derives from the `Notifiee` of the type that it watches, attaches with `notifierIs`, and overrides one
// handler for each attribute that it watches:
//
//   class KelConfig : public Routing::Config::Notifiee {
//     void handleRouting() override { ... notifier()->routing() ... }
//   };
//   auto reactor = Kel::makePtr<KelConfig>();
//   reactor->notifierIs(config);
//
// Guarantees:
// - Handlers run inside the call that changed the value, in order of attachment, and only if the value changed.
// - Attaching a reactor calls no handler.
// - A handler may attach, detach, set, delete and destroy anything, including its own reactor, the notifier and other
//   reactors. A reactor that was detached or destroyed before its turn is not called. One that was attached by a
//   handler is called from the next change on.
// Lifetime: reactors are counted objects (makePtr). A reactor holds its notifier; the notifier does not hold its
// reactors.

#include <absl/container/inlined_vector.h>

#include <cstddef>
#include <functional>
#include <memory>

#include "kel/Ptr.h"

namespace Kel {

class Notifier;

class NotifieeBase : public PtrInterface {
 public:
  ~NotifieeBase() override;

  // While false, no handler is called, and changes are not reported later.
  bool hasNotificationActive() const { return active_; }
  void hasNotificationActiveIs(bool active) { active_ = active; }

  // For a reactor to objects of any type, which derives from NotifieeBase and attaches with kelAttach: an attribute
  // of the watched object changed, or the object was deleted.
  virtual void handleAnyChange() {}

 protected:
  // Null detaches.
  void kelAttach(const Ptr<const Notifier>& notifier);
  const Ptr<const Notifier>& kelNotifier() const { return notifier_; }

 private:
  Ptr<const Notifier> notifier_;
  bool active_ = true;
};

// An object whose changes can be watched.
class Notifier : public PtrInterface {
 public:
  class Notifiee : public NotifieeBase {
   public:
    // The watched object was deleted from the collection or attribute that held it. It stays readable.
    virtual void handleDel() {}
  };

  static void kelDescribeType(TypeInfo&) {}
  ~Notifier() override;

  // The framework calls it once after construction, when the object is held by a handle and has its name and parent.
  // Override it to attach reactors.
  virtual void kelStart() {}
  // The framework calls it when the object is deleted from the attribute or collection that owns it, even if others
  // still hold it. Override it to detach reactors.
  virtual void kelStop() {}

  // Calls `call` for each active reactor that is an `N`, and handleAnyChange for each other one, as guaranteed above.
  template <class N, class Call>
  void kelNotify(Call call) const {
    forEachReactor([&call](NotifieeBase& reactor) {
      if (auto* typed = dynamic_cast<N*>(&reactor)) {
        call(*typed);
      } else {
        reactor.handleAnyChange();
      }
    });
  }

  // Notifies the reactors of the deletion, then stops the object.
  void kelDeleted();

 private:
  friend class NotifieeBase;
  struct Reactors {
    absl::InlinedVector<NotifieeBase*, 2> list;  // null: detached during a round
    unsigned rounds = 0;                         // nested notification rounds in progress
    bool hasGaps = false;
  };
  class Round;

  void forEachReactor(const std::function<void(NotifieeBase&)>& visit) const;
  void attach(NotifieeBase* reactor) const;
  void detach(NotifieeBase* reactor) const;

  mutable std::unique_ptr<Reactors> reactors_;
};

}  // namespace Kel
