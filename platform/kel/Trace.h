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
// one load and one branch and evaluates none of its fragments. Enabled lines go to the sink. The default sink writes
// "<facility>/<level>: <text>" by spdlog, to standard error unless configured otherwise.
//
// QTRACE_ENTRY(handle, argument) records the entry of a function in a ring in memory, without formatting.

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

  // Registers the facility. Levels that were configured earlier apply to it.
  explicit TraceHandle(std::string_view facility);
  ~TraceHandle();
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  // `level` is at most maxLevel.
  bool enabled(unsigned level) const { return (levels_ >> level) & 1U; }
  const std::string& facility() const { return facility_; }

 private:
  friend class TraceConfig;
  friend class TraceLine;
  friend class TraceListener;
  void levelsChanged();

  std::string facility_;
  std::uint32_t configured_ = 1;  // the levels that TraceConfig enables, as bits
  std::uint32_t levels_ = 1;      // and those that a TraceListener enables
};

// Levels and sink for the whole process.
class TraceConfig {
 public:
  // Sets levels from a text such as "IpBase/0-2,8;Vrf*/0,7": facilities (a trailing '*' matches any rest) with their
  // enabled levels, separated by ';'. All other levels of the facility are disabled, level 0 too; "<facility>/"
  // disables all. If several settings match a facility, the last one applies. Settings also apply to handles that are
  // made later. Throws RangeException that quotes the malformed part, and then changes nothing.
  static void setLevels(std::string_view text);
  // Removes all settings: every facility has level 0 alone.
  static void reset();

  using Sink = std::function<void(const TraceHandle&, unsigned level, const std::string& text)>;
  // Replaces the sink and returns the previous one. An empty sink means the default (spdlog). An exception of a sink
  // loses the line and has no other effect.
  static Sink setSink(Sink sink);

  enum class Output { standardError, file, syslog };
  // Sets where the default sink writes. `target` is the file's path, or the identity in syslog. Throws Exception when
  // the file cannot be opened.
  static void setOutput(Output output, const std::string& target);
};

struct TraceRule;

// Receives trace lines at levels of its own while it exists, whatever TraceConfig enables: for a short look at a
// running process. Its lines do not reach the sink of TraceConfig, unless TraceConfig enables them too.
class TraceListener {
 public:
  // `levels` and the exception are those of TraceConfig::setLevels(). Requires: `sink` does not create or destroy a
  // listener.
  TraceListener(std::string_view levels, TraceConfig::Sink sink);
  ~TraceListener();
  TraceListener(const TraceListener&) = delete;
  TraceListener& operator=(const TraceListener&) = delete;

 private:
  friend class TraceHandle;
  friend class TraceLine;
  std::uint32_t levelsOf(const TraceHandle& handle) const;

  std::vector<TraceRule> rules_;
  TraceConfig::Sink sink_;
};

// One line under construction. The destructor passes it to the listeners and the sink.
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
    const TraceHandle* handle = nullptr;  // null: empty slot
    const char* function = nullptr;       // static text
    std::uintptr_t argument = 0;          // identifies the call: a pointer or a number
  };
  static constexpr std::size_t capacity = 4096;

  static void entered(const TraceHandle& handle, const char* function, std::uintptr_t argument);
  // Oldest first.
  static std::vector<Entry> entries();
  // Writes the latest `most` entries for support dumps, oldest first, one in a line:
  // "<time> <facility> <function> <argument in hex>".
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
