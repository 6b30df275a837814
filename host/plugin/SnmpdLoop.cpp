#include "host/plugin/SnmpdLoop.h"

#include <fmt/format.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/library/fd_event_manager.h>

#include "host/composition/FdSet.h"
#include "kel/Errors.h"
#include "snmp/CBoundary.h"

namespace Host {

static Kel::TraceHandle snmpdLoopTrace("SnmpdLoop");

SnmpdLoop::~SnmpdLoop() {
  for (const auto& [fd, callback] : watches_) unregister_readfd(fd);
}

void SnmpdLoop::addFd(int fd, Callback callback) {
  if (!watches_.contains(fd) && register_readfd(fd, ready, this) != FD_REGISTERED_OK) {
    throw Kel::Exception(
        fmt::format("snmpd has no room for another descriptor ({} at most); load fewer modules", NUM_EXTERNAL_FDS));
  }
  watches_.insert_or_assign(fd, std::move(callback));
}

void SnmpdLoop::removeFd(int fd) {
  if (watches_.erase(fd) != 0) unregister_readfd(fd);
}

bool SnmpdLoop::requestWaiting() {
  FdSet readable;
  timeval timeout{};
  int fdCount = 0;
  int canBlock = 1;
  snmp_sess_select_info2_flags(nullptr, &fdCount, readable.get(), &timeout, &canBlock, NETSNMP_SELECT_NOALARMS);
  requestFds_.clear();
  for (int fd = 0; fd < fdCount; ++fd) {
    if (readable.contains(fd)) requestFds_.push_back({fd, POLLIN, 0});
  }
  return poll(requestFds_.data(), requestFds_.size(), 0) > 0;
}

void SnmpdLoop::ready(int fd, void* self) noexcept {
  Snmp::atCBoundary(snmpdLoopTrace, __func__, [&] {
    auto& loop = *static_cast<SnmpdLoop*>(self);
    const auto found = loop.watches_.find(fd);
    if (found == loop.watches_.end()) return;
    const Callback callback = found->second;  // survives its own removal
    loop.turns_.time(Turns::tasks, callback);
  });
  Snmp::atCBoundary(snmpdLoopTrace, __func__, [&] {
    const auto& callbackEnd = static_cast<SnmpdLoop*>(self)->callbackEnd_;
    if (callbackEnd) callbackEnd();
  });
}

}  // namespace Host
