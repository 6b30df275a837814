#pragma once
// The event loop of the snmpd that loaded us: our descriptors wait among its own (register_readfd), which has room
// for 32 of all its modules together.

#include <poll.h>

#include <map>
#include <vector>

#include "host/composition/EventLoop.h"

namespace Host {

class SnmpdLoop : public EventLoop {
 public:
  // Takes out every descriptor that is still in.
  ~SnmpdLoop() override;

  void addFd(int fd, Callback callback) override;
  void removeFd(int fd) override;
  // snmpd tells of no turns.
  bool turnEndIs(Callback) override { return false; }
  // Asks the kernel about every socket of snmpd: for callers that ask a few thousand times a second at most.
  bool requestWaiting() override;

 private:
  static void ready(int fd, void* self) noexcept;

  std::map<int, Callback> watches_;
  std::vector<pollfd> requestFds_;  // kept for its memory alone
};

}  // namespace Host
