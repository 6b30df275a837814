#pragma once
// Clocks, quantiles and reproducible random numbers for the benchmarks.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <random>
#include <vector>

namespace Bench {

using Clock = std::chrono::steady_clock;  // Python's time.monotonic()

// Processor time of this process, independent of other programs on the machine.
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

template <class TimePoint>
double secondsSince(TimePoint start) {
  return std::chrono::duration<double>(TimePoint::clock::now() - start).count();
}

inline double seconds(Clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

// The time now, comparable between processes.
inline double monotonicNow() {
  return seconds(Clock::now().time_since_epoch());
}

// `values` must not be empty; `q` from 0 (the least) to 1 (the greatest).
inline double quantile(std::vector<double> values, double q) {
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(q * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

// Random numbers that are the same on every machine, unlike those of the standard's distributions.
class Random {
 public:
  explicit Random(std::uint32_t seed) : engine_(seed) {}
  std::uint32_t next() { return static_cast<std::uint32_t>(engine_()); }
  // From 0 to limit - 1; `limit` must not be 0. Slightly uneven for large limits, which does no harm here.
  std::uint32_t below(std::size_t limit) { return next() % static_cast<std::uint32_t>(limit); }

 private:
  std::mt19937 engine_;
};

}  // namespace Bench
