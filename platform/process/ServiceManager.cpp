#include "process/ServiceManager.h"

#ifdef QUORIN_SYSTEMD
#include <systemd/sd-daemon.h>
#endif

namespace Process::ServiceManager {
namespace {

bool isReady = false;

// The variables of the environment stay, for an image that replaces this one.
void notify([[maybe_unused]] const char* state) {
#ifdef QUORIN_SYSTEMD
  sd_notify(0, state);
#endif
}

}  // namespace

bool watches() {
#ifdef QUORIN_SYSTEMD
  return sd_watchdog_enabled(0, nullptr) > 0;
#else
  return false;
#endif
}

void notifyAlive() {
  notify(isReady ? "WATCHDOG=1" : "WATCHDOG=1\nEXTEND_TIMEOUT_USEC=30000000");
}

void notifyReady(const std::string& status) {
  isReady = true;
  notify(("READY=1\nSTATUS=" + status).c_str());
}

void notifyStatus(const std::string& status) {
  notify(("STATUS=" + status).c_str());
}

void notifyStopping() {
  notify("STOPPING=1");
}

}  // namespace Process::ServiceManager
