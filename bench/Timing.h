#pragma once
// Time, and what a list of durations says.

#include <algorithm>
#include <chrono>
#include <vector>

namespace Bench {

using Clock = std::chrono::steady_clock;  // Python's time.monotonic()

inline double seconds(Clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

inline double secondsSince(Clock::time_point start) {
  return seconds(Clock::now() - start);
}

// A moment as both sides of a pipe understand it.
inline double monotonicNow() {
  return seconds(Clock::now().time_since_epoch());
}

// `values` must not be empty; `q` from 0 (the least) to 1 (the greatest).
inline double quantile(std::vector<double> values, double q) {
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(q * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

}  // namespace Bench
