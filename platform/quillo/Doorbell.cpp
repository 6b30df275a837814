#include "quillo/Doorbell.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "kel/Trace.h"
#include "quillo/PublisherLock.h"
#include "quillo/StoreFiles.h"

namespace Quillo {

namespace {

Kel::TraceHandle doorbellTrace("QuilloDoorbell");

constexpr mode_t doorbellMode = 0640;
constexpr std::uint32_t comings = IN_CREATE | IN_MOVED_TO;
constexpr std::uint32_t goings = IN_DELETE_SELF | IN_MOVE_SELF;

}  // namespace

Doorbell::Doorbell(const std::string& directory, const std::string& publisherName)
    : directory_(directory), name_(publisherName) {
  open();
}

Doorbell::~Doorbell() {
  if (fd_ >= 0) ::close(fd_);
}

void Doorbell::open() {
  const std::string file = doorbellFile(directory_);
  const int fd = openStoreFile(directory_, file, doorbellMode);
  struct flock lock {};
  lock.l_type = F_RDLCK;
  lock.l_whence = SEEK_SET;
  std::string content(sizeof seq_, '\0');
  std::memcpy(content.data(), &seq_, sizeof seq_);
  content += publisherLine(name_);
  if (::fcntl(fd, F_OFD_SETLK, &lock) != 0 || ::ftruncate(fd, 0) != 0 ||
      ::pwrite(fd, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) {
    const int error = errno;
    ::close(fd);
    throw StoreException(
        error == ENOSPC ? StoreException::Kind::full : StoreException::Kind::directory,
        fmt::format("cannot write {}: {}; make the directory writable and leave room in it, or choose "
                    "another one with --store",
                    file, std::strerror(error)));
  }
  fd_ = fd;
}

bool Doorbell::check() {
  if (fd_ >= 0 && !isFileReplaced(fd_, doorbellFile(directory_))) return false;
  if (fd_ >= 0) ::close(std::exchange(fd_, -1));
  open();
  return true;
}

void Doorbell::ring(std::uint64_t seq) {
  seq_ = seq;
  try {
    check();
    if (::pwrite(fd_, &seq_, sizeof seq_, 0) == sizeof seq_) return;
    QTRACE(doorbellTrace, 0) << "cannot write " << doorbellFile(directory_) << ": " << std::strerror(errno)
                             << "; readers notice changes once a second until it can be";
  } catch (const StoreException& error) {
    QTRACE(doorbellTrace, 0) << error.what() << "; readers notice changes once a second until it can be";
  }
}

namespace {

Kel::Seconds timeOf(const struct stat& file) {
  return static_cast<Kel::Seconds>(file.st_mtim.tv_sec) + static_cast<Kel::Seconds>(file.st_mtim.tv_nsec) * 1e-9;
}

}  // namespace

PublisherInfo doorbellHolder(const std::string& directory) {
  PublisherInfo info;
  const int fd = ::open(doorbellFile(directory).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) {
    info.isUnknown = errno != ENOENT && errno != ENOTDIR;
    return info;
  }
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (::fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK) {
    info = readPublisher(fd, sizeof(std::uint64_t));
    info.alive = true;
  }
  struct stat file {};
  if (::fstat(fd, &file) == 0) info.lastCommit = timeOf(file);
  if (::stat(publisherLockFile(directory).c_str(), &file) == 0) info.lastSeen = timeOf(file);
  ::close(fd);
  return info;
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
