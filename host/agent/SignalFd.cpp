#include "host/agent/SignalFd.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "kel/Errors.h"

namespace Host {

SignalFd::SignalFd(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  const bool isBlocked = sigprocmask(SIG_BLOCK, &set, nullptr) == 0;
  if (isBlocked) fd_ = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (fd_ < 0) throw Kel::Exception(std::string("cannot take signals in: ") + std::strerror(errno));
}

SignalFd::~SignalFd() {
  close(fd_);
}

std::optional<int> SignalFd::next() {
  signalfd_siginfo info{};
  if (read(fd_, &info, sizeof(info)) != static_cast<ssize_t>(sizeof(info))) return std::nullopt;
  return static_cast<int>(info.ssi_signo);
}

}  // namespace Host
