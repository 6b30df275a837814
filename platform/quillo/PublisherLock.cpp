#include "quillo/PublisherLock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>

#include "quillo/Environment.h"

namespace Quillo {

namespace {

using Kind = StoreException::Kind;

// The lock belongs to the open file, not to the process: a mount of the same process that looks at the file does
// not lose it.
struct flock wholeFile() {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return lock;
}

PublisherInfo readHolder(int fd) {
  PublisherInfo info;
  info.alive = true;
  char text[300];
  ssize_t size = ::pread(fd, text, sizeof text, 0);
  std::string line(text, size > 0 ? static_cast<std::size_t>(size) : 0);
  std::size_t blank = line.find(' ');
  if (blank != std::string::npos) {
    std::from_chars(line.data(), line.data() + blank, info.pid);  // stays 0 when it is no number
    info.name = line.substr(blank + 1, line.find('\n') - blank - 1);
  }
  return info;
}

}  // namespace

PublisherLock::PublisherLock(const std::string& directory, const std::string& name) {
  std::string file = publisherLockFile(directory);
  fd_ = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd_ < 0) {
    int error = errno;
    throw StoreException(
        error == EACCES || error == EPERM ? Kind::permission
        : error == ENOSPC                 ? Kind::full
                                          : Kind::directory,
        fmt::format("cannot write {}: {}; make the directory writable for user {}, or choose another "
                    "one with --store",
                    file, std::strerror(error), ::geteuid()));
  }
  // Readers under other users ask who holds it, whatever the umask is. A file of another owner has its mode from there.
  [[maybe_unused]] const int unchanged = ::fchmod(fd_, 0644);
  struct flock lock = wholeFile();
  if (::fcntl(fd_, F_OFD_SETLK, &lock) != 0) {
    PublisherInfo info = readHolder(fd_);
    ::close(fd_);
    throw StoreException(Kind::owned,
                         fmt::format("store {} is published by {} (pid {}) already; stop that one, or choose "
                                     "another directory with --store",
                                     directory, info.name.empty() ? "another program" : info.name, info.pid));
  }
  std::string line = fmt::format("{} {}\n", ::getpid(), name.substr(0, 200));
  if (::ftruncate(fd_, 0) != 0 || ::pwrite(fd_, line.data(), line.size(), 0) != static_cast<ssize_t>(line.size())) {
    int error = errno;
    ::close(fd_);
    throw StoreException(Kind::full,
                         fmt::format("cannot write {}: {}; make room there, or choose another directory with "
                                     "--store",
                                     file, std::strerror(error)));
  }
}

PublisherLock::~PublisherLock() {
  ::close(fd_);
}

PublisherInfo PublisherLock::holder(const std::string& directory) {
  PublisherInfo info;
  int fd = ::open(publisherLockFile(directory).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return info;
  }
  struct flock lock = wholeFile();
  if (::fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK) {
    info = readHolder(fd);
  }
  ::close(fd);
  return info;
}

}  // namespace Quillo
