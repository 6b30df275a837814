#include "brev/TaskScheduler.h"

#include <algorithm>
#include <memory>
#include <random>
#include <stdexcept>

#include "brev/testing/TestClock.h"
#include "kel/Errors.h"
#include "kel/testing/TraceLines.h"

namespace Brev {
namespace {

// Tasks whose turns are found by searching all of them. An operation is done to task and model alike.
class SchedulerModelTest : public SchedulerTest {
 protected:
  struct Modelled {
    Kel::Ptr<TimerTask> task;
    int queuedAt = 0, waitsSince = 0;  // the step of the operation; 0: neither
    Kel::Seconds due = 0, period = 0;
    bool ranInBatch = false;
  };

  SchedulerModelTest() {
    for (std::size_t i = 0; i < 12; ++i) {
      all_.push_back({Kel::makePtr<TimerTask>(scheduler_, std::to_string(i), static_cast<int>(i % 4),
                                              [this, i](Task&) { hasRun(all_[i]); })});
    }
  }

  void queue(Modelled& of) {
    if (of.queuedAt == 0) of.queuedAt = ++step_;
    of.waitsSince = 0;
  }
  void wait(Modelled& of, Kel::Seconds due) {
    of.due = due;
    of.waitsSince = ++step_;
  }

  void randomOperation() {
    constexpr Kel::Seconds times[] = {0.25, 0.5, 1, 2.5};
    Modelled& of = all_[random_() % all_.size()];
    const auto kind = random_() % 8;
    const Kel::Seconds seconds = times[random_() % 4];
    if (kind < 4) {
      if (of.queuedAt == 0) of.due = now_;
      queue(of);
      return of.task->scheduleTask();
    }
    of.queuedAt = of.waitsSince = 0;
    of.period = kind == 7 ? seconds : 0;
    if (kind == 4) return of.task->cancelTask();
    wait(of, now_ + seconds);
    if (kind == 7) return of.task->scheduleTaskPeriodic(seconds);
    of.task->scheduleTaskDelay(seconds);
  }

  Modelled* next() {
    Modelled* first = nullptr;
    for (auto& each : all_) {
      if (each.queuedAt == 0) continue;
      const auto turn = [](const Modelled& of) { return std::pair(of.task->priority(), of.queuedAt); };
      if (first == nullptr || turn(each) < turn(*first)) first = &each;
    }
    return first != nullptr && first->ranInBatch ? nullptr : first;
  }

  void hasRun(Modelled& of) {
    ASSERT_EQ(&of, next()) << of.task->name() << " at step " << step_;
    of.ranInBatch = true;
    of.queuedAt = 0;
    if (of.period != 0) wait(of, of.due + of.period > now_ ? of.due + of.period : now_ + of.period);
    if (random_() % 2 == 0) randomOperation();
  }

  void runBatch() {
    std::vector<Modelled*> due;
    for (auto& each : all_) {
      each.ranInBatch = false;
      if (each.waitsSince != 0 && each.due <= now_) due.push_back(&each);
    }
    std::ranges::sort(due, {}, [](auto* of) { return std::pair(of->due, of->waitsSince); });
    for (auto* each : due) queue(*each);
    scheduler_->runReady();
    ASSERT_EQ(next(), nullptr) << "has not run, step " << step_;
  }

