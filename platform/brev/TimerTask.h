#pragma once
// A task that runs once after a delay, or periodically.

#include <utility>

#include "brev/Task.h"

namespace Brev {

class TimerTask : public Task {
 public:
  using Task::Task;
  ~TimerTask() override;

  // Runs once, `seconds` from now. Replaces everything that was scheduled before: a queued run, a delay or a period.
  // Throws Kel::RangeException when `seconds` is negative or not finite.
  void scheduleTaskDelay(Kel::Seconds seconds);
  // Runs every `seconds`, first `seconds` from now, without drift. Missed runs are skipped. Replaces everything that
  // was scheduled before. Throws Kel::RangeException unless `seconds` is finite and above 0.
  void scheduleTaskPeriodic(Kel::Seconds seconds);
  // Queues a run now instead of after the delay. A period restarts now.
  void scheduleTask() override;
  // Also ends a delay or period.
  void cancelTask() override;

  bool waiting() const { return isWaiting_; }
  // The due time of the next run, or of the last one when none is scheduled.
  Kel::Seconds due() const { return due_; }

 private:
  friend class TaskScheduler;
  void beginRun() override;
  void waitUntil(Kel::Seconds due);

  Kel::Seconds period_ = 0;  // 0: none
  Kel::Seconds due_ = 0;
  bool isWaiting_ = false;
  TaskScheduler::Sequence timerSequence_ = 0;
};

// A task of a state machine: each run calls one handler of the machine. `Base` is Task or TimerTask.
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
