#pragma once
// The agent's event loop: net-snmp's sockets and alarms, and the descriptors of everything else, on one thread.
//
//   AgentLoop loop;
//   loop.addFd(scheduler.fd(), [&] { scheduler.run(); });
//   loop.run();                                   // until stop()
//
// In one turn, requests are served first, then the callbacks of ready descriptors in order of descriptor, then
// net-snmp's alarms, then what is to be done at its end. Work that takes long is done in pieces, and asks
// `requestWaiting` whether to break off: that is how a request is answered within a quantum while there is a backlog.

#include <poll.h>

#include <chrono>
#include <map>
#include <vector>

#include "host/composition/EventLoop.h"

namespace Host {

class AgentLoop : public EventLoop {
 public:
  AgentLoop() = default;

  void addFd(int fd, Callback callback) override;
  void removeFd(int fd) override;
  bool turnEndIs(Callback callback) override;
  // Cheap enough to ask for every row: the sockets are looked at once in `requestCheckInterval`.
  bool requestWaiting() override;
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
  Callback turnEnd_;

  std::vector<pollfd> requestFds_;  // net-snmp's sockets, as of the latest turn
  bool isRequestSeen_ = false;
  std::chrono::steady_clock::time_point requestsChecked_;
};

}  // namespace Host
