#include "mirror/EventSet.h"

#include <fmt/format.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "kel/Errors.h"

namespace Mirror {

namespace {

[[noreturn]] void failToPoll(const char* what) {
  throw Kel::Exception(fmt::format("{}: {}; raise the limit of open files", what, std::strerror(errno)));
}

}  // namespace

EventSet::EventSet()
    : epoll_(epoll_create1(EPOLL_CLOEXEC)), timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  if (epoll_ < 0) failToPoll("epoll");
  if (timer_ < 0) failToPoll("timerfd");
}

EventSet::~EventSet() {
  close(timer_);
  close(epoll_);
}

void EventSet::add(int fd, Tag tag) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = tag;
  if (epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) != 0) failToPoll("epoll");
}

std::vector<EventSet::Tag> EventSet::ready() {
  std::array<epoll_event, 256> events{};
  const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), 0);
  std::vector<Tag> tags;
  tags.reserve(events.size());
  for (int i = 0; i < count; ++i) tags.push_back(events[static_cast<std::size_t>(i)].data.u64);
  return tags;
}

void EventSet::timerIs(double seconds, Tag tag) {
  if (!isTimerAdded_) add(timer_, tag);
  isTimerAdded_ = true;
  itimerspec when{};
  if (std::isfinite(seconds)) {
    // Zero would disarm it.
    const double wait = std::max(seconds, 1e-6);
    when.it_value.tv_sec = static_cast<time_t>(wait);
    when.it_value.tv_nsec = static_cast<long>((wait - std::floor(wait)) * 1e9);
  }
  timerfd_settime(timer_, 0, &when, nullptr);
}

}  // namespace Mirror
