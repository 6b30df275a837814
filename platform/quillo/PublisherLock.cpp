#include "quillo/PublisherLock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

#include "quillo/Doorbell.h"
#include "quillo/StoreFiles.h"

namespace Quillo {

namespace {

using Kind = StoreException::Kind;

constexpr mode_t ownerOnly = 0600;
constexpr std::string_view startedLabel = "started ";

// The lock belongs to the open file, not to the process: a mount of the same process that looks at the file does not
// lose it.
bool lockWhole(int fd) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return ::fcntl(fd, F_OFD_SETLK, &lock) == 0;
}

[[noreturn]] void refuseOwned(const std::string& directory, const PublisherInfo& holder) {
  throw StoreException(Kind::owned,
                       fmt::format("store {} is published by {} already; stop that one, or choose another "
                                   "directory with --store",
                                   directory, holder.text()));
}

}  // namespace

std::string publisherLine(const std::string& name) {
  static const auto started = std::time(nullptr);
  return fmt::format("{} {}\n{}{}\n", ::getpid(), name.substr(0, 200), startedLabel, started);
}

PublisherInfo readPublisher(int fd, long offset) {
  PublisherInfo info;
  char text[300];
  const ssize_t size = ::pread(fd, text, sizeof text, offset);
  const std::string line(text, size > 0 ? static_cast<std::size_t>(size) : 0);
  const std::size_t blank = line.find(' ');
  if (blank != std::string::npos) {
    std::from_chars(line.data(), line.data() + blank, info.pid);  // stays 0 when it is no number
    const auto end = line.find('\n');
    info.name = line.substr(blank + 1, end - blank - 1);
    if (const auto at = line.find(startedLabel, end); end != std::string::npos && at != std::string::npos) {
      std::int64_t seconds = 0;
      std::from_chars(line.data() + at + startedLabel.size(), line.data() + line.size(), seconds);
      info.started = static_cast<Kel::Seconds>(seconds);
    }
  }
  const bool isDead = info.pid <= 0 || (::kill(static_cast<pid_t>(info.pid), 0) != 0 && errno == ESRCH);
  return isDead ? PublisherInfo() : info;
}

std::string PublisherInfo::text() const {
  return name.empty() ? "another process" : fmt::format("{} (pid {})", name, pid);
}

PublisherLock::PublisherLock(const std::string& directory, const std::string& name)
    : directory_(directory), name_(name), fd_(take(false)) {
}

PublisherLock::~PublisherLock() {
  ::close(fd_);
}

int PublisherLock::take(bool isOwnDoorbell) {
  const std::string file = publisherLockFile(directory_);
  int fd = openStoreFile(directory_, file, ownerOnly, &isNew_);
  // Removed between the opening and the locking: the name stands for another file, or for none.
  while (lockWhole(fd) && isFileReplaced(fd, file)) {
    ::close(fd);
    fd = openStoreFile(directory_, file, ownerOnly, &isNew_);
  }
  if (!lockWhole(fd)) {
    const PublisherInfo holder = readPublisher(fd, 0);
    ::close(fd);
    refuseOwned(directory_, holder);
  }
  // Whoever removed the lock file of a running publisher has not ended that publisher.
  if (isNew_ && !isOwnDoorbell) {
    if (const PublisherInfo holder = doorbellHolder(directory_); holder.alive) {
      ::unlink(file.c_str());
      ::close(fd);
      refuseOwned(directory_, holder);
    }
  }
  const std::string line = publisherLine(name_);
  if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, line.data(), line.size(), 0) != static_cast<ssize_t>(line.size())) {
    const int error = errno;
    ::close(fd);
    throw StoreException(Kind::full,
                         fmt::format("cannot write {}: {}; make room there, or choose another directory "
                                     "with --store",
                                     file, std::strerror(error)));
  }
  return fd;
}

bool PublisherLock::retake() {
  if (!isFileReplaced(fd_, publisherLockFile(directory_))) return false;
  ::close(std::exchange(fd_, take(true)));
  return true;
}

void PublisherLock::beat() {
  ::futimens(fd_, nullptr);  // of a file of our own, so this cannot fail
}

void PublisherLock::undo() {
  if (isNew_) ::unlink(publisherLockFile(directory_).c_str());
}

}  // namespace Quillo
