#pragma once
// For tests: collects trace lines while it exists.

#include <string>
#include <utility>
#include <vector>

#include "kel/Trace.h"

namespace KelTest {

// Collects all levels of one facility, as "<level> <text>"; without a facility, the texts of level 0 of all facilities.
class TraceLines {
 public:
  explicit TraceLines(const std::string& facility = "") {
    if (!facility.empty()) Kel::TraceConfig::setLevels(facility + "/0-9");
    previous_ = Kel::TraceConfig::setSink([this, facility](const auto& handle, unsigned level, const auto& text) {
      if (facility.empty() && level == 0) lines.push_back(text);
      if (handle.facility() == facility) lines.push_back(std::to_string(level) + " " + text);
    });
  }
  ~TraceLines() {
    Kel::TraceConfig::setSink(previous_);
    Kel::TraceConfig::reset();
  }
  TraceLines(const TraceLines&) = delete;
  TraceLines& operator=(const TraceLines&) = delete;

  std::vector<std::string> take() { return std::exchange(lines, {}); }

  std::vector<std::string> lines;  // since the last take()

 private:
  Kel::TraceConfig::Sink previous_;
};

}  // namespace KelTest
