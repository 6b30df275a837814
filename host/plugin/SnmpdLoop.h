#pragma once
// The event loop of the snmpd that loaded the plugin: waits for our descriptors among its own (register_readfd), at
// most 32 for all its modules together.

#include <poll.h>

#include <map>
#include <vector>

#include "host/composition/EventLoop.h"

namespace Host {

class SnmpdLoop : public EventLoop {
 public:
  // Removes all descriptors.
  ~SnmpdLoop() override;

  void addFd(int fd, Callback callback) override;
  void removeFd(int fd) override;
  // snmpd does not announce the end of a turn.
  bool onTurnEnd(Callback) override { return false; }
  // Polls every socket of snmpd: for at most a few thousand calls a second.
  bool requestWaiting() override;

 private:
  static void ready(int fd, void* self) noexcept;

  std::map<int, Callback> watches_;
  std::vector<pollfd> requestFds_;  // kept for its memory alone
};

}  // namespace Host
