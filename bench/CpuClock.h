#pragma once
// Time of the processor, so that what else runs on the machine does not count.

#include <chrono>
#include <ctime>

namespace Bench {

struct CpuClock {
  using duration = std::chrono::nanoseconds;
  using rep = duration::rep;
  using period = duration::period;
  using time_point = std::chrono::time_point<CpuClock>;
  static constexpr bool is_steady = true;
  static time_point now() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return time_point(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
  }
};

inline double secondsSince(CpuClock::time_point start) {
  return std::chrono::duration<double>(CpuClock::now() - start).count();
}

}  // namespace Bench
