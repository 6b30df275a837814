#include "brev/TimerTask.h"

#include <fmt/format.h>

#include <cmath>

#include "kel/Errors.h"

namespace Brev {

TimerTask::~TimerTask() {
  scheduler()->clearTimer(this);
}

void TimerTask::scheduleTaskDelay(Kel::Seconds seconds) {
  if (!std::isfinite(seconds) || seconds < 0) {
    throw Kel::RangeException(fmt::format("task {:?}: delay {}; expected seconds from 0 up", name(), seconds));
  }
  cancelTask();
  waitUntil(Kel::System::currentTime() + seconds);
}

void TimerTask::scheduleTaskPeriodic(Kel::Seconds seconds) {
  if (!std::isfinite(seconds) || seconds <= 0) {
    throw Kel::RangeException(fmt::format("task {:?}: period {}; expected seconds above 0", name(), seconds));
  }
  scheduleTaskDelay(seconds);
  period_ = seconds;
}

void TimerTask::scheduleTask() {
  if (scheduled()) return;
  scheduler()->clearTimer(this);
  due_ = Kel::System::currentTime();
  Task::scheduleTask();
}

void TimerTask::cancelTask() {
  scheduler()->clearTimer(this);
  period_ = 0;
  Task::cancelTask();
}

void TimerTask::waitUntil(Kel::Seconds due) {
  due_ = due;
  scheduler()->setTimer(this);
}

void TimerTask::beginRun() {
  if (period_ == 0) return;
  const Kel::Seconds now = Kel::System::currentTime();
  const Kel::Seconds next = due_ + period_;
  waitUntil(next > now ? next : now + period_);
}

}  // namespace Brev
