#pragma once
// The agent's event loop: net-snmp's sockets and alarms, and all other descriptors, on one thread.
//
//   AgentLoop loop;
//   loop.addFd(scheduler.fd(), [&] { scheduler.run(); });
//   loop.run();                                   // until stop()
//
// Each turn serves requests first, then the callbacks of ready descriptors in order of descriptor, then net-snmp's
// alarms, then the callback of onTurnEnd(). Long work yields when requestWaiting() is true, so a request is answered
// within a quantum during a backlog.

#include <poll.h>

#include <chrono>
#include <map>
#include <vector>

#include "host/composition/EventLoop.h"
#include "host/composition/Turns.h"

namespace Host {

class AgentLoop : public EventLoop {
 public:
  AgentLoop() = default;

  void addFd(int fd, Callback callback) override;
  void removeFd(int fd) override;
  bool onTurnEnd(Callback callback) override;
  // Cheap enough to call for every row: polls the sockets at most once in `requestCheckInterval`.
  bool requestWaiting() override;
  static constexpr std::chrono::microseconds requestCheckInterval{200};

  // Runs turns until stop() is called.
  void run();
  void stop() { isStopping_ = true; }

  // Waits until a descriptor is ready or an alarm is due, and serves it.
  void turn();

  const Turns& turns() const override { return turns_; }

 private:
  struct Watch {
    Callback callback;
    unsigned generation;  // differs between watches of the same descriptor number
  };
  void dispatch(const std::vector<std::pair<int, unsigned>>& ready);

  std::map<int, Watch> watches_;
  unsigned generation_ = 0;
  bool isStopping_ = false;
  Callback turnEnd_;
  Turns turns_;

  std::vector<pollfd> requestFds_;  // net-snmp's sockets, as of the latest turn
  bool isRequestSeen_ = false;
  std::chrono::steady_clock::time_point requestsChecked_;
};

}  // namespace Host
