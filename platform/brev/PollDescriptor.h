#pragma once
// One descriptor that becomes readable at once or at a set time, for any event loop to wait on. It is an epoll
// descriptor of an eventfd and a timerfd, and carries no data.

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

  // Makes the descriptor readable until it is set to false.
  void readableIs(bool readable);
  // Makes the descriptor readable `delay` seconds from now, at most a day, until the timer is set again or cleared. A
  // delay of 0 or less is one nanosecond.
  void setTimer(Kel::Seconds delay);
  void clearTimer();
  // Returns whether the timer has expired since it was set, and ends the readability that this caused.
  bool takeExpiry();

 private:
  void closeAll();

  int event_ = -1;
  int timer_ = -1;
  int epoll_ = -1;
  bool readable_ = false;
};

}  // namespace Brev
