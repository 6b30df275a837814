// The plugin quorin.so: the library inside a stock snmpd, loaded by the line
//
//   dlmod quorin quorin
//
// in its snmpd.conf (the second word is its path; this one is below snmpd's own directory of plugins).
//
// When snmpd reads its configuration again, it unloads and loads the plugin, which must not interrupt the service. So
// the plugin acts in the next turn of snmpd's loop, when it knows whether it was loaded again. By its first turn snmpd
// is also in the background and runs as its final user, who can open the store. The code stays in the process once it
// was loaded (linked with -z nodelete).

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <memory>

#include "host/composition/AgentLog.h"
#include "host/composition/Composition.h"
#include "host/plugin/SnmpdLoop.h"
#include "kel/LineLimit.h"
#include "snmp/CBoundary.h"
#include "snmp/Config.h"
#include "snmp/HandlerRegistration.h"

namespace Host {

namespace {

Kel::TraceHandle pluginTrace("Plugin");

constexpr timeval nextTurn{0, 1000};

class Plugin {
 public:
  static Plugin& instance() {
    static auto* const plugin = new Plugin;
    return *plugin;
  }

  void load() {
    setAgentLogName("quorin");
    Snmp::setTakesPrecedence(true);
    Snmp::setDefaultTraceSink([](const Kel::TraceHandle& handle, unsigned level, const std::string& text) {
      if (!Kel::TraceLimit::admits(handle, level, text)) return;
      agentLog(level == 0 ? LOG_WARNING : LOG_DEBUG, fmt::format("{}/{}: {}", handle.facility(), level, text));
    });
    Snmp::registerConfigTokens();
    Kel::TraceLimit::beginPeriod();
    limitAlarm_ = snmp_alarm_register(Kel::LineLimit::secondsPerPeriod, SA_REPEAT, onMinute, nullptr);
    isLoaded_ = true;
    settleSoon();
  }

  void unload() {
    Snmp::unregisterConfigTokens();
    snmp_alarm_unregister(limitAlarm_);
    isLoaded_ = false;
    settleSoon();
  }

 private:
  void settleSoon() {
    if (isShuttingDown_ || alarm_ != 0) return;
    alarm_ = snmp_alarm_register_hr(nextTurn, 0, onAlarm, this);
    if (alarm_ == 0) throw Kel::Exception("net-snmp has no memory for an alarm");
  }

  void settle() {
    alarm_ = 0;
    if (!isLoaded_) {
      end();
      snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_SHUTDOWN, onShutdown, nullptr, 1);
      logInfo("unloaded");
      return;
    }
    Composition::setNetnsDirectory("");
    if (!composition_) {
      snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_SHUTDOWN, onShutdown, nullptr);
      logInfo("version {} serves", QUORIN_VERSION);
    }
    Composition::update(composition_, loop_, Composition::configuredStoreDirectory(), SharedGroups::ofMaster());
  }

  void end() { composition_.reset(); }

  static void onAlarm(unsigned, void* self) noexcept {
    Snmp::atCBoundary(pluginTrace, __func__, [&] { static_cast<Plugin*>(self)->settle(); });
  }
  static void onMinute(unsigned, void*) noexcept {
    Snmp::atCBoundary(pluginTrace, __func__, [] { Kel::TraceLimit::beginPeriod(); });
  }
  // Runs while the agent library still works, which it no longer does when the module is unloaded. The callback's
  // argument is null, since the library would free it.
  static int onShutdown(int, int, void*, void*) noexcept {
    Snmp::atCBoundary(pluginTrace, __func__, [] {
      instance().isShuttingDown_ = true;
      instance().end();
    });
    return SNMPERR_SUCCESS;
  }

  SnmpdLoop loop_;
  std::unique_ptr<Composition> composition_;
  unsigned alarm_ = 0;
  unsigned limitAlarm_ = 0;
  bool isLoaded_ = false;
  bool isShuttingDown_ = false;
};

}  // namespace

}  // namespace Host

extern "C" {
__attribute__((visibility("default"))) void init_quorin() {
  Snmp::atCBoundary(Host::pluginTrace, __func__, [] { Host::Plugin::instance().load(); });
}
__attribute__((visibility("default"))) void deinit_quorin() {
  Snmp::atCBoundary(Host::pluginTrace, __func__, [] { Host::Plugin::instance().unload(); });
}
}
