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

#include <array>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

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
constexpr timeval memoryPause{1, 0};

// Memory for the rest of a callback in which operator new found none. An exception instead would leave work half done,
// or end snmpd if it came from a destructor; some of libraries allocate.
class Reserve {
 public:
  void fill() {
    for (auto& block : blocks_) {
      if (block == nullptr) block = std::malloc(blockSize);
    }
  }
  // Frees one block; returns false if there is none.
  bool release() {
    for (auto& block : blocks_) {
      if (block == nullptr) continue;
      std::free(std::exchange(block, nullptr));
      return true;
    }
    return false;
  }

 private:
  // Blocks that malloc() takes from its heap, where small ones find room again. A callback needs some 100 kB.
  static constexpr std::size_t blockSize = 64 * 1024;
  std::array<void*, 16> blocks_{};
};

Reserve reserve;
// Whether operator new found no memory since this was last cleared.
bool wasOutOfMemory = false;
std::new_handler earlierNewHandler = nullptr;

// The process is snmpd's, so without the reserve operator new fails as it did before.
void handleOutOfMemory() {
  wasOutOfMemory = true;
  if (reserve.release()) return;
  if (earlierNewHandler == nullptr) throw std::bad_alloc();
  earlierNewHandler();
}

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
    loop_.onCallbackEnd([this] { recover(); });
    reserve.fill();
    if (std::get_new_handler() != handleOutOfMemory) earlierNewHandler = std::set_new_handler(handleOutOfMemory);
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
  void settleSoon(const timeval& delay = nextTurn) {
    if (isShuttingDown_ || alarm_ != 0) return;
    alarm_ = snmp_alarm_register_hr(delay, 0, onAlarm, this);
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
    if (!std::exchange(isAnnounced_, true)) {
      snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_SHUTDOWN, onShutdown, nullptr);
      logInfo("version {} serves", QUORIN_VERSION);
    }
    Composition::update(composition_, loop_, Composition::configuredStoreDirectory(), SharedGroups::ofMaster());
  }

  // The new-handler and its reserve go last, since destructors allocate too; snmpd unloads its plugins before it calls
  // onShutdown().
  void end() {
    composition_.reset();
    isAnnounced_ = false;
    if (std::get_new_handler() == handleOutOfMemory) std::set_new_handler(earlierNewHandler);
    while (reserve.release()) continue;
  }

  // After operator new found no memory: drops everything, since that frees most and any of it may be half done, and
  // builds it anew a moment later.
  // Requires: nothing of the composition is running.
  void recover() {
    if (!wasOutOfMemory) return;
    composition_.reset();
    wasOutOfMemory = false;
    if (isLoaded_) reserve.fill();
    settleSoon(memoryPause);
    QTRACE(pluginTrace, 0) << "out of memory; everything is read again from the store. Give snmpd more memory";
  }

  static void onAlarm(unsigned, void* self) noexcept {
    Snmp::atCBoundary(pluginTrace, __func__, [&] { static_cast<Plugin*>(self)->settle(); });
    Snmp::atCBoundary(pluginTrace, __func__, [&] { static_cast<Plugin*>(self)->recover(); });
  }
  static void onMinute(unsigned, void*) noexcept {
    Snmp::atCBoundary(pluginTrace, __func__, [] {
      Kel::TraceLimit::beginPeriod();
      // If there was no memory even for the alarm.
      if (instance().isLoaded_ && !instance().composition_) instance().settleSoon();
    });
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
  bool isAnnounced_ = false;
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
