#include "kel/Trace.h"

#include <fmt/format.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "kel/Errors.h"
#include "kel/LineLimit.h"
#include "kel/Name.h"
#include "kel/System.h"

namespace Kel {

// A facility, or all that begin alike, and its levels.
struct TraceRule {
  std::string facility;
  bool isPrefix = false;
  std::uint32_t levels = 0;

  bool matches(std::string_view name) const {
    return isPrefix ? name.substr(0, facility.size()) == facility : name == facility;
  }
};

namespace {

// Created on first use and never destroyed, since static objects of any source register handles.
struct Registry {
  std::vector<TraceHandle*> handles;
  std::vector<TraceRule> rules;
  std::vector<TraceListener*> listeners;
  TraceConfig::Sink sink;
  std::shared_ptr<spdlog::logger> logger;
  LineLimit limit;
  bool isReporting = false;

  // Writes to spdlog, without a limit.
  void log(std::string_view facility, unsigned level, const std::string& text) {
    if (!logger) TraceConfig::setOutput(TraceConfig::Output::standardError, "");
    logger->log(level == 0 ? spdlog::level::warn : spdlog::level::debug, "{}/{}: {}", facility, level, text);
  }
};

Registry& registry() {
  static Registry* const instance = new Registry;
  return *instance;
}

std::shared_ptr<spdlog::logger> makeLogger(spdlog::sink_ptr sink, const char* pattern) {
  auto logger = std::make_shared<spdlog::logger>("quorin", std::move(sink));
  logger->set_pattern(pattern);
  logger->set_level(spdlog::level::trace);
  logger->flush_on(spdlog::level::trace);
  return logger;
}

constexpr const char* linePattern = "%Y-%m-%dT%H:%M:%S.%f %v";

unsigned parseLevel(std::string_view text, std::string_view rule) {
  const auto level = numberFromText<unsigned>(text);
  if (!level || *level > TraceHandle::maxLevel) {
    throw RangeException(
        fmt::format("trace setting '{}': '{}' is not a level from 0 to {}", rule, text, TraceHandle::maxLevel));
  }
  return *level;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const auto at = text.find(separator);
    parts.push_back(text.substr(0, at));
    if (at == std::string_view::npos) return parts;
    text.remove_prefix(at + 1);
  }
}

TraceRule parseRule(std::string_view text) {
  const auto slash = text.rfind('/');
  if (slash == std::string_view::npos || slash == 0) {
    throw RangeException(fmt::format("trace setting '{}': expected FACILITY/LEVELS, such as IpBase/0-2,8", text));
  }
  TraceRule rule;
  rule.facility = text.substr(0, slash);
  if (rule.facility.back() == '*') {
    rule.facility.pop_back();
    rule.isPrefix = true;
  }
  const auto levels = text.substr(slash + 1);
  if (levels.empty()) return rule;
  for (const auto piece : split(levels, ',')) {
    const auto dash = piece.find('-');
    const unsigned first = parseLevel(piece.substr(0, dash), text);
    const unsigned last = dash == std::string_view::npos ? first : parseLevel(piece.substr(dash + 1), text);
    if (first > last) {
      throw RangeException(
          fmt::format("trace setting '{}': in '{}' the first level is above the last", text, piece));
    }
    for (unsigned level = first; level <= last; ++level) rule.levels |= 1U << level;
  }
  return rule;
}

// Throws RangeException.
std::vector<TraceRule> parseRules(std::string_view text) {
  std::vector<TraceRule> rules;
  for (const auto piece : split(text, ';')) {
    if (!piece.empty()) rules.push_back(parseRule(piece));
  }
  return rules;
}

// By the last rule that matches; `levels` without one.
std::uint32_t levelsBy(const std::vector<TraceRule>& rules, std::string_view facility, std::uint32_t levels) {
  const auto last =
      std::find_if(rules.rbegin(), rules.rend(), [&](const TraceRule& rule) { return rule.matches(facility); });
  return last == rules.rend() ? levels : last->levels;
}

constexpr std::uint32_t defaultLevels = 1;  // level 0

struct Ring {
  std::array<TraceRing::Entry, TraceRing::capacity> entries;
  std::size_t next = 0;
};

Ring& ring() {
  static Ring* const instance = new Ring;
  return *instance;
}

}  // namespace

TraceHandle::TraceHandle(std::string_view facility) : facility_(facility) {
  registry().handles.push_back(this);
  levelsChanged();
}

void TraceHandle::levelsChanged() {
  auto& known = registry();
  configured_ = levelsBy(known.rules, facility_, defaultLevels);
  levels_ = configured_;
  for (const auto* listener : known.listeners) levels_ |= listener->levelsOf(*this);
}