  std::vector<Modelled> all_;
  std::mt19937 random_{20};
  int step_ = 0;
};

TEST_F(SchedulerModelTest, agreesOverRandomOperationsInsideAndOutsideRuns) {
  for (int turn = 0; turn < 5000 && !HasFailure(); ++turn) {
    for (auto count = random_() % 4; count > 0; --count) randomOperation();
    now_ += 0.25 * static_cast<double>(random_() % 5);
    runBatch();
    ASSERT_EQ(scheduler_->idle(), std::ranges::none_of(all_, &Modelled::queuedAt));
    ASSERT_TRUE(scheduler_->idle() || isReadable(scheduler_->pollFd()));
    for (const auto& each : all_) ASSERT_EQ(each.task->waiting(), each.waitsSince != 0);
  }
}

TEST_F(SchedulerTest, batchEndsWithTheQuantumOrWhenARequestWaitsButRunsOneTask) {
  bool waits = false;
  const auto a = noting("a", 1, 0.004), b = noting("b", 1, 0.007), c = noting("c", 1, 0.001);
  for (const auto& t : {a, b, c}) t->scheduleTask();
  EXPECT_EQ(ranInOneBatch(), (Names{"a", "b"}));
  EXPECT_TRUE(isReadable(scheduler_->pollFd()));
  EXPECT_EQ(ranInOneBatch(), Names{"c"});
  EXPECT_FALSE(isReadable(scheduler_->pollFd()));
  scheduler_->setRequestPredicate([&] { return waits = !waits; });
  for (const auto& t : {c, a}) t->scheduleTask();
  for (const auto* next : {"c", "a"}) EXPECT_EQ(ranInOneBatch(), Names{next});
}

TEST_F(SchedulerTest, waitingRequestIsSeenAfterAnIntervalOnceInEachAndRemembered) {
  int asked = 0;
  bool waits = false;
  scheduler_->setRequestPredicate([&] { return ++asked, waits; });
  const auto other = noting("other");
  const auto pass = task([&](Task& self) {
    EXPECT_TRUE(self.taskCurrentlyRunning() && scheduler_->runningTask() == &self);
    EXPECT_EQ(scheduler_->runReady(), !scheduler_->idle()) << "does nothing in here";
    const auto yields = [&](bool isWaiting, double intervals) {
      waits = isWaiting;
      now_ += intervals * TaskScheduler::requestCheckInterval;
      return self.taskShouldYield();
    };
    EXPECT_FALSE(yields(true, 0));
    EXPECT_EQ(asked, 0);
    EXPECT_FALSE(yields(false, 2) || yields(true, 0));
    EXPECT_EQ(asked, 1);
    EXPECT_TRUE(yields(true, 2) && yields(false, 2) && !other->taskShouldYield());
    EXPECT_EQ(asked, 2);
  });
  pass->scheduleTask();
  other->scheduleTask();
  scheduler_->runReady();
  EXPECT_GE(asked, 2);
  EXPECT_FALSE(pass->taskCurrentlyRunning());
}

// The test's clock stands: only the descriptor's own timer moves.
TEST_F(SchedulerTest, descriptorFollowsTheEarliestTimerAndDoesNotSpin) {
  const auto year = noting("year"), soon = noting("soon");
  year->scheduleTaskDelay(365.0 * 86400 * 1000);
  EXPECT_FALSE(isReadable(scheduler_->pollFd()));
  soon->scheduleTaskDelay(0.3);  // so long that a busy machine cannot make the second wait part of the first
  EXPECT_TRUE(isReadable(scheduler_->pollFd(), 5000));
  EXPECT_FALSE(scheduler_->runReady());
  EXPECT_FALSE(isReadable(scheduler_->pollFd())) << "armed again";
  EXPECT_TRUE(isReadable(scheduler_->pollFd(), 5000));
  soon->cancelTask();
  EXPECT_FALSE(isReadable(scheduler_->pollFd()));
  soon->scheduleTaskDelay(0);
  EXPECT_TRUE(isReadable(scheduler_->pollFd(), 5000));
  EXPECT_EQ(ranInOneBatch(), Names{"soon"});
  EXPECT_FALSE(isReadable(scheduler_->pollFd()));
}

TEST_F(SchedulerTest, whatIsDestroyedInsideARunDoesNotRun) {
  const auto witness = std::make_shared<int>(7);
  auto queued = noting("queued", 2), sameQueue = noting("same queue"), timer = noting("timer", 2),
       waiting = noting("waiting");
  const auto survivor = noting("survivor", 3);
  Kel::Ptr<Task> killer = task([&, kept = witness](Task& self) {
    queued = sameQueue = timer = waiting = nullptr;
    self.scheduleTask();
    killer.reset();
    ran_.push_back(self.name() + std::to_string(*kept));
  });
  EXPECT_EQ(witness.use_count(), 2);
  for (const auto& each : {killer, Kel::Ptr<Task>(queued), Kel::Ptr<Task>(sameQueue)}) each->scheduleTask();
  timer->scheduleTaskDelay(0);
  waiting->scheduleTaskDelay(1);
  survivor->scheduleTask();
  EXPECT_EQ(ranInOneBatch(), (Names{"task7", "survivor"}));
  EXPECT_EQ(witness.use_count(), 1) << "the function went with its task";
  now_ += 2;
  EXPECT_EQ(ranInOneBatch(), Names{});
  EXPECT_EQ(scheduler_->tasks().size(), 1U);
  Kel::Ptr<Task> last = task([&](Task& self) {
    scheduler_.reset();
    last.reset();
    self.scheduleTask();
    ran_.push_back("ran");
  });
  last->scheduleTask();
  scheduler_.get()->runReady();
  EXPECT_EQ(ran_, Names{"ran"});
  EXPECT_EQ(last, nullptr);
}

TEST_F(SchedulerTest, exceptionIsTracedWithTheNameAndTheRestRuns) {
  KelTest::TraceLines traces("TaskScheduler");
  const auto bad = Kel::makePtr<Task>(scheduler_, "route backlog", 0, [&](Task&) {
    now_ += 0.002;
    throw std::runtime_error("table is gone");
  });
  const auto odd = task([](Task&) { throw 42; });
  const auto good = noting("good");
  for (const auto& each : {bad, odd, Kel::Ptr<Task>(good)}) each->scheduleTask();
  EXPECT_EQ(ranInOneBatch(), Names{"good"});
  EXPECT_EQ(traces.take(), (Names{"0 task \"route backlog\" ended with an exception: table is gone",
                                  "0 task \"task\" ended with an exception of unknown type"}));
  EXPECT_EQ(scheduler_->runningTask(), nullptr);
  EXPECT_EQ(bad->runCount(), 1U);
}

}  // namespace
}  // namespace Brev
