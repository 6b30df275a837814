#pragma once
// An event loop: quorind's own (AgentLoop.h), or that of the snmpd that loaded the plugin (SnmpdLoop.h).
// Thread: all calls and callbacks are on the loop's thread.

#include <functional>

#include "host/composition/Turns.h"

namespace Host {

class EventLoop {
 public:
  using Callback = std::function<void()>;

  EventLoop() = default;
  virtual ~EventLoop() = default;
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Calls `callback` once in each turn in which `fd` is readable. A second call for the same descriptor replaces the
  // callback. Callbacks may call this. An exception from a callback is traced at level 0.
  // Lifetime: the caller owns `fd`, and removes it before closing it.
  // Throws Kel::Exception if the loop cannot take another descriptor.
  virtual void addFd(int fd, Callback callback) = 0;
  // Stops the calls, even if the descriptor is ready in the current turn. Callbacks may call this, even for their own
  // descriptor.
  virtual void removeFd(int fd) = 0;

  // Calls `callback` at the end of every turn, after all ready descriptors; an empty one stops the calls. Returns
  // false, and calls nothing, if the loop does not know the end of a turn.
  virtual bool onTurnEnd(Callback callback) = 0;

  // Measurements of how long the loop was busy.
  virtual const Turns& turns() const = 0;

  // Whether a manager's request waits to be read. Long work calls this between two pieces to decide whether to yield.
  virtual bool requestWaiting() = 0;
};

}  // namespace Host
