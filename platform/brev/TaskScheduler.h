#pragma once
// The cooperative scheduler of a single-threaded process.
//
// Tasks run in order of priority, the lowest number first, and first in, first out within a priority. A task runs
// until it returns. Long work checks `taskShouldYield()`, saves a bookmark, schedules itself again and returns.
//
// The host's event loop waits on pollFd() and its own descriptors, and calls runReady() whenever pollFd() is
// readable. Each call runs one batch, so that the loop serves its other descriptors between batches.
//
//   auto scheduler = Kel::makePtr<Brev::TaskScheduler>();
//   auto task = Kel::makePtr<Brev::Task>(scheduler, "route backlog", 2, [this](Brev::Task& t) { backlog(t); });
//   task->scheduleTask();
//
// Time is Kel::System::currentTime(). The descriptor does not follow an injected clock; runReady() does.
//
// Lifetime: tasks hold their scheduler; the scheduler holds no task, so releasing a task stops it. A task may release
// any handle in its run: to itself, to other tasks, and to the scheduler.

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
  // Time limit of a batch, and of a run of a task that has no quantum of its own.
  static constexpr Kel::Seconds defaultQuantum = 0.010;
  // The request predicate is called at this interval during a run, first after one interval. So each run has at least
  // this time, and tasks make progress even while requests always wait.
  static constexpr Kel::Seconds requestCheckInterval = 0.0005;

  // Throws Kel::Exception when the kernel refuses the descriptors.
  TaskScheduler() = default;

  // Readable while a task is queued or a timer is due. For polling only.
  int pollFd() const { return descriptor_.fd(); }
  // Runs one batch: the queued tasks in order, until the quantum is used up, a request waits, the queue is empty, or
  // the next task has already run in this batch. Runs at least one task if one is queued. Returns true when work
  // remains. An exception of a task is caught and traced with the task's name. A no-op when a task calls it.
  bool runReady();
  // True when no task is queued. A waiting timer does not count.
  bool idle() const { return queue_.empty(); }

  // Sets the predicate that returns whether a request waits to be answered. Without one, tasks yield by their quantum
  // alone. Requires: it does not throw and does not call the scheduler.
  void setRequestPredicate(std::function<bool()> waits) { requestWaits_ = std::move(waits); }

  // Null outside a run.
  const Task* runningTask() const { return running_; }
  // For statistics: all tasks that exist, in order of creation.
  std::vector<Kel::Ptr<const Task>> tasks() const;

 private:
  friend class Task;
  friend class TimerTask;
  using Sequence = std::uint64_t;

  void taskIs(Task* task) { tasks_.push_back(task); }
  void taskDel(Task* task);
  void enqueue(Task* task);
  void dequeue(Task* task);
  void setTimer(TimerTask* task);
  void clearTimer(TimerTask* task);

  void run(Task* task);
  bool shouldYield(const Task& task);
  void queueDueTimers();
  // Updates the descriptor from the queue and the timers. Within a batch it does nothing; the end of the batch calls
  // it.
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
