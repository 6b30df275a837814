#pragma once
// A unit of work that the scheduler runs (TaskScheduler.h).

#include <cstdint>
#include <functional>

#include "brev/TaskScheduler.h"
#include "kel/Name.h"
#include "kel/Ptr.h"

namespace Brev {

class Task : public Kel::PtrInterface {
 public:
  // Receives the running task. It must not capture a handle to its own task, which would be a reference cycle.
  using Function = std::function<void(Task&)>;

  // `name` appears in traces and statistics. A lower `priority` runs first. A new task is not scheduled.
  // Throws Kel::RangeException when `scheduler` is null or `function` empty.
  Task(Kel::Ptr<TaskScheduler> scheduler, Kel::Name name, int priority, Function function);
  ~Task() override;

  const Kel::Name& name() const { return name_; }
  int priority() const { return priority_; }
  const Kel::Ptr<TaskScheduler>& scheduler() const { return scheduler_; }

  // Queues the task for one run; a no-op while it is queued. The task's own function may call it to run once more.
  virtual void scheduleTask();
  // Removes the task from the queue. Does not interrupt a run.
  virtual void cancelTask();
  bool scheduled() const { return isQueued_; }

  bool taskCurrentlyRunning() const { return scheduler_->runningTask() == this; }
  // True when the run has used up the task's quantum, or a request waits and the run has lasted
  // TaskScheduler::requestCheckInterval. False outside a run.
  bool taskShouldYield() const { return taskCurrentlyRunning() && scheduler_->shouldYield(*this); }
  // Seconds after which a run should yield.
  Kel::Seconds quantum() const { return quantum_; }
  // Throws Kel::RangeException when `quantum` is not a number above 0.
  void quantumIs(Kel::Seconds quantum);

  // For statistics: the task reports its work in its own units (prefixes, entries).
  void taskWorkCountInc(std::uint64_t count = 1) { workCount_ += count; }
  void taskWorkPendingIs(std::uint64_t pending) { workPending_ = pending; }

  std::uint64_t workCount() const { return workCount_; }
  std::uint64_t workPending() const { return workPending_; }
  std::uint64_t runCount() const { return runCount_; }

 private:
  friend class TaskScheduler;
  // Called when a run begins, before the function.
  virtual void beginRun() {}

  const Kel::Ptr<TaskScheduler> scheduler_;
  const Kel::Name name_;
  const int priority_;
  const Function function_;
  Kel::Seconds quantum_ = TaskScheduler::defaultQuantum;

  bool isQueued_ = false;
  TaskScheduler::Sequence queueSequence_ = 0;
  std::uint64_t lastBatch_ = 0;

  std::uint64_t workCount_ = 0;
  std::uint64_t workPending_ = 0;
  std::uint64_t runCount_ = 0;
};

}  // namespace Brev
