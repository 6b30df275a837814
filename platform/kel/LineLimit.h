#pragma once
// Rate-limits a log whose lines are caused by requests: of lines that repeat, the first few are written, the others
// are counted.
//
// Lines are of one kind when they have the same source and the same words, where words with a digit count as equal:
// addresses, numbers and the like. A limit has periods, whose ends its user declares, usually every minute.
//
// Guarantees:
// - The first line of a kind in a period is admitted, and so are `linesPerKind` in all.
// - What was not admitted is reported at the end of the period: the latest line of the kind and how many they were.
// - A source has at most `kindsPerSource` kinds in a period; all further lines of it count as one kind.
// - Until a first period is begun, every line is admitted.
// Thread: one at a time.

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "kel/Trace.h"

namespace Kel {

class LineLimit {
 public:
  static constexpr unsigned secondsPerPeriod = 60;  // what users of a limit keep to
  static constexpr unsigned linesPerKind = 3;
  static constexpr std::size_t kindsPerSource = 32;

  // Writes "<latest line> ... repeated <count> times", or for the kind that stands for many "<latest line> ... and
  // <count> other lines".
  using Write = std::function<void(const std::string& source, const std::string& text)>;

  // Whether a line is to be written now. If not, it is counted. `text` has no line end.
  bool admits(std::string_view source, std::string_view text);
  // Reports what was not admitted since the last call, and begins the next period.
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
// and every line of a facility that the trace configuration names. The default sink applies the limit. Another sink is
// given every line and may call `admits` itself.
class TraceLimit {
 public:
  static bool admits(const TraceHandle& handle, unsigned level, const std::string& text);
  // As LineLimit::beginPeriod(). The reports go to the sink, as lines of their facilities at level 0.
  static void beginPeriod();
};

}  // namespace Kel
