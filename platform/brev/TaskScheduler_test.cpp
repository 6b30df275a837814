#include "brev/TaskScheduler.h"

#include <algorithm>
#include <random>

#include "brev/testing/TestClock.h"
#include "kel/Errors.h"

namespace Brev {
namespace {

using Order = SchedulerTest;
using Batch = SchedulerTest;
using Yield = SchedulerTest;

TEST_F(Order, urgentTaskScheduledInsideARunGoesNext) {
  const auto urgent = noting("urgent", 0);
  const auto late = noting("late", 2);
  const auto first = task([&](Task&) {
    ran_.push_back("first");
    urgent->scheduleTask();
  });
  late->scheduleTask();
  first->scheduleTask();
  scheduler_->runReady();
  EXPECT_EQ(taken(), (Names{"first", "urgent", "late"}));
}

// Random scheduling and cancelling, against a list that is searched for the task whose turn it is.
TEST_F(Order, agreesWithAModelOverRandomOperations) {
  std::mt19937 random(20);
  std::vector<Kel::Ptr<Task>> tasks;
  for (int i = 0; i < 12; ++i) tasks.push_back(noting(std::to_string(i), i % 4));
  std::vector<std::size_t> model;  // indices of queued tasks, in order of scheduling
  for (int step = 0; step < 5000; ++step) {
    const std::size_t i = random() % tasks.size();
    const auto queued = std::find(model.begin(), model.end(), i);
    switch (random() % 8) {
      case 0: {
        std::stable_sort(model.begin(), model.end(),
                         [&](auto a, auto b) { return tasks[a]->priority() < tasks[b]->priority(); });
        Names expected;
        for (const auto index : model) expected.push_back(tasks[index]->name());
        scheduler_->runReady();
        ASSERT_EQ(taken(), expected) << "step " << step;
        model.clear();
        break;
      }
      case 1:
        tasks[i]->cancelTask();
        if (queued != model.end()) model.erase(queued);
        break;
      default:
        tasks[i]->scheduleTask();
        if (queued == model.end()) model.push_back(i);
    }
    ASSERT_EQ(scheduler_->idle(), model.empty());
    ASSERT_EQ(isReadable(scheduler_->pollFd()), !model.empty());
  }
}

TEST_F(Batch, endsWithTheQuantumAndStaysReadableWhileWorkRemains) {
  const auto a = noting("a", 1, 0.004), b = noting("b", 1, 0.007), c = noting("c", 1, 0.001);
  for (const auto& t : {a, b, c}) t->scheduleTask();
  EXPECT_TRUE(isReadable(scheduler_->pollFd()));
  EXPECT_TRUE(scheduler_->runReady());
  EXPECT_EQ(taken(), (Names{"a", "b"}));
  EXPECT_TRUE(isReadable(scheduler_->pollFd()));
  EXPECT_FALSE(scheduler_->runReady());
  EXPECT_EQ(taken(), Names{"c"});
  EXPECT_FALSE(isReadable(scheduler_->pollFd()));
  EXPECT_TRUE(scheduler_->idle());
}

TEST_F(Batch, runsOneTaskEvenWhileRequestsWait) {
  bool waits = true;
  scheduler_->requestWaitsIs([&] { return waits; });
  const auto a = noting("a"), b = noting("b"), c = noting("c");
  for (const auto& t : {a, b, c}) t->scheduleTask();
  scheduler_->runReady();
  EXPECT_EQ(taken(), Names{"a"});
  waits = false;
  scheduler_->runReady();
  EXPECT_EQ(taken(), (Names{"b", "c"}));
}

// The clock stands still here: what ends these batches is that no task runs twice in one.
TEST_F(Batch, tasksThatScheduleThemselvesOrEachOtherGiveTheLoopItsTurn) {
  Kel::Ptr<Task> ping, pong;
  ping = task([&](Task& self) {
    ran_.push_back("ping");
    self.scheduleTask();
    pong->scheduleTask();
  });
  pong = task([&](Task&) {
    ran_.push_back("pong");
    ping->scheduleTask();
  });
  ping->scheduleTask();
  EXPECT_TRUE(scheduler_->runReady());
  EXPECT_EQ(taken(), Names{"ping"});
  EXPECT_TRUE(scheduler_->runReady());
  EXPECT_EQ(taken(), (Names{"ping", "pong"}));
  EXPECT_TRUE(isReadable(scheduler_->pollFd()));
}

TEST_F(Batch, runReadyInsideATaskDoesNothing) {
  const auto other = noting("other", 2);
  const auto outer = task([&](Task&) {
    other->scheduleTask();
    EXPECT_TRUE(scheduler_->runReady());
    ran_.push_back("outer");
  });
  outer->scheduleTask();
  scheduler_->runReady();
  EXPECT_EQ(taken(), (Names{"outer", "other"}));
}

TEST_F(Yield, longPassResumesFromItsBookmarkUntilDone) {
  int bookmark = 0;
  const auto pass = task([&](Task& self) {
    ran_.push_back("pass");
    for (; bookmark < 100; ++bookmark) {
      if (self.taskShouldYield()) {
        self.scheduleTask();
        break;
      }
      now_ += 0.0011;
      self.taskWorkCountInc();
    }
    self.taskWorkPendingIs(static_cast<std::uint64_t>(100 - bookmark));
  });
  const auto between = noting("between");
  pass->scheduleTask();
  between->scheduleTask();
  scheduler_->runReady();
  EXPECT_EQ(bookmark, 10);
  EXPECT_EQ(pass->workPending(), 90U);
  while (scheduler_->runReady()) {
  }
  EXPECT_EQ(bookmark, 100);
  EXPECT_EQ(pass->workCount(), 100U);
  EXPECT_EQ(pass->workPending(), 0U);
  EXPECT_EQ(pass->runCount(), 10U);
  EXPECT_NEAR(pass->totalSeconds(), 0.110, 1e-5);
  EXPECT_NEAR(pass->longestRunSeconds(), 0.011, 1e-5);
  EXPECT_EQ(std::count(ran_.begin(), ran_.end(), "between"), 1);
  EXPECT_EQ(ran_[1], "between");
}

TEST_F(Yield, ownQuantumCountsFromTheStartOfTheRun) {
  std::vector<bool> answers;
  const auto slow = noting("slow", 0, 0.009);
  const auto patient = task([&](Task& self) {
    for (int i = 0; i < 4; ++i) {
      answers.push_back(self.taskShouldYield());
      now_ += 0.01;
    }
  });
  patient->quantumIs(0.025);
  slow->scheduleTask();
  patient->scheduleTask();
  scheduler_->runReady();
  EXPECT_EQ(answers, (std::vector<bool>{false, false, false, true}));
  EXPECT_THROW(patient->quantumIs(0), Kel::RangeException);
  EXPECT_THROW(patient->quantumIs(std::nan("")), Kel::RangeException);
  EXPECT_EQ(patient->quantum(), 0.025);
}

TEST_F(Yield, waitingRequestIsSeenAfterAnIntervalOnceInEachAndRemembered) {
  int asked = 0;
  bool waits = false;
  scheduler_->requestWaitsIs([&] {
    ++asked;
    return waits;
  });
  const auto pass = task([&](Task& self) {
    waits = true;
    EXPECT_FALSE(self.taskShouldYield());
    EXPECT_EQ(asked, 0);
    waits = false;
    now_ += 2 * TaskScheduler::requestCheckInterval;
    EXPECT_FALSE(self.taskShouldYield());
    EXPECT_FALSE(self.taskShouldYield());
    EXPECT_EQ(asked, 1);
    waits = true;
    now_ += 2 * TaskScheduler::requestCheckInterval;
    EXPECT_TRUE(self.taskShouldYield());
    waits = false;
    now_ += 2 * TaskScheduler::requestCheckInterval;
    EXPECT_TRUE(self.taskShouldYield());
    EXPECT_EQ(asked, 2);
  });
  pass->scheduleTask();
  scheduler_->runReady();
  EXPECT_GE(asked, 2);
}

TEST_F(Yield, onlyTheRunningTaskIsRunning) {
  const auto other = noting("other");
  const auto self = task([&](Task& me) {
    EXPECT_TRUE(me.taskCurrentlyRunning());
    EXPECT_EQ(scheduler_->runningTask(), &me);
    EXPECT_FALSE(other->taskCurrentlyRunning());
    now_ += 1;
    EXPECT_TRUE(me.taskShouldYield());
    EXPECT_FALSE(other->taskShouldYield());
  });
  self->scheduleTask();
  EXPECT_FALSE(self->taskCurrentlyRunning());
  scheduler_->runReady();
  EXPECT_EQ(self->runCount(), 1U);
  EXPECT_FALSE(self->taskCurrentlyRunning());
  EXPECT_FALSE(self->taskShouldYield());
}

}  // namespace
}  // namespace Brev
