#include "swfwdstats/Counter.h"

#include <algorithm>
#include <array>

namespace Ip {
namespace {

struct Named {
  std::string_view name;
  const Counter* counter;
};

// Sorts at compile time; a lookup takes at most five comparisons.
constexpr auto sorted(auto names) {
  std::sort(names.begin(), names.end(), [](const Named& a, const Named& b) { return a.name < b.name; });
  return names;
}

#define SW_FWD_NAMED(Class, field, snmp6Name) Named{snmp6Name, &field##Counter},
constexpr auto byName = sorted(std::array{SW_FWD_COUNTERS(SW_FWD_NAMED)});
#undef SW_FWD_NAMED

}  // namespace

const Counter* CounterHash::find(std::string_view snmp6Name) {
  if (snmp6Name.size() < shortestName || snmp6Name.size() > longestName) return nullptr;
  const auto* const at = std::lower_bound(byName.begin(), byName.end(), snmp6Name,
                                          [](const Named& a, std::string_view name) { return a.name < name; });
  return at != byName.end() && at->name == snmp6Name ? at->counter : nullptr;
}

}  // namespace Ip
