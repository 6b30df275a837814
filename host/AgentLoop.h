#pragma once
// The agent's event loop: net-snmp's sockets and alarms, and the descriptors of everything else, on one thread.
//
//   AgentLoop loop;
//   loop.addFd(scheduler.fd(), [&] { scheduler.run(); });
//   loop.run();                                   // until stop()
//
// In one turn, requests are served first, then the callbacks of ready descriptors in order of descriptor, then
// net-snmp's alarms. Work that takes long is done in pieces, and asks `requestWaiting` whether to break off: that
// is how a request is answered within a quantum while there is a backlog.

#include <poll.h>

#include <chrono>
#include <functional>
#include <map>
#include <vector>

namespace Host {

class AgentLoop {
 public:
  using Callback = std::function<void()>;

  AgentLoop() = default;
  AgentLoop(const AgentLoop&) = delete;
  AgentLoop& operator=(const AgentLoop&) = delete;

  // Calls `callback` whenever `fd` is readable, once a turn as long as it stays so. The descriptor is not owned.
  // A second call for the same descriptor replaces the callback. An exception that leaves a callback is traced at
  // level 0 and goes no further. May be called from a callback.
  void addFd(int fd, Callback callback);
  // The callback is not called again, even if the descriptor is ready in this very turn. To be called before the
  // descriptor is closed. May be called from a callback, for its own descriptor too.
  void removeFd(int fd);

  // Whether a manager's request waits to be read. Cheap enough to ask for every row: the sockets are looked at once
  // in `requestCheckInterval`.
  bool requestWaiting();
  static constexpr std::chrono::microseconds requestCheckInterval{200};

  // Returns after stop(), with the turn done.
  void run();
  void stop() { isStopping_ = true; }

  // Waits until something is ready, or an alarm is due, and serves it.
  void turn();

 private:
  struct Watch {
    Callback callback;
    unsigned generation;  // tells a watch from a later one on the same descriptor number
  };
  void dispatch(const std::vector<std::pair<int, unsigned>>& ready);

  std::map<int, Watch> watches_;
  unsigned generation_ = 0;
  bool isStopping_ = false;

  std::vector<pollfd> requestFds_;  // net-snmp's sockets, as of the latest turn
  bool isRequestSeen_ = false;
  std::chrono::steady_clock::time_point requestsChecked_;
};

}  // namespace Host
