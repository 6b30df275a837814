#pragma once
// Limits net-snmp's warnings and errors, and our trace lines (kel/LineLimit.h), so that no manager can fill the log
// with requests. Reports every minute how many lines it suppressed.
//
// Limits the outputs that net-snmp's log has at construction. Requires: they are not removed while it exists; at most
// one object exists at a time. The plugin has none, since the log belongs to the operator of its snmpd.
// Guarantees: the agent's own lines (AgentLog.h), and net-snmp's notices, information and debugging output, pass
// unchanged. The destructor reports the lines suppressed since the last report, and restores the outputs.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <string>
#include <vector>

#include "kel/LineLimit.h"

namespace Host {

class LogLimit {
 public:
  LogLimit();
  ~LogLimit();
  LogLimit(const LogLimit&) = delete;
  LogLimit& operator=(const LogLimit&) = delete;

 private:
  struct Output {
    netsnmp_log_handler* handler;
    NetsnmpLogHandler* write;  // the output's own function, replaced by `take`
    Kel::LineLimit limit;
  };

  void report();
  static int take(netsnmp_log_handler* handler, int priority, const char* line);
  static void minuteIsOver(unsigned alarm, void* self);

  static LogLimit* current;
  std::vector<Output> outputs_;
  unsigned alarm_ = 0;
};

}  // namespace Host
