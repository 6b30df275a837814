// The conversions of times. They have their own source, since net-snmp's agent headers claim common names.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// Needs both.
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <limits>

#include "snmp/Conversions.h"

namespace {

constexpr double ticksPerSecond = 100;

// When the agent started, on the framework's clock. net-snmp returns its up-time in whole ticks, so each reading is up
// to a tick late. The first one is kept: otherwise the ticks of one time could differ between requests, which a manager
// would take for a change. A start that is late by less than a tick keeps past times at or before sysUpTime.
Kel::Seconds agentStart() {
  constexpr Kel::Seconds noise = 1;  // above it, net-snmp has been given another start
  static Kel::Seconds start = std::numeric_limits<Kel::Seconds>::infinity();
  const auto upTime = static_cast<double>(netsnmp_get_agent_uptime()) / ticksPerSecond;
  const auto reading = Kel::System::currentTime() - upTime;
  if (std::abs(reading - start) > noise) start = reading;
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

int UtcSecondsToDateAndTimeF(Kel::Seconds time, unsigned char* buffer, int length) {
  constexpr int shortForm = 8;  // bytes, without a time zone
  if (length < shortForm) return -1;
  if (time <= 0) return static_cast<int>(std::fill_n(buffer, shortForm, static_cast<unsigned char>(0)) - buffer);
  const auto seconds = static_cast<std::time_t>(time);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  const auto year = static_cast<unsigned>(utc.tm_year + 1900);
  const auto deciseconds = static_cast<int>((time - std::floor(time)) * 10);
  const std::array<unsigned, 11> fields{year >> 8U,
                                        year & 0xffU,
                                        static_cast<unsigned>(utc.tm_mon + 1),
                                        static_cast<unsigned>(utc.tm_mday),
                                        static_cast<unsigned>(utc.tm_hour),
                                        static_cast<unsigned>(utc.tm_min),
                                        static_cast<unsigned>(utc.tm_sec),
                                        static_cast<unsigned>(deciseconds),
                                        '+',
                                        0,
                                        0};
  if (length < static_cast<int>(fields.size())) return -1;
  std::transform(fields.begin(), fields.end(), buffer,
                 [](unsigned field) { return static_cast<unsigned char>(field); });
  return static_cast<int>(fields.size());
}
