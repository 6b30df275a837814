#pragma once
// Numbers that look random and are the same on every machine, which those of the standard's distributions are not.

#include <cstdint>
#include <random>

namespace Bench {

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
