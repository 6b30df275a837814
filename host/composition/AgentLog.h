#pragma once
// Writes the agent's own lines to net-snmp's log, whose output the agent's -L options choose.

#include <fmt/format.h>
#include <syslog.h>

#include <string>
#include <utility>

namespace Host {

// Writes one line; `priority` is one of syslog's.
void agentLog(int priority, const std::string& text);
// Writes an error line that is complete, with name and line end. Does not allocate.
void agentLogLine(const char* line);
// Sets the name at the start of each line, by default "quorind". Lifetime: `name` must outlive the last line.
void setAgentLogName(const char* name);
// Whether the line that net-snmp is writing is one of the agent's own.
bool isAgentLogWriting();

template <class... Args>
void logError(fmt::format_string<Args...> format, Args&&... args) {
  agentLog(LOG_ERR, fmt::format(format, std::forward<Args>(args)...));
}

template <class... Args>
void logInfo(fmt::format_string<Args...> format, Args&&... args) {
  agentLog(LOG_INFO, fmt::format(format, std::forward<Args>(args)...));
}

}  // namespace Host
