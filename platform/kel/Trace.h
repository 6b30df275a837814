#pragma once
// Tracing.
//
// Each source unit has one handle:
//
//   static Kel::TraceHandle traceHandle("IpAddressTableSm");
//   QTRACE(traceHandle, 2) << "no ipmib in vrf " << vrfName;
//
// Levels 0 to 9: 0 errors and refusals (on by default), 1 registration and per-line values, 2 per-request detail
// and pass summaries, 6 per-entry changes, 7 iterator steps, 8 completions and count passes. A disabled trace costs
// one load and one branch and evaluates none of its fragments. Enabled lines go to the sink as
// "<facility>/<level>: <text>"; the sink is spdlog's (standard error unless configured otherwise).
//
// Function entries are kept apart, in a ring in memory that costs no formatting: QTRACE_ENTRY(handle, argument).

#include <array>
#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace Kel {

class TraceHandle {
 public:
  static constexpr unsigned maxLevel = 9;

  // Registers the facility for the life of the process. Levels configured before the handle existed apply to it.
  explicit TraceHandle(std::string_view facility);
  ~TraceHandle();
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  // `level` is at most maxLevel.
  bool enabled(unsigned level) const { return (levels_ >> level) & 1U; }
  const std::string& facility() const { return facility_; }

 private:
  friend class TraceConfig;
  std::string facility_;
  std::uint32_t levels_ = 1;
};

// Levels and sink for the whole process.
class TraceConfig {
 public:
  // Sets levels from a text such as "IpBase/0-2,8;Vrf*/0,7": facilities (a trailing '*' matches any rest) with
  // their enabled levels, several separated by ';'. The levels named are the ones enabled: one that leaves out
  // level 0 turns it off, "<facility>/" turns all off. Of several that match a facility the last holds. The setting
  // also applies to handles made later. Throws RangeException with the offending piece when the text is malformed;
  // then nothing is changed.
  static void levelsAre(std::string_view text);
  // Back to level 0 for every facility.
  static void reset();

  using Sink = std::function<void(const TraceHandle&, unsigned level, const std::string& text)>;
  // Replaces the sink and returns the previous one; an empty sink stands for the default (spdlog). Tests catch
  // lines so.
  static Sink sinkIs(Sink sink);

  enum class Output { standardError, file, syslog };
  // Where the default sink writes. `target` is the file's path, or the identity in syslog. Throws Exception when
  // the file cannot be opened.
  static void outputIs(Output output, const std::string& target);
};

// One line under construction; handed to the sink when it goes out of scope.
class TraceLine {
 public:
  TraceLine(const TraceHandle& handle, unsigned level) : handle_(handle), level_(level) {}
  ~TraceLine();
  TraceLine(const TraceLine&) = delete;
  TraceLine& operator=(const TraceLine&) = delete;
  std::ostream& stream() { return stream_; }

 private:
  const TraceHandle& handle_;
  unsigned level_;
  std::ostringstream stream_;
};

// The ring of the latest function entries of the process.
class TraceRing {
 public:
  struct Entry {
    double time = 0;                      // seconds, framework clock, as of the latest tick
    const TraceHandle* handle = nullptr;  // null: slot never written
    const char* function = nullptr;       // static text
    std::uintptr_t argument = 0;          // whatever identifies the call: a pointer or a number
  };
  static constexpr std::size_t capacity = 4096;

  static void entered(const TraceHandle& handle, const char* function, std::uintptr_t argument);
  // Oldest first.
  static std::vector<Entry> entries();
  // One line an entry, oldest first, for support dumps: "<time> <facility> <function> <argument in hex>".
  // At most the latest `most` entries.
  static void write(std::ostream& out, std::size_t most = capacity);
};

inline std::uintptr_t traceArgument(const void* pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer);
}
inline std::uintptr_t traceArgument(std::uintptr_t number) {
  return number;
}

}  // namespace Kel

#define QTRACE(handle, level)                \
  if (!(handle).enabled(level)) [[likely]] { \
  } else                                     \
    ::Kel::TraceLine((handle), (level)).stream()

#define QTRACE_ENTRY(handle, argument) ::Kel::TraceRing::entered((handle), __func__, ::Kel::traceArgument(argument))
