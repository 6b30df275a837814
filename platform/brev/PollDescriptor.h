#pragma once
// One descriptor that any event loop can wait on: an epoll of an eventfd ("readable now") and a timerfd ("readable
// then"). It carries no data: when it is readable, its owner has work.

#include "kel/System.h"

namespace Brev {

class PollDescriptor {
 public:
  // Throws Kel::Exception when the kernel refuses a descriptor.
  PollDescriptor();
  ~PollDescriptor();
  PollDescriptor(const PollDescriptor&) = delete;
  PollDescriptor& operator=(const PollDescriptor&) = delete;

  // Owned by this object; for polling only.
  int fd() const { return epoll_; }

  // Readable from now on, until set to false.
  void readableIs(bool readable);
  // Readable `delay` seconds from now, or after a day if that is earlier, until the timer is set again or deleted.
  // Replaces an earlier delay. A delay of 0 or less is one nanosecond.
  void timerIs(Kel::Seconds delay);
  void timerDel();
  // True when the timer has expired since it was set. Ends its readability.
  bool timerTake();

 private:
  void closeAll();

  int event_ = -1;
  int timer_ = -1;
  int epoll_ = -1;
  bool readable_ = false;
};

}  // namespace Brev
