#include "brev/PollDescriptor.h"

#include <fmt/format.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <system_error>

#include "kel/Errors.h"

namespace Brev {
namespace {

// Any longer delay might exceed the range of the kernel's timer.
constexpr Kel::Seconds longestDelay = 86400;

void check(bool ok, const char* what) {
  if (ok) return;
  throw Kel::Exception(fmt::format("task scheduler: {} failed: {}; check the limit of open files", what,
                                   std::generic_category().message(errno)));
}

bool watch(int epoll, int fd) {
  epoll_event event{};
  event.events = EPOLLIN;
  return epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0;
}

}  // namespace

PollDescriptor::PollDescriptor() {
  try {
    event_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    check(event_ >= 0, "eventfd");
    timer_ = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    check(timer_ >= 0, "timerfd_create");
    epoll_ = epoll_create1(EPOLL_CLOEXEC);
    check(epoll_ >= 0, "epoll_create1");
    check(watch(epoll_, event_) && watch(epoll_, timer_), "epoll_ctl");
  } catch (...) {
    closeAll();
    throw;
  }
}

PollDescriptor::~PollDescriptor() {
  closeAll();
}

void PollDescriptor::closeAll() {
  for (const int fd : {epoll_, timer_, event_}) {
    if (fd >= 0) close(fd);
  }
}

void PollDescriptor::readableIs(bool readable) {
  if (readable == readable_) return;
  std::uint64_t count = 1;
  const auto moved = readable ? write(event_, &count, sizeof count) : read(event_, &count, sizeof count);
  KEL_ASSERT(moved == sizeof count);
  readable_ = readable;
}

void PollDescriptor::setTimer(Kel::Seconds delay) {
  // Rounded up, so that the timer does not expire early; zero would disarm it.
  const auto nanoseconds = std::max<std::int64_t>(
      1, static_cast<std::int64_t>(std::ceil(std::min(std::max(delay, 0.0), longestDelay) * 1e9)));
  itimerspec spec{};
  spec.it_value.tv_sec = nanoseconds / 1'000'000'000;
  spec.it_value.tv_nsec = nanoseconds % 1'000'000'000;
  KEL_ASSERT(timerfd_settime(timer_, 0, &spec, nullptr) == 0);
}

void PollDescriptor::clearTimer() {
  const itimerspec none{};
  KEL_ASSERT(timerfd_settime(timer_, 0, &none, nullptr) == 0);
}

bool PollDescriptor::takeExpiry() {
  std::uint64_t expirations = 0;
  return read(timer_, &expirations, sizeof expirations) == sizeof expirations;
}

}  // namespace Brev
