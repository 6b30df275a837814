#pragma once
// Change notification.
//
// A reactor derives from the `Notifiee` of the type that it watches, attaches with `notifierIs`, and overrides one
// handler per attribute that it cares for:
//
//   class KelConfig : public Routing::Config::Notifiee {
//     void handleRouting() override { ... notifier()->routing() ... }
//   };
//   auto reactor = Kel::makePtr<KelConfig>();
//   reactor->notifierIs(config);
//
// Rules. Handlers run at once, inside the call that changed the value, in order of attachment, and never for a
// value that did not change. Attaching does not notify of the present value. A handler may attach, detach, set,
// delete and destroy anything, itself, its notifier and the other reactors included: a reactor that detaches or
// dies before its turn is not called; one that attaches meanwhile is called from the next change on. Reactors are
// counted objects (makePtr). A reactor holds its notifier; the notifier does not hold its reactors.

#include <cstddef>
#include <memory>
#include <vector>

#include "kel/Ptr.h"

namespace Kel {

class Notifier;

class NotifieeBase : public PtrInterface {
 public:
  ~NotifieeBase() override;

  // While false, no handler is called. Changes during that time are not reported later.
  bool hasNotificationActive() const { return active_; }
  void hasNotificationActiveIs(bool active) { active_ = active; }

  // Some attribute of the watched object changed, or the object was deleted. Called only on a reactor that is no
  // `Notifiee` of the object's type: it watches objects of any type, and attaches with kelAttach.
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

  // Called once, after construction, when the object is held by a handle and knows its name and parent: the place
  // to attach reactors. Not for users.
  virtual void kelStart() {}
  // Called when the object is deleted from the attribute or collection that owns it, while others may still hold
  // it: it must cease to react.
  virtual void kelStop() {}

  // Calls `call` for each active reactor that is an `N`, and handleAnyChange for each other one, under the rules above.
  template <class N, class Call>
  void kelNotify(Call call) const {
    forEachReactor(
        [](NotifieeBase& reactor, void* visit) {
          if (auto* typed = dynamic_cast<N*>(&reactor)) {
            (*static_cast<Call*>(visit))(*typed);
          } else {
            reactor.handleAnyChange();
          }
        },
        &call);
  }

  // Notifies the reactors of the deletion, then stops the object.
  void kelDeleted();

 private:
  friend class NotifieeBase;
  struct Reactors {
    std::vector<NotifieeBase*> list;  // null: detached during a round
    unsigned rounds = 0;              // nested notification rounds under way
    bool hasGaps = false;
  };
  class Round;

  void forEachReactor(void (*visit)(NotifieeBase& reactor, void* context), void* context) const;
  void attach(NotifieeBase* reactor) const;
  void detach(NotifieeBase* reactor) const;

  mutable std::unique_ptr<Reactors> reactors_;
};

}  // namespace Kel
