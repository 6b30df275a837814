#pragma once
// The framework's clock.
//
// Seconds as a double: CLOCK_MONOTONIC plus the offset to UTC that was taken once at start. It never jumps,
// whatever is done to the machine's time of day.

#include <functional>

namespace Kel {

using Seconds = double;

class System {
 public:
  static Seconds currentTime();
  // The same as of the kernel's latest tick, some milliseconds old, at a fifth of the price.
  static Seconds currentTick();

  // Replaces the clock; an empty function restores the real one. For tests and simulations.
  static void clockIs(std::function<Seconds()> clock);
};

}  // namespace Kel
