#include "quillo/Doorbell.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "kel/Trace.h"
#include "quillo/Environment.h"

namespace Quillo {

namespace {

Kel::TraceHandle doorbellTrace("QuilloDoorbell");

constexpr std::uint32_t comings = IN_CREATE | IN_MOVED_TO;
constexpr std::uint32_t goings = IN_DELETE_SELF | IN_MOVE_SELF;

}  // namespace

Doorbell::Doorbell(const std::string& directory) : file_(doorbellFile(directory)) {
  std::uint64_t nothing = 0;
  if (!open() || ::pwrite(fd_, &nothing, sizeof nothing, 0) != sizeof nothing) {
    int error = errno;
    if (fd_ >= 0) {
      ::close(fd_);
    }
    throw StoreException(
        error == ENOSPC ? StoreException::Kind::full : StoreException::Kind::directory,
        fmt::format(
            "cannot write {}: {}; make the directory writable and leave room in it, or choose another one with "
            "--store",
            file_, std::strerror(error)));
  }
}

Doorbell::~Doorbell() {
  ::close(fd_);
}

bool Doorbell::open() {
  fd_ = ::open(file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd_ < 0) {
    return false;
  }
  // Readers under other users watch it, whatever the umask is. A file of another owner has its mode from there.
  if (::fchmod(fd_, 0644) != 0) {
    QTRACE(doorbellTrace, 1) << file_ << ": mode not set: " << std::strerror(errno);
  }
  return true;
}

void Doorbell::ring(std::uint64_t seq) {
  struct stat opened {};
  bool isOpen = ::fstat(fd_, &opened) == 0 && opened.st_nlink != 0;
  if (!isOpen) {
    ::close(fd_);
    isOpen = open();
  }
  if (!isOpen || ::pwrite(fd_, &seq, sizeof seq, 0) != sizeof seq) {
    QTRACE(doorbellTrace, 0) << "cannot write " << file_ << ": " << std::strerror(errno)
                             << "; readers notice changes once a second until it can be";
  }
}

DoorbellWatch::DoorbellWatch(const std::string& directory)
    : directory_(std::filesystem::absolute(directory).lexically_normal().string()) {
  fd_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd_ < 0) {
    QTRACE(doorbellTrace, 0) << "no watch on " << directory << ": " << std::strerror(errno)
                             << "; changes are noticed once a second (see fs.inotify.max_user_instances)";
  }
  arm();
}

DoorbellWatch::~DoorbellWatch() {
  if (fd_ >= 0) {
    ::close(fd_);
  }
}

// A watch on what already is watched keeps its number, so only real moves leave an old watch to drop.
void DoorbellWatch::set(int& watch, const std::string& path, std::uint32_t mask) {
  int now = ::inotify_add_watch(fd_, path.c_str(), mask);
  if (watch >= 0 && watch != now) {
    ::inotify_rm_watch(fd_, watch);
  }
  watch = now;
}

void DoorbellWatch::setStore() {
  set(folder_, directory_, comings | goings | IN_DELETE | IN_ONLYDIR);
  set(bell_, doorbellFile(directory_), IN_MODIFY | goings);
}

void DoorbellWatch::arm() {
  if (fd_ < 0 || armed_) {
    return;
  }
  setStore();
  if (folder_ < 0) {
    std::filesystem::path above(directory_);
    int before = ancestor_;
    ancestor_ = -1;
    while (ancestor_ < 0 && above.has_relative_path()) {
      above = above.parent_path();
      set(ancestor_, above.string(), comings | goings | IN_ONLYDIR);
    }
    if (before >= 0 && before != ancestor_) {
      ::inotify_rm_watch(fd_, before);
    }
    // What came into being between two of the calls above was announced to no watch: look once more.
    setStore();
  }
  if (folder_ >= 0 && ancestor_ >= 0) {
    ::inotify_rm_watch(fd_, ancestor_);
    ancestor_ = -1;
  }
  armed_ = folder_ >= 0 && bell_ >= 0;
}

bool DoorbellWatch::drain() {
  if (fd_ < 0) {
    return false;
  }
  alignas(inotify_event) char events[4096];
  bool rang = false;
  ssize_t size;
  while ((size = ::read(fd_, events, sizeof events)) > 0) {
    for (ssize_t at = 0; at < size;) {
      inotify_event event;
      std::memcpy(&event, events + at, sizeof event);
      at += static_cast<ssize_t>(sizeof event + event.len);
      // The echo of a watch that was dropped is no ring.
      if (event.mask & IN_IGNORED) {
        continue;
      }
      rang = true;
      armed_ = armed_ && event.mask == IN_MODIFY;
    }
  }
  arm();
  return rang;
}

}  // namespace Quillo
