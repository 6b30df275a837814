// What may be destroyed while a task runs, and what an exception does.
#include <memory>
#include <stdexcept>

#include "brev/testing/TestClock.h"
#include "kel/Errors.h"
#include "kel/Trace.h"

namespace Brev {
namespace {

using Lifetime = SchedulerTest;

TEST_F(Lifetime, taskThatLetsItselfGoFinishesItsRunAndNeverRunsAgain) {
  const auto witness = std::make_shared<int>(7);
  std::weak_ptr<int> captured = witness;
  Kel::Ptr<Task> doomed = task([this, &doomed, kept = witness](Task& self) {
    self.scheduleTask();
    doomed.reset();
    ran_.push_back(self.name() + std::to_string(*kept));
  });
  doomed->scheduleTask();
  EXPECT_EQ(captured.use_count(), 2);
  EXPECT_FALSE(scheduler_->runReady());
  EXPECT_EQ(taken(), Names{"task7"});
  EXPECT_EQ(captured.use_count(), 1) << "the function went with its task";
  EXPECT_TRUE(scheduler_->tasks().empty());
  EXPECT_FALSE(scheduler_->runReady());
}

TEST_F(Lifetime, tasksDestroyedByAnotherDoNotRun) {
  auto queued = noting("queued", 2);
  auto sameQueue = noting("same queue");
  auto timer = notingTimer("timer", 2);
  auto waiting = notingTimer("waiting");
  const auto survivor = noting("survivor", 3);
  const auto killer = task([&](Task&) {
    queued.reset();
    sameQueue.reset();
    timer.reset();
    waiting.reset();
  });
  killer->scheduleTask();
  queued->scheduleTask();
  sameQueue->scheduleTask();
  timer->scheduleTaskDelay(0);
  waiting->scheduleTaskDelay(1);
  survivor->scheduleTask();
  scheduler_->runReady();
  now_ += 2;
  scheduler_->runReady();
  EXPECT_EQ(taken(), Names{"survivor"});
  EXPECT_EQ(scheduler_->tasks().size(), 2U);
}

TEST_F(Lifetime, lastHandlesOfTaskAndSchedulerMayGoInsideARun) {
  Kel::Ptr<Task> last = task([&](Task& self) {
    scheduler_.reset();
    last.reset();
    self.scheduleTask();
    ran_.push_back("ran");
  });
  last->scheduleTask();
  TaskScheduler* const raw = scheduler_.get();
  raw->runReady();
  EXPECT_EQ(taken(), Names{"ran"});
  EXPECT_EQ(last, nullptr);
}

TEST_F(Lifetime, exceptionIsTracedWithTheNameAndTheRestRuns) {
  Names lines;
  const auto previous = Kel::TraceConfig::sinkIs([&](const Kel::TraceHandle& handle, unsigned level, auto& text) {
    lines.push_back(handle.facility() + "/" + std::to_string(level) + ": " + text);
  });
  const auto bad = Kel::makePtr<Task>(scheduler_, "route backlog", 0, [&](Task& self) {
    if (self.runCount() == 0) self.scheduleTask();
    now_ += 0.002;
    throw std::runtime_error("table is gone");
  });
  const auto odd = Kel::makePtr<Task>(scheduler_, "odd", 0, [](Task&) { throw 42; });
  const auto good = noting("good");
  for (const auto& t : {bad, odd, good}) t->scheduleTask();
  while (scheduler_->runReady()) {
  }
  Kel::TraceConfig::sinkIs(previous);
  EXPECT_EQ(lines, (Names{"TaskScheduler/0: task \"route backlog\" ended with an exception: table is gone",
                          "TaskScheduler/0: task \"odd\" ended with an exception of unknown type",
                          "TaskScheduler/0: task \"route backlog\" ended with an exception: table is gone"}));
  EXPECT_EQ(taken(), Names{"good"});
  EXPECT_EQ(scheduler_->runningTask(), nullptr);
  EXPECT_EQ(bad->runCount(), 2U);
  EXPECT_NEAR(bad->totalSeconds(), 0.004, 1e-5);
}

TEST_F(Lifetime, taskNeedsASchedulerAndAFunction) {
  EXPECT_THROW(Task({}, "lost", 1, [](Task&) {}), Kel::RangeException);
  EXPECT_THROW(Task(scheduler_, "empty", 1, {}), Kel::RangeException);
  EXPECT_TRUE(scheduler_->tasks().empty());
}

}  // namespace
}  // namespace Brev
