#pragma once
// The event loop of the snmpd that loaded the plugin. snmpd waits for our descriptors together with its own
// (register_readfd). It has room for 32 descriptors of all its modules; addFd() throws when there is none.

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
  // Sets a function to call after each callback of a descriptor, even if that one threw. It may destroy the owner of
  // the descriptors.
  void onCallbackEnd(Callback callback) { callbackEnd_ = std::move(callback); }
  // snmpd does not announce the end of a turn.
  bool onTurnEnd(Callback) override { return false; }
  // Polls every socket of snmpd at each call, so call it at most a few thousand times a second.
  bool requestWaiting() override;
  // Measures our own callbacks only.
  const Turns& turns() const override { return turns_; }

 private:
  static void ready(int fd, void* self) noexcept;

  std::map<int, Callback> watches_;
  Callback callbackEnd_;
  Turns turns_;
  std::vector<pollfd> requestFds_;  // a member only to keep its memory
};

}  // namespace Host
