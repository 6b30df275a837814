#pragma once
// What drives everything that waits for a descriptor: quorind's own loop (host/AgentLoop.h), or that of the snmpd
// which loaded us as a plugin (host/SnmpdLoop.h). All calls and callbacks are on the loop's thread.

#include <functional>

namespace Host {

class EventLoop {
 public:
  using Callback = std::function<void()>;

  EventLoop() = default;
  virtual ~EventLoop() = default;
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Calls `callback` whenever `fd` is readable, once a turn as long as it stays so. The descriptor is not owned.
  // A second call for the same descriptor replaces the callback. An exception that leaves a callback is traced at
  // level 0 and goes no further. May be called from a callback. Throws Kel::Exception when the loop has no room.
  virtual void addFd(int fd, Callback callback) = 0;
  // The callback is not called again, even if the descriptor is ready in this very turn. To be called before the
  // descriptor is closed. May be called from a callback, for its own descriptor too.
  virtual void removeFd(int fd) = 0;

  // Calls `callback` at the end of every turn, when all that was ready has been served. An empty one ends that. False when
  // the loop cannot tell the end of a turn: nothing is called then.
  virtual bool turnEndIs(Callback callback) = 0;

  // Whether a manager's request waits to be read. Work that takes long is done in pieces, and asks this between
  // them whether to break off.
  virtual bool requestWaiting() = 0;
};

}  // namespace Host
