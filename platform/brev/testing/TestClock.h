#pragma once
// For tests: a clock that only the test moves, and a scheduler that uses it.

#include <gtest/gtest.h>
#include <poll.h>

#include <string>
#include <vector>

#include "brev/Task.h"
#include "brev/TaskScheduler.h"
#include "brev/TimerTask.h"

namespace Brev {

inline bool isReadable(int fd, int timeoutMilliseconds = 0) {
  pollfd entry{fd, POLLIN, 0};
  return poll(&entry, 1, timeoutMilliseconds) == 1;
}

class SchedulerTest : public testing::Test {
 protected:
  SchedulerTest() {
    Kel::System::clockIs([this] { return now_; });
  }
  ~SchedulerTest() override { Kel::System::clockIs({}); }

  // A task that appends its name to `ran_` and takes `cost` seconds.
  Kel::Ptr<TimerTask> noting(const std::string& name, int priority = 1, Kel::Seconds cost = 0) {
    return Kel::makePtr<TimerTask>(scheduler_, name, priority, [this, cost](Task& task) {
      ran_.push_back(task.name());
      now_ += cost;
    });
  }
  Kel::Ptr<Task> task(Task::Function function) {
    return Kel::makePtr<Task>(scheduler_, "task", 1, std::move(function));
  }

  using Names = std::vector<std::string>;
  Names ranInOneBatch() {
    scheduler_->runReady();
    return std::exchange(ran_, {});
  }

  Kel::Seconds now_ = 1'700'000'000;
  Names ran_;
  Kel::Ptr<TaskScheduler> scheduler_ = Kel::makePtr<TaskScheduler>();
};

}  // namespace Brev