TraceHandle::~TraceHandle() {
  std::erase(registry().handles, this);
}

void TraceConfig::setLevels(std::string_view text) {
  auto& known = registry();
  for (auto& rule : parseRules(text)) known.rules.push_back(std::move(rule));
  for (auto* handle : known.handles) handle->levelsChanged();
}

void TraceConfig::reset() {
  registry().rules.clear();
  for (auto* handle : registry().handles) handle->levelsChanged();
}

TraceListener::TraceListener(std::string_view levels, TraceConfig::Sink sink)
    : rules_(parseRules(levels)), sink_(std::move(sink)) {
  registry().listeners.push_back(this);
  for (auto* handle : registry().handles) handle->levelsChanged();
}

TraceListener::~TraceListener() {
  std::erase(registry().listeners, this);
  for (auto* handle : registry().handles) handle->levelsChanged();
}

std::uint32_t TraceListener::levelsOf(const TraceHandle& handle) const {
  return levelsBy(rules_, handle.facility(), 0);
}

TraceConfig::Sink TraceConfig::setSink(Sink sink) {
  return std::exchange(registry().sink, std::move(sink));
}

void TraceConfig::setOutput(Output output, const std::string& target) {
  try {
    switch (output) {
      case Output::standardError:
        registry().logger = makeLogger(std::make_shared<spdlog::sinks::stderr_sink_st>(), linePattern);
        break;
      case Output::file:
        registry().logger = makeLogger(std::make_shared<spdlog::sinks::basic_file_sink_st>(target), linePattern);
        break;
      case Output::syslog:
        registry().logger =
            makeLogger(std::make_shared<spdlog::sinks::syslog_sink_st>(target, 0, LOG_DAEMON, true), "%v");
        break;
    }
  } catch (const spdlog::spdlog_ex& error) {
    throw Exception(fmt::format("trace output '{}': {}", target, error.what()));
  }
}

TraceLine::~TraceLine() {
  // An exception of the sink must not end the process.
  try {
    auto& known = registry();
    const std::string text = std::move(stream_).str();
    for (const auto* listener : known.listeners) {
      if ((listener->levelsOf(handle_) >> level_ & 1U) != 0) listener->sink_(handle_, level_, text);
    }
    if ((handle_.configured_ >> level_ & 1U) == 0) return;
    if (known.sink) {
      known.sink(handle_, level_, text);
      return;
    }
    if (TraceLimit::admits(handle_, level_, text)) known.log(handle_.facility(), level_, text);
  } catch (...) {
  }
}

bool TraceLimit::admits(const TraceHandle& handle, unsigned level, const std::string& text) {
  auto& known = registry();
  if (level != 0 || known.isReporting) return true;
  const bool isAskedFor = std::any_of(known.rules.begin(), known.rules.end(),
                                      [&](const TraceRule& rule) { return rule.matches(handle.facility()); });
  return isAskedFor || known.limit.admits(handle.facility(), text);
}

void TraceLimit::beginPeriod() {
  auto& known = registry();
  const std::unique_ptr<bool, void (*)(bool*)> ended(&known.isReporting,
                                                     [](bool* isReporting) { *isReporting = false; });
  known.isReporting = true;  // a sink that calls admits() writes the reports; they do not count in the new period
  known.limit.beginPeriod([&known](const std::string& facility, const std::string& text) {
    if (!known.sink) return known.log(facility, 0, text);
    const auto handle = std::find_if(known.handles.begin(), known.handles.end(),
                                     [&](const auto* candidate) { return candidate->facility() == facility; });
    if (handle != known.handles.end()) known.sink(**handle, 0, text);
  });
}

void TraceRing::entered(const TraceHandle& handle, const char* function, std::uintptr_t argument) {
  auto& r = ring();
  r.entries[r.next++ % capacity] = Entry{System::currentTick(), &handle, function, argument};
}

std::vector<TraceRing::Entry> TraceRing::entries() {
  const auto& r = ring();
  std::vector<Entry> result;
  const std::size_t first = r.next > capacity ? r.next - capacity : 0;
  for (std::size_t i = first; i < r.next; ++i) result.push_back(r.entries[i % capacity]);
  return result;
}

void TraceRing::write(std::ostream& out, std::size_t most) {
  auto all = entries();
  if (all.size() > most) all.erase(all.begin(), all.end() - static_cast<std::ptrdiff_t>(most));
  for (const auto& entry : all) {
    out << fmt::format("{:.6f} {} {} {:#x}\n", entry.time, entry.handle->facility(), entry.function,
                       entry.argument);
  }
}

}  // namespace Kel
