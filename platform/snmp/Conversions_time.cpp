// The conversions of times. They have their own source, since net-snmp's agent headers claim common names.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// Needs both.
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cmath>
#include <limits>

#include "snmp/Conversions.h"

namespace {

constexpr double ticksPerSecond = 100;

// When the agent started, on the framework's clock. net-snmp returns its up-time in whole ticks, so each reading
// determines the start to within one tick. The first result is kept while readings agree with it: otherwise the ticks
// of one time could differ by one between requests, which a manager would take for a change. The result is not before
// the actual start, so that no past time is after sysUpTime.
Kel::Seconds agentStart() {
  constexpr Kel::Seconds readingBounds = 1 / ticksPerSecond + 1e-6;  // net-snmp's clock counts microseconds
  static Kel::Seconds start = std::numeric_limits<Kel::Seconds>::infinity();
  const auto before = Kel::System::currentTime();
  const auto upTime = static_cast<double>(netsnmp_get_agent_uptime()) / ticksPerSecond;
  const auto after = Kel::System::currentTime();
  if (start < before - upTime - readingBounds || start > after - upTime) start = after - upTime;
  return start;
}

}  // namespace

int SecondsToTimeTicksF(Kel::Seconds duration, unsigned char* buffer, int length) {
  constexpr double tickCount = 4294967296.0;  // after which TimeTicks wrap
  const double ticks = std::floor(duration * ticksPerSecond);
  return U32ToAsnUnsignedF(ticks > 0 ? static_cast<unsigned int>(std::fmod(ticks, tickCount)) : 0, buffer, length);
}

int NowSecondsToUptimeTimeTicksF(Kel::Seconds time, unsigned char* buffer, int length) {
  return SecondsToTimeTicksF(time - agentStart(), buffer, length);
}

int UtcSecondsToUptimeTimeTicks(Kel::Seconds time, unsigned char* buffer, int length) {
  return NowSecondsToUptimeTimeTicksF(time, buffer, length);
}
