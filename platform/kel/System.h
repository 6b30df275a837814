#pragma once
// The framework's clock.
//
// Seconds as a double: CLOCK_MONOTONIC plus the offset to UTC that was taken once at start. It never jumps,
// whatever is done to the machine's time of day. For the same reason two processes may have different offsets: a
// time that another process wrote must come with its offset.
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
  // The same at the kernel's latest tick: some milliseconds old, and five times cheaper.
  static Seconds currentTick();

  // What this process adds to CLOCK_MONOTONIC. Never 0.
  static Seconds utcOffset();
  // A time of a process of the same machine whose offset is `writersOffset`, on this process's clock. 0: unknown;
  // `time` is returned unchanged.
  static Seconds localTime(Seconds time, Seconds writersOffset);

  // Replaces the clock; an empty function restores the real one. For tests and simulations.
  static void clockIs(std::function<Seconds()> clock);
};

}  // namespace Kel
