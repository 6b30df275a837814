#pragma once
// The text form of a whole switch (YAML; docs/switch-file.md describes every key).
//
//   const SwitchState state = switchFromText(text, {.file = "leaf-switch.yaml"});
//   writeSwitch(state, {}, [](std::string_view part) { std::fwrite(part.data(), 1, part.size(), stdout); });
//
// Guarantees: a whole state that is written and read again has the same documents and records, except those passed to
// `leftOut`. Moving counters are written with their current values, as fixed ones.

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "ctl/SwitchState.h"

namespace Ctl {

struct SwitchReading {
  std::string file;                                // for messages
  std::function<void(double part)> progress = {};  // called repeatedly with the fraction read, 0 to 1
};

// Throws YamlException, whose text is one line: "FILE:LINE: KEY: what is wrong; what to do". An exception thrown by
// `progress` ends the reading.
SwitchState switchFromText(const std::string& text, const SwitchReading& reading);

struct SwitchWriting {
  // Only this VRF. Requires: it exists.
  std::optional<L3::VrfName> vrf = std::nullopt;
  // Called with one line about what the text cannot express: routes whose FEC is missing, which are written without
  // next hops, and the records of a VRF id that no VRF has, which are not written.
  std::function<void(const std::string& line)> leftOut = {};
};

// Passes the text to `out` in pieces of some 64 KiB, in order. Throws Kel::RangeException, before it passes any text,
// if `writing.vrf` has an id that a VRF of its name cannot have: the default VRF has the id 0, every other one a known
// id above 0.
void writeSwitch(const SwitchState& state, const SwitchWriting& writing,
                 const std::function<void(std::string_view)>& out);

// ---- keywords shared by reader and writer

// Prefixes of enumerator names, for enumWord() (YamlFields.h).
inline constexpr std::string_view operStatusPrefix = "operStatus";
inline constexpr std::string_view adminStatusPrefix = "adminStatus";
inline constexpr std::string_view duplexPrefix = "duplex";
inline constexpr std::string_view addressStatePrefix = "addressState";
inline constexpr std::string_view fecModePrefix = "fecMode";
// The counters of a link: IF-MIB's names without "if" and "HC".
inline constexpr std::array<std::string_view, 9> linkCounterNames = {
    "inOctets",  "inUcastPkts",  "inMulticastPkts", "inDiscards", "inErrors",
    "outOctets", "outUcastPkts", "outDiscards",     "outErrors"};
inline constexpr std::string_view blackholeWord = "blackhole";

// Whether `interface`, written alone as a via, would be parsed as something else: it is "blackhole" or an address, or
// contains a space.
bool isAmbiguousVia(std::string_view interface);

}  // namespace Ctl
