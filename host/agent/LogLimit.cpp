#include "host/agent/LogLimit.h"

#include <algorithm>
#include <string_view>

#include "host/composition/AgentLog.h"
#include "kel/Trace.h"
#include "snmp/CBoundary.h"

namespace Host {

static Kel::TraceHandle logLimitTrace("LogLimit");

LogLimit* LogLimit::current = nullptr;

LogLimit::LogLimit() {
  for (auto* handler = get_logh_head(); handler != nullptr; handler = handler->next) {
    outputs_.push_back({handler, handler->handler, {}});
    handler->handler = take;
  }
  current = this;
  alarm_ = snmp_alarm_register(Kel::LineLimit::secondsPerPeriod, SA_REPEAT, minuteIsOver, this);
  report();
}

LogLimit::~LogLimit() {
  Snmp::atCBoundary(logLimitTrace, __func__, [this] { report(); });
  snmp_alarm_unregister(alarm_);
  current = nullptr;
  for (const auto& output : outputs_) output.handler->handler = output.write;
}

void LogLimit::report() {
  for (auto& output : outputs_) {
    output.limit.beginPeriod([&output](const std::string&, const std::string& text) {
      output.write(output.handler, LOG_WARNING, (text + '\n').c_str());
    });
  }
  Kel::TraceLimit::beginPeriod();
}

int LogLimit::take(netsnmp_log_handler* handler, int priority, const char* line) {
  auto& outputs = current->outputs_;
  const auto output =
      std::find_if(outputs.begin(), outputs.end(), [&](const Output& known) { return known.handler == handler; });
  const bool isAdmitted = Snmp::atCBoundary(logLimitTrace, __func__, false, [&] {
    std::string_view text(line);
    if (text.ends_with('\n')) text.remove_suffix(1);
    return priority > LOG_WARNING || isAgentLogWriting() || output->limit.admits("net-snmp", text);
  });
  return isAdmitted ? output->write(handler, priority, line) : 1;
}

void LogLimit::minuteIsOver(unsigned, void* self) {
  Snmp::atCBoundary(logLimitTrace, __func__, [self] { static_cast<LogLimit*>(self)->report(); });
}

}  // namespace Host
