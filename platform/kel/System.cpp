#include "kel/System.h"

#include <ctime>
#include <utility>

namespace Kel {
namespace {

Seconds readClock(clockid_t id) {
  timespec t{};
  clock_gettime(id, &t);
  return static_cast<Seconds>(t.tv_sec) + 1e-9 * static_cast<Seconds>(t.tv_nsec);
}

std::function<Seconds()>& injectedClock() {
  static std::function<Seconds()> clock;
  return clock;
}

Seconds frameworkTime(clockid_t id) {
  static const Seconds utcOffset = readClock(CLOCK_REALTIME) - readClock(CLOCK_MONOTONIC);
  const auto& injected = injectedClock();
  return injected ? injected() : readClock(id) + utcOffset;
}

}  // namespace

Seconds System::currentTime() {
  return frameworkTime(CLOCK_MONOTONIC);
}

Seconds System::currentTick() {
  return frameworkTime(CLOCK_MONOTONIC_COARSE);
}

void System::clockIs(std::function<Seconds()> clock) {
  injectedClock() = std::move(clock);
}

}  // namespace Kel
