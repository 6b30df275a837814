#pragma once
// The cooperative scheduler of a single-threaded process.
//
// There is one run queue per priority, a lower number running first, first in first out inside one. A task runs
// until it returns; long work asks `taskShouldYield()`, keeps a bookmark, schedules itself again and returns.
//
// The host's loop waits on pollFd() beside its own descriptors and calls runReady() whenever it is readable. One call
// runs one batch and returns, even while work remains, so that the loop can serve its other descriptors in between.
//
//   auto scheduler = Kel::makePtr<Brev::TaskScheduler>();
//   auto task = Kel::makePtr<Brev::Task>(scheduler, "route backlog", 2, [this](Brev::Task& t) { backlog(t); });
//   task->scheduleTask();
//
// Time is Kel::System::currentTime(). With an injected clock the descriptor does not follow it: call runReady(),
// and what is due by that clock runs.
//
// Lifetime: tasks hold their scheduler; the scheduler holds no task, so releasing a task stops it. Inside a run any
// handle may be released: that of the running task, of other tasks, and of the scheduler.

#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "brev/PollDescriptor.h"
#include "kel/Ptr.h"
#include "kel/System.h"

namespace Brev {

class Task;
class TimerTask;

class TaskScheduler : public Kel::PtrInterface {
 public:
  // What a batch may take, and a task unless it is given a quantum of its own.
  static constexpr Kel::Seconds defaultQuantum = 0.010;
  // How often the host's predicate is asked while a task runs. So long a run goes on whatever waits, or requests
  // without end would leave nothing but empty runs.
  static constexpr Kel::Seconds requestCheckInterval = 0.0005;

  // Throws Kel::Exception when the kernel refuses the descriptors.
  TaskScheduler() = default;

  // Readable while a task is queued or a timer is due. Belongs to the scheduler: poll it, nothing else.
  int pollFd() const { return descriptor_.fd(); }
  // Runs one batch: the queued tasks in order, until the quantum is used up, a request waits, nothing is left, or
  // the next task has run in this batch already. At least one task runs if one is queued. Returns true when work
  // remains. An exception out of a task is traced with the task's name and goes no further. Does nothing inside a
  // task.
  bool runReady();
  // True when no task is queued. A timer that is not due yet does not count.
  bool idle() const { return queue_.empty(); }

  // `waits` tells whether a request waits to be answered; tasks then yield at once. Empty: none ever does. It must
  // not throw, and must not call back into the scheduler.
  void requestWaitsIs(std::function<bool()> waits) { requestWaits_ = std::move(waits); }

  // Null outside a run.
  const Task* runningTask() const { return running_; }
  // Every task that exists, in order of creation, for statistics.
  std::vector<Kel::Ptr<const Task>> tasks() const;

 private:
  friend class Task;
  friend class TimerTask;
  using Sequence = std::uint64_t;

  void taskIs(Task* task) { tasks_.push_back(task); }
  void taskDel(Task* task);
  void queueIs(Task* task);
  void queueDel(Task* task);
  void timerIs(TimerTask* task);
  void timerDel(TimerTask* task);

  void run(Task* task);
  bool shouldYield(const Task& task);
  void queueDueTimers();
  // Brings the descriptor in line with queue and timers; left to the end of the batch while one is on.
  void settle();

  PollDescriptor descriptor_;
  std::function<bool()> requestWaits_;
  std::vector<Task*> tasks_;
  std::map<std::pair<int, Sequence>, Task*> queue_;                 // by priority, then order of scheduling
  std::map<std::pair<Kel::Seconds, Sequence>, TimerTask*> timers_;  // by due time, then order of setting
  Sequence sequence_ = 0;
  std::uint64_t batch_ = 0;
  bool inBatch_ = false;

  bool isTimerSet_ = false;       // the descriptor's timer
  Kel::Seconds timerSetFor_ = 0;  // the due time that it was set for

  // The present run.
  Task* running_ = nullptr;
  Kel::Seconds runStart_ = 0;
  Kel::Seconds requestCheckTime_ = 0;
  bool requestSeen_ = false;
};

}  // namespace Brev
