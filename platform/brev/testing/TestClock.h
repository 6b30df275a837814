#pragma once
// For the tests of this folder: a clock that only the test moves, and a scheduler that starts by it.

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

  // A task that notes its name when it runs and takes `cost` seconds for it.
  Kel::Ptr<Task> noting(const std::string& name, int priority = 1, Kel::Seconds cost = 0) {
    return Kel::makePtr<Task>(scheduler_, name, priority, [this, cost](Task& task) {
      ran_.push_back(task.name());
      now_ += cost;
    });
  }
  Kel::Ptr<TimerTask> notingTimer(const std::string& name, int priority = 1) {
    return Kel::makePtr<TimerTask>(scheduler_, name, priority, [this](Task& task) { ran_.push_back(task.name()); });
  }
  Kel::Ptr<Task> task(Task::Function function, int priority = 1) {
    return Kel::makePtr<Task>(scheduler_, "task", priority, std::move(function));
  }

  // What ran since the last call.
  std::vector<std::string> taken() { return std::exchange(ran_, {}); }
  using Names = std::vector<std::string>;

  Kel::Seconds now_ = 1'700'000'000;
  std::vector<std::string> ran_;
  Kel::Ptr<TaskScheduler> scheduler_ = Kel::makePtr<TaskScheduler>();
};

}  // namespace Brev
