#pragma once
// Rate-limits a log whose lines are caused by requests: writes the first few of similar lines and counts the others.
//
// Lines are of one kind when they have the same source and the same words in the first 200 characters. All words with a
// digit (addresses, numbers) count as equal. The user of a limit begins a new period, usually every minute.
//
// Guarantees:
// - The first `linesPerKind` lines of a kind in a period are admitted.
// - Lines that were not admitted are reported at the end of the period: the latest line of the kind, and their number.
// - A source has at most `kindsPerSource` kinds in a period; its lines of any further kind count as one kind.
// - Before the first call of beginPeriod(), every line is admitted.
// Thread: one at a time.

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "kel/Trace.h"

namespace Kel {

class LineLimit {
 public:
  static constexpr unsigned secondsPerPeriod = 60;  // for the user of a limit
  static constexpr unsigned linesPerKind = 3;
  static constexpr std::size_t kindsPerSource = 32;

  // Receives "<latest line> ... repeated <count> times", or "<latest line> ... and <count> other lines" for the further
  // kinds of a source.
  using Write = std::function<void(const std::string& source, const std::string& text)>;

  // Returns whether to write the line; counts it otherwise. `text` has no line end.
  bool admits(std::string_view source, std::string_view text);
  // Reports the lines that were not admitted since the last call, and begins the next period.
  void beginPeriod(const Write& write);

 private:
  struct Kind {
    unsigned admitted = 0;
    unsigned repeated = 0;
    std::string latest;
  };
  using Kinds = std::map<std::string, Kind, std::less<>>;

  bool isOn_ = false;
  std::map<std::string, Kinds, std::less<>> sources_;
};

// The limit of the process's trace lines; a line's source is its facility. It admits every line at a level above 0,
// and every line of a facility that the trace configuration names. The default sink applies the limit. Any other sink
// receives every line and may call `admits` itself.
class TraceLimit {
 public:
  static bool admits(const TraceHandle& handle, unsigned level, const std::string& text);
  // As LineLimit::beginPeriod(). The sink receives the reports as lines of their facilities at level 0.
  static void beginPeriod();
};

}  // namespace Kel
