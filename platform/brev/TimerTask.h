#pragma once
// A task that waits before it runs: once after a delay, or again and again.

#include <utility>

#include "brev/Task.h"

namespace Brev {

class TimerTask : public Task {
 public:
  using Task::Task;
  ~TimerTask() override;

  // Runs once, `seconds` from now; 0 is as soon as its turn comes. Replaces whatever was scheduled before, a queued
  // run and a period included. Throws Kel::RangeException when `seconds` is negative or not finite.
  void scheduleTaskDelay(Kel::Seconds seconds);
  // Runs every `seconds`, the first time `seconds` from now, without drift. Missed runs are skipped. Replaces whatever
  // was scheduled before. Throws Kel::RangeException when `seconds` is not finite and above 0.
  void scheduleTaskPeriodic(Kel::Seconds seconds);
  // Runs without waiting any longer; a period goes on from that run.
  void scheduleTask() override;
  // Ends delay and period too.
  void cancelTask() override;

  bool waiting() const { return isWaiting_; }
  // When it runs next or was last due, by Kel::System::currentTime().
  Kel::Seconds due() const { return due_; }

 private:
  friend class TaskScheduler;
  void runBegins() override;
  void waitUntil(Kel::Seconds due);

  Kel::Seconds period_ = 0;  // 0: none
  Kel::Seconds due_ = 0;
  bool isWaiting_ = false;
  TaskScheduler::Sequence timerSequence_ = 0;
};

// A task that belongs to a state machine: it calls one of the machine's handlers, and only while the machine lives.
// `Base` is Task or TimerTask.
template <class Base, class Owner, void (Owner::*handler)()>
class OwnedTask : public Base {
 public:
  OwnedTask(Owner* owner, Kel::Ptr<TaskScheduler> scheduler, Kel::Name name, int priority)
      : Base(std::move(scheduler), std::move(name), priority,
             [](Task& task) { static_cast<OwnedTask&>(task).onTaskRun(); }),
        owner_(owner) {}

  // Ends the task. The owner's destructor must call it.
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
