#include "brev/TaskScheduler.h"

#include <exception>

#include "brev/Task.h"
#include "brev/TimerTask.h"
#include "kel/Trace.h"

namespace Brev {
namespace {

Kel::TraceHandle taskSchedulerTrace("TaskScheduler");

}  // namespace

bool TaskScheduler::runReady() {
  if (inBatch_) return !idle();
  // A task may release the last handle.
  const Kel::Ptr<TaskScheduler> self(this);
  inBatch_ = true;
  ++batch_;
  if (isTimerSet_ && descriptor_.takeExpiry()) isTimerSet_ = false;
  queueDueTimers();
  const Kel::Seconds start = Kel::System::currentTime();
  // A queued task that has already run in this batch ends the batch; tasks behind it keep their place in the order.
  while (!queue_.empty() && queue_.begin()->second->lastBatch_ != batch_) {
    run(queue_.begin()->second);
    if (Kel::System::currentTime() - start >= defaultQuantum || (requestWaits_ && requestWaits_())) break;
  }
  inBatch_ = false;
  settle();
  return !idle();
}

void TaskScheduler::run(Task* next) {
  // Keeps the function alive while it runs, even if it releases the last handle to the task.
  const Kel::Ptr<Task> task(next);
  dequeue(next);
  task->lastBatch_ = batch_;
  running_ = next;
  runStart_ = Kel::System::currentTime();
  // The first check is one interval later, so that each run makes progress even if requests always wait.
  requestCheckTime_ = runStart_;
  requestSeen_ = false;
  try {
    task->beginRun();
    task->function_(*task);
  } catch (const std::exception& error) {
    QTRACE(taskSchedulerTrace, 0) << "task \"" << task->name() << "\" ended with an exception: " << error.what();
  } catch (...) {
    QTRACE(taskSchedulerTrace, 0) << "task \"" << task->name() << "\" ended with an exception of unknown type";
  }
  running_ = nullptr;
  ++task->runCount_;
}

bool TaskScheduler::shouldYield(const Task& task) {
  const Kel::Seconds now = Kel::System::currentTime();
  // Called once per entry of a long pass. Measured: 0.05 us a call; with a poll() of one socket each time 0.4 us.
  if (!requestSeen_ && requestWaits_ && now - requestCheckTime_ >= requestCheckInterval) {
    requestCheckTime_ = now;
    requestSeen_ = requestWaits_();
  }
  return requestSeen_ || now - runStart_ >= task.quantum();
}

void TaskScheduler::queueDueTimers() {
  const Kel::Seconds now = Kel::System::currentTime();
  while (!timers_.empty() && timers_.begin()->first.first <= now) {
    TimerTask* const task = timers_.begin()->second;
    clearTimer(task);
    enqueue(task);
  }
}

std::vector<Kel::Ptr<const Task>> TaskScheduler::tasks() const {
  return {tasks_.begin(), tasks_.end()};
}

void TaskScheduler::taskDel(Task* task) {
  std::erase(tasks_, task);
}

void TaskScheduler::enqueue(Task* task) {
  if (task->isQueued_) return;
  task->isQueued_ = true;
  task->queueSequence_ = ++sequence_;
  queue_.emplace(std::pair(task->priority_, task->queueSequence_), task);
  settle();
}

void TaskScheduler::dequeue(Task* task) {
  if (!task->isQueued_) return;
  task->isQueued_ = false;
  queue_.erase({task->priority_, task->queueSequence_});
  settle();
}

void TaskScheduler::setTimer(TimerTask* task) {
  clearTimer(task);
  task->isWaiting_ = true;
  task->timerSequence_ = ++sequence_;
  timers_.emplace(std::pair(task->due_, task->timerSequence_), task);
  settle();
}

void TaskScheduler::clearTimer(TimerTask* task) {
  if (!task->isWaiting_) return;
  task->isWaiting_ = false;
  timers_.erase({task->due_, task->timerSequence_});
  settle();
}

void TaskScheduler::settle() {
  if (inBatch_) return;
  descriptor_.readableIs(!queue_.empty());
  if (timers_.empty()) {
    if (isTimerSet_) descriptor_.clearTimer();
    isTimerSet_ = false;
    return;
  }
  const Kel::Seconds due = timers_.begin()->first.first;
  if (isTimerSet_ && timerSetFor_ == due) return;
  descriptor_.setTimer(due - Kel::System::currentTime());
  isTimerSet_ = true;
  timerSetFor_ = due;
}

}  // namespace Brev
