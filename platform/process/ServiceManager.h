#pragma once
// Reports this daemon's state to systemd (sd_notify(3), the unit's Type=notify and WatchdogSec).
//
//   once a second, from the event loop:  ServiceManager::notifyAlive();
//   when the daemon serves:              ServiceManager::notifyReady("publishing in /run/quorin");
//   when it ends:                        ServiceManager::notifyStopping();
//
// Guarantees: without a service manager that asked for it (NOTIFY_SOCKET), each call is a no-op. A replacement of the
// process's image (FreshImage.h) reports as its predecessor did. No call throws, blocks, or reports a failure.

#include <string>

namespace Process::ServiceManager {

// Whether the service manager stops a daemon that does not call notifyAlive().
bool watches();

// Reports that the event loop runs; call it once a second. Until the daemon is ready, this extends the time that the
// start may take to half a minute from now. So a long first pass is no failure, and a start that hangs is one.
void notifyAlive();

// Report that the daemon serves, and its status: one short line, which `systemctl status` shows. The later call
// replaces the text.
void notifyReady(const std::string& status);
void notifyStatus(const std::string& status);

void notifyStopping();

}  // namespace Process::ServiceManager
