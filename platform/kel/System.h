#pragma once
// The framework's clock.
//
// Seconds as a double: CLOCK_MONOTONIC plus the offset to UTC at the start of the process. Setting the machine's time
// of day does not change it. Two processes may therefore have different offsets, so a process that writes a time for
// others writes its offset too:
//
//   record.timeIs(System::currentTime());                   // the writer
//   record.utcOffsetIs(System::utcOffset());
//   System::localTime(record.time(), record.utcOffset());   // the reader

#include <functional>

namespace Kel {

using Seconds = double;

class System {
 public:
  static Seconds currentTime();
  // The time of the kernel's latest tick: up to some milliseconds old, and five times cheaper.
  static Seconds currentTick();

  // What this process adds to CLOCK_MONOTONIC. Never 0.
  static Seconds utcOffset();
  // Converts `time` of another process of this machine to this process's clock. `writersOffset` is the utcOffset() of
  // that process; 0 means unknown and leaves `time` unchanged.
  static Seconds localTime(Seconds time, Seconds writersOffset);

  // Replaces the clock; an empty function restores the real one. For tests and simulations.
  static void clockIs(std::function<Seconds()> clock);
};

}  // namespace Kel
