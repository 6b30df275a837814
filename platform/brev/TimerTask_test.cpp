#include "brev/TimerTask.h"

#include <cmath>
#include <limits>

#include "brev/testing/TestClock.h"
#include "kel/Errors.h"

namespace Brev {
namespace {

class Timers : public SchedulerTest {
 protected:
  // Moves the clock to `at` seconds after the start of the test and runs what is due.
  Names ranAt(Kel::Seconds at) {
    now_ = start_ + at;
    scheduler_->runReady();
    return taken();
  }
  const Kel::Seconds start_ = now_;
};

TEST_F(Timers, runWhenDueInOrderOfTime) {
  const auto late = notingTimer("late"), early = notingTimer("early"), urgent = notingTimer("urgent", 0);
  late->scheduleTaskDelay(2);
  early->scheduleTaskDelay(1);
  urgent->scheduleTaskDelay(2);
  EXPECT_TRUE(scheduler_->idle());
  EXPECT_EQ(ranAt(0.999), Names{});
  EXPECT_EQ(ranAt(1), Names{"early"});
  EXPECT_EQ(ranAt(5), (Names{"urgent", "late"}));
  EXPECT_EQ(ranAt(100), Names{});
}

TEST_F(Timers, newDelayReplacesTheOldOneAndAQueuedRun) {
  const auto timer = notingTimer("timer");
  timer->scheduleTaskDelay(1);
  timer->scheduleTaskDelay(3);
  EXPECT_EQ(ranAt(2), Names{});
  EXPECT_EQ(ranAt(3), Names{"timer"});
  timer->scheduleTask();
  timer->scheduleTaskDelay(2);
  EXPECT_EQ(ranAt(4), Names{});
  EXPECT_EQ(ranAt(5), Names{"timer"});
  timer->scheduleTaskDelay(1);
  timer->scheduleTask();
  EXPECT_FALSE(timer->waiting());
  EXPECT_EQ(ranAt(5.5), Names{"timer"});
  EXPECT_EQ(ranAt(10), Names{});
  timer->scheduleTaskDelay(1);
  timer->cancelTask();
  EXPECT_EQ(ranAt(20), Names{});
}

TEST_F(Timers, taskRearmsItself) {
  const auto timer = Kel::makePtr<TimerTask>(scheduler_, "recount", 3, [this](Task& self) {
    ran_.push_back(self.name());
    static_cast<TimerTask&>(self).scheduleTaskDelay(60);
  });
  timer->scheduleTaskDelay(60);
  EXPECT_EQ(ranAt(60), Names{"recount"});
  EXPECT_EQ(ranAt(119), Names{});
  EXPECT_EQ(ranAt(121), Names{"recount"});
  EXPECT_NEAR(timer->due(), start_ + 181, 1e-5);
}

TEST_F(Timers, periodDoesNotDriftAndSkipsWhatWasMissed) {
  const auto timer = notingTimer("tick");
  timer->scheduleTaskPeriodic(10);
  EXPECT_EQ(ranAt(9), Names{});
  EXPECT_EQ(ranAt(13), Names{"tick"});
  EXPECT_EQ(ranAt(19), Names{});
  EXPECT_EQ(ranAt(20), Names{"tick"});
  EXPECT_EQ(ranAt(75), Names{"tick"});
  EXPECT_EQ(ranAt(84), Names{});
  EXPECT_EQ(ranAt(85), Names{"tick"});
  timer->scheduleTask();
  EXPECT_EQ(ranAt(87), Names{"tick"});
  EXPECT_EQ(ranAt(95), (Names{"tick"}));
  timer->cancelTask();
  EXPECT_EQ(ranAt(1000), Names{});
}

TEST_F(Timers, periodEndsWhenTheTaskCancelsItselfOrTakesADelay) {
  const auto timer = Kel::makePtr<TimerTask>(scheduler_, "tick", 1, [this](Task& self) {
    ran_.push_back(self.name());
    if (self.runCount() == 1) self.cancelTask();
  });
  timer->scheduleTaskPeriodic(1);
  EXPECT_EQ(ranAt(1), Names{"tick"});
  EXPECT_EQ(ranAt(2), Names{"tick"});
  EXPECT_EQ(ranAt(3), Names{});
  timer->scheduleTaskPeriodic(1);
  timer->scheduleTaskDelay(5);
  EXPECT_EQ(ranAt(8), Names{"tick"});
  EXPECT_EQ(ranAt(20), Names{});
}

TEST_F(Timers, badTimesAreRefusedAndChangeNothing) {
  const auto timer = notingTimer("timer");
  timer->scheduleTaskDelay(1);
  constexpr auto infinity = std::numeric_limits<Kel::Seconds>::infinity();
  for (const Kel::Seconds bad : {-0.1, infinity, std::nan("")}) {
    EXPECT_THROW(timer->scheduleTaskDelay(bad), Kel::RangeException);
    EXPECT_THROW(timer->scheduleTaskPeriodic(bad), Kel::RangeException);
  }
  EXPECT_THROW(timer->scheduleTaskPeriodic(0), Kel::RangeException);
  EXPECT_EQ(ranAt(1), Names{"timer"});
}

// The test's clock stands: only the descriptor's own timer moves.
TEST_F(Timers, earlyWakeUpIsArmedAgainAndDoesNotSpin) {
  const auto timer = notingTimer("timer");
  timer->scheduleTaskDelay(0.3);  // so long that a busy machine cannot make the second wait part of the first
  ASSERT_TRUE(isReadable(scheduler_->pollFd(), 5000));
  EXPECT_FALSE(scheduler_->runReady());
  EXPECT_FALSE(isReadable(scheduler_->pollFd()));
  EXPECT_TRUE(isReadable(scheduler_->pollFd(), 5000));
  EXPECT_EQ(ranAt(1), Names{"timer"});
  EXPECT_FALSE(isReadable(scheduler_->pollFd()));
}

TEST_F(Timers, descriptorFollowsTheEarliestTimer) {
  const auto year = notingTimer("year"), soon = notingTimer("soon");
  year->scheduleTaskDelay(365.0 * 86400 * 1000);
  EXPECT_FALSE(isReadable(scheduler_->pollFd()));
  soon->scheduleTaskDelay(0.001);
  EXPECT_TRUE(isReadable(scheduler_->pollFd(), 5000));
  soon->cancelTask();
  EXPECT_FALSE(isReadable(scheduler_->pollFd()));
  soon->scheduleTaskDelay(0);
  EXPECT_TRUE(isReadable(scheduler_->pollFd(), 5000));
  EXPECT_EQ(ranAt(0), Names{"soon"});
  EXPECT_FALSE(isReadable(scheduler_->pollFd()));
}

// With the real clock: a loop that does nothing but poll gets every run at its time, never before.
TEST(TimersInRealTime, pollingLoopRunsTimersOnTime) {
  const auto scheduler = Kel::makePtr<TaskScheduler>();
  std::vector<Kel::Seconds> runs;
  const auto timer =
      Kel::makePtr<TimerTask>(scheduler, "tick", 1, [&](Task&) { runs.push_back(Kel::System::currentTime()); });
  const Kel::Seconds start = Kel::System::currentTime();
  timer->scheduleTaskPeriodic(0.005);
  while (runs.size() < 5) {
    ASSERT_TRUE(isReadable(scheduler->pollFd(), 5000));
    scheduler->runReady();
  }
  for (std::size_t i = 0; i < runs.size(); ++i)
    EXPECT_GE(runs[i] - start, 0.005 * static_cast<double>(i + 1) - 1e-6);
}

}  // namespace
}  // namespace Brev
