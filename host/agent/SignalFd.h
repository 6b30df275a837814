#pragma once
// Signals as a descriptor for an event loop.

#include <initializer_list>
#include <optional>

namespace Host {

class SignalFd {
 public:
  // From now on the signals no longer interrupt this thread but wait here. To be made before other threads or
  // children are. Throws Kel::Exception when the system refuses.
  explicit SignalFd(std::initializer_list<int> signals);
  ~SignalFd();
  SignalFd(const SignalFd&) = delete;
  SignalFd& operator=(const SignalFd&) = delete;

  int fd() const { return fd_; }  // readable while a signal waits
  // The next waiting signal, taken off the queue, or nullopt.
  std::optional<int> next();

 private:
  int fd_ = -1;
};

}  // namespace Host
