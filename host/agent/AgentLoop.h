#pragma once
// The agent's event loop: net-snmp's sockets and alarms, and all other descriptors, on one thread.
//
//   AgentLoop loop;
//   loop.addFd(scheduler.pollFd(), [&] { scheduler.runReady(); });
//   loop.run();                                   // until stop()
//
// Each turn dispatches net-snmp's external events and serves requests, then calls the callbacks of ready descriptors in
// order of descriptor, then net-snmp's alarms, then the callback of onTurnEnd(). Long work yields when requestWaiting()
// is true, so a request is answered within a quantum during a backlog.

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
  // Cheap enough to call for every row: polls at most once in `requestCheckInterval`, so a false may be that old. Once
  // true, stays true until the next wait.
  bool requestWaiting() override;
  static constexpr std::chrono::microseconds requestCheckInterval{200};

  // Runs turns until stop() is called, from a callback. Throws Kel::Exception if waiting for descriptors fails.
  void run();
  void stop() { isStopping_ = true; }

  // One turn: waits until a descriptor is ready or an alarm is due, and serves everything ready. A signal ends the wait
  // without serving anything or calling the callback of onTurnEnd(). Throws as run().
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
  bool isRequestSeen_ = false;      // since the latest wait
  std::chrono::steady_clock::time_point requestsChecked_;
};

}  // namespace Host
