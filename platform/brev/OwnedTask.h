#pragma once
// A task that belongs to a state machine: it calls one of the machine's handlers, and only while the machine lives.

#include <utility>

#include "brev/TimerTask.h"

namespace Brev {

// `Base` is Task or TimerTask.
template <class Base, class Owner, void (Owner::*handler)()>
class OwnedTask : public Base {
 public:
  OwnedTask(Owner* owner, Kel::Ptr<TaskScheduler> scheduler, Kel::Name name, int priority)
      : Base(std::move(scheduler), std::move(name), priority,
             [](Task& task) { static_cast<OwnedTask&>(task).onTaskRun(); }),
        owner_(owner) {}

  // Called when the owner gives the task up; the owner's destructor must do so.
  void kelStop() {
    owner_ = nullptr;
    this->cancelTask();
  }

 private:
  void onTaskRun() {
    if (owner_ == nullptr) return;
    const Kel::Ptr<Owner> held(owner_);
    (held.get()->*handler)();
  }

  Owner* owner_;
};

}  // namespace Brev
