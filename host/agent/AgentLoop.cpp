#include "host/agent/AgentLoop.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/library/fd_event_manager.h>

#include <cerrno>
#include <cstring>

#include "host/agent/StreamConnections.h"
#include "host/composition/FdSet.h"
#include "kel/Errors.h"
#include "kel/Trace.h"

namespace Host {

static Kel::TraceHandle agentLoopTrace("AgentLoop");

namespace {

constexpr long longestSleep = 24L * 60 * 60;  // seconds

}  // namespace

void AgentLoop::addFd(int fd, Callback callback) {
  watches_.insert_or_assign(fd, Watch{std::move(callback), ++generation_});
}

void AgentLoop::removeFd(int fd) {
  watches_.erase(fd);
}

bool AgentLoop::onTurnEnd(Callback callback) {
  turnEnd_ = std::move(callback);
  return true;
}

bool AgentLoop::requestWaiting() {
  if (isRequestSeen_) return true;
  const auto now = std::chrono::steady_clock::now();
  if (now - requestsChecked_ < requestCheckInterval) return false;
  requestsChecked_ = now;
  isRequestSeen_ = poll(requestFds_.data(), requestFds_.size(), 0) > 0;
  return isRequestSeen_;
}

void AgentLoop::run() {
  while (!isStopping_) turn();
}

void AgentLoop::turn() {
  FdSet readable;
  FdSet writable;
  FdSet exceptional;
  timeval timeout{longestSleep, 0};
  int fdCount = 0;
  int canBlock = 0;
  snmp_select_info2(&fdCount, readable.get(), &timeout, &canBlock);
  if (canBlock != 0) timeout = {longestSleep, 0};
  StreamConnections::removePaused(readable);
  requestFds_.clear();
  for (int fd = 0; fd < fdCount; ++fd) {
    if (readable.contains(fd)) requestFds_.push_back({fd, POLLIN, 0});
  }
  netsnmp_external_event_info2(&fdCount, readable.get(), writable.get(), exceptional.get());
  for (const auto& [fd, watch] : watches_) {
    readable.add(fd);
    fdCount = std::max(fdCount, fd + 1);
  }

  int readyCount =
      netsnmp_large_fd_set_select(fdCount, readable.get(), writable.get(), exceptional.get(), &timeout);
  isRequestSeen_ = false;
  if (readyCount < 0) {
    if (errno == EINTR) return;
    throw Kel::Exception(std::string("the event loop cannot wait for its descriptors: ") + std::strerror(errno));
  }

  // Remove our own descriptors from the set before net-snmp reads it.
  std::vector<std::pair<int, unsigned>> ready;
  for (const auto& [fd, watch] : watches_) {
    if (!readable.contains(fd)) continue;
    ready.emplace_back(fd, watch.generation);
    readable.remove(fd);
    --readyCount;
  }
  if (readyCount > 0) {
    netsnmp_dispatch_external_events2(&readyCount, readable.get(), writable.get(), exceptional.get());
  }
  if (readyCount > 0) {
    turns_.time(Turns::requests, [&] { snmp_read2(readable.get()); });
  } else {
    snmp_timeout();
  }
  if (!ready.empty()) turns_.time(Turns::tasks, [&] { dispatch(ready); });
  turns_.time(Turns::alarms, [] {
    snmp_store_if_needed();
    run_alarms();
    netsnmp_check_outstanding_agent_requests();
  });
  if (turnEnd_) turnEnd_();
}

void AgentLoop::dispatch(const std::vector<std::pair<int, unsigned>>& ready) {
  for (const auto& [fd, generation] : ready) {
    const auto found = watches_.find(fd);
    if (found == watches_.end() || found->second.generation != generation) continue;
    const Callback callback = found->second.callback;  // survives its own removal
    try {
      callback();
    } catch (const std::exception& error) {
      QTRACE(agentLoopTrace, 0) << "callback of descriptor " << fd << ": " << error.what();
    }
  }
}

}  // namespace Host
