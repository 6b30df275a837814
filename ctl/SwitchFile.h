#pragma once
// The text form of a whole switch (YAML; docs/switch-file.md describes every key).
//
//   const SwitchState state = switchFromText(text, {.file = "leaf-switch.yaml"});
//   writeSwitch(state, {}, [](std::string_view part) { std::fwrite(part.data(), 1, part.size(), stdout); });
//
// Guarantees: a state that was written and read again has the same documents and records. Counters that move are
// written with the values that they have.

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "ctl/SwitchState.h"

namespace Ctl {

struct SwitchReading {
  std::string file;                                // for messages
  std::function<void(double part)> progress = {};  // called now and then, with 0 to 1
};

// Throws YamlException, with one line: "FILE:LINE: KEY: what is wrong; what to do".
SwitchState switchFromText(const std::string& text, const SwitchReading& reading);

struct SwitchWriting {
  // Only this VRF. Requires: it exists.
  std::optional<L3::VrfName> vrf = std::nullopt;
  // Gets a line about each record that has no place in the text.
  std::function<void(const std::string& line)> leftOut = {};
};

// Passes the text to `out` in pieces, in order.
void writeSwitch(const SwitchState& state, const SwitchWriting& writing,
                 const std::function<void(std::string_view)>& out);

// ---- the words of both directions

// The prefixes of enumWord().
inline constexpr std::string_view operStatusPrefix = "operStatus";
inline constexpr std::string_view addressStatePrefix = "addressState";
inline constexpr std::string_view fecModePrefix = "fecMode";
inline constexpr std::string_view blackholeWord = "blackhole";

// Whether a via's text would be read as another one if it were this interface alone.
bool isAmbiguousVia(std::string_view interface);

}  // namespace Ctl
