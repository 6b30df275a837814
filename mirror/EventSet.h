#pragma once
// Which of many descriptors are readable (epoll), by tags that their users choose. It is a descriptor itself.

#include <cstdint>
#include <vector>

namespace Mirror {

class EventSet {
 public:
  using Tag = std::uint64_t;

  // Throws Kel::Exception when the system has no descriptors to give.
  EventSet();
  ~EventSet();
  EventSet(const EventSet&) = delete;
  EventSet& operator=(const EventSet&) = delete;

  int fd() const { return epoll_; }  // readable when one of them is
  // A descriptor leaves the set when it is closed.
  void add(int fd, Tag tag);
  // Those that are readable now, a fair choice of them when there are very many. Never blocks.
  std::vector<Tag> ready();

  // ready() gives `tag` in `seconds`, or never when that is infinity; a later call takes the place of an earlier one.
  void timerIs(double seconds, Tag tag);

 private:
  int epoll_;
  int timer_;
  bool isTimerAdded_ = false;
};

}  // namespace Mirror
