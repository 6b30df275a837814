#pragma once
// Writes the agent's own lines to net-snmp's log, whose output the agent's -L options choose.

#include <fmt/format.h>
#include <syslog.h>

#include <string>
#include <utility>

namespace Host {

// Writes one line; `priority` is one of syslog's.
void agentLog(int priority, const std::string& text);
// Writes an error line, to which the caller has added the name and the line end. Does not allocate, so it can report
// that memory is exhausted.
void agentLogLine(const char* line);
// Sets the name at the start of each line, "quorind" by default. Lifetime: `name` must outlive the last line.
void setAgentLogName(const char* name);
// Whether a line of the agent is being written. For handlers of net-snmp's log, which get all lines.
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
