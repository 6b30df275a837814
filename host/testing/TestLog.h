#pragma once
// For tests: the lines of net-snmp's log while it exists.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <string>
#include <vector>

namespace Host {

class TestLog {
 public:
  TestLog() : handler_(netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG)) {
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, take, this);
  }
  ~TestLog() {
    snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, take, this, 1);
    netsnmp_remove_loghandler(handler_);
  }
  TestLog(const TestLog&) = delete;
  TestLog& operator=(const TestLog&) = delete;

  std::vector<std::string> lines;

 private:
  static int take(int, int, void* message, void* self) {
    std::string text = static_cast<const snmp_log_message*>(message)->msg;
    if (text.ends_with('\n')) text.pop_back();
    static_cast<TestLog*>(self)->lines.push_back(text);
    return SNMPERR_SUCCESS;
  }

  netsnmp_log_handler* handler_;
};

}  // namespace Host
