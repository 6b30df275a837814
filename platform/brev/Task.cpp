#include "brev/Task.h"

#include <fmt/format.h>

#include <utility>

#include "kel/Errors.h"

namespace Brev {

Task::Task(Kel::Ptr<TaskScheduler> scheduler, Kel::Name name, int priority, Function function)
    : scheduler_(std::move(scheduler)),
      name_(std::move(name)),
      priority_(priority),
      function_(std::move(function)) {
  if (!scheduler_) throw Kel::RangeException(fmt::format("task {:?}: no scheduler; expected one", name_));
  if (!function_) throw Kel::RangeException(fmt::format("task {:?}: no function to run; expected one", name_));
  scheduler_->taskIs(this);
}

Task::~Task() {
  scheduler_->dequeue(this);
  scheduler_->taskDel(this);
}

void Task::scheduleTask() {
  scheduler_->enqueue(this);
}

void Task::cancelTask() {
  scheduler_->dequeue(this);
}

void Task::quantumIs(Kel::Seconds quantum) {
  if (!(quantum > 0)) {
    throw Kel::RangeException(fmt::format("task {:?}: quantum {}; expected seconds above 0", name_, quantum));
  }
  quantum_ = quantum;
}

}  // namespace Brev
