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
  const Seconds offset = System::utcOffset();
  const auto& injected = injectedClock();
  return injected ? injected() : readClock(id) + offset;
}

}  // namespace

Seconds System::currentTime() {
  return frameworkTime(CLOCK_MONOTONIC);
}

Seconds System::currentTick() {
  return frameworkTime(CLOCK_MONOTONIC_COARSE);
}

Seconds System::utcOffset() {
  static const Seconds offset = readClock(CLOCK_REALTIME) - readClock(CLOCK_MONOTONIC);
  return offset;
}

Seconds System::localTime(Seconds time, Seconds writersOffset) {
  return writersOffset == 0 ? time : time - writersOffset + utcOffset();
}

void System::clockIs(std::function<Seconds()> clock) {
  injectedClock() = std::move(clock);
}

}  // namespace Kel
