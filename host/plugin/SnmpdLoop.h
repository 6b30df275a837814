#pragma once
// The event loop of the snmpd that loaded the plugin. snmpd waits for our descriptors with its own (register_readfd);
// it takes at most 32 from all its modules.

#include <poll.h>

#include <map>
#include <utility>
#include <vector>

#include "host/composition/EventLoop.h"

namespace Host {

class SnmpdLoop : public EventLoop {
 public:
  // Removes all descriptors.
  ~SnmpdLoop() override;

  void addFd(int fd, Callback callback) override;
  void removeFd(int fd) override;
  // Calls `callback` after each callback of a descriptor, even if that one threw. It may destroy what the descriptors
  // belong to.
  void onCallbackEnd(Callback callback) { callbackEnd_ = std::move(callback); }
  // snmpd does not announce the end of a turn.
  bool onTurnEnd(Callback) override { return false; }
  // Polls every socket of snmpd. Call it at most a few thousand times a second.
  bool requestWaiting() override;
  // Of our own callbacks; those of snmpd are unknown.
  const Turns& turns() const override { return turns_; }

 private:
  static void ready(int fd, void* self) noexcept;

  std::map<int, Callback> watches_;
  Callback callbackEnd_;
  Turns turns_;
  std::vector<pollfd> requestFds_;  // a member only to keep its memory
};

}  // namespace Host
