#pragma once
// Keeps whoever may ask the agent from filling its log: limits the warnings and errors of net-snmp's library, and the
// trace lines of ours, while it exists (kel/LineLimit.h), and reports every minute what it held back.
//
// Requires: net-snmp's log outputs are chosen already; one that is added later is not limited. At most one object at a
// time, in a process whose log is ours to decide on: never in a foreign snmpd.
// Guarantees: the agent's own lines (host/AgentLog.h), and net-snmp's notices, information and debugging output, pass
// unchanged. The end reports what is still held back, and gives the outputs back.

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
    NetsnmpLogHandler* write;  // its own function, in whose place `take` stands
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
