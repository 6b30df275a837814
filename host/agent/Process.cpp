#include "host/agent/Process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>

#include "kel/Errors.h"

namespace Host {

namespace {

[[noreturn]] void fail(const std::string& what, int error = errno) {
  throw Kel::Exception(what + ": " + std::strerror(error));
}

std::optional<unsigned> number(const std::string& text) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

SignalFd::SignalFd(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  const bool isBlocked = sigprocmask(SIG_BLOCK, &set, nullptr) == 0;
  if (isBlocked) fd_ = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (fd_ < 0) fail("cannot take signals in");
}

SignalFd::~SignalFd() {
  close(fd_);
}

std::optional<int> SignalFd::next() {
  signalfd_siginfo info{};
  if (read(fd_, &info, sizeof(info)) != static_cast<ssize_t>(sizeof(info))) return std::nullopt;
  return static_cast<int>(info.ssi_signo);
}

PidFile::PidFile(std::string path) : path_(std::move(path)) {
  if (path_.empty()) return;
  unlink(path_.c_str());
  const int fd = open(path_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644);
  const std::string text = std::to_string(getpid()) + "\n";
  const bool isWritten = fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  const int error = errno;
  if (fd >= 0) close(fd);
  if (!isWritten) fail("cannot write the process id to " + path_, error);
}

PidFile::~PidFile() {
  if (!path_.empty()) unlink(path_.c_str());
}

std::optional<uid_t> userId(const std::string& user) {
  if (user.empty()) return std::nullopt;
  if (const auto id = number(user)) return *id;
  const passwd* entry = getpwnam(user.c_str());
  if (entry == nullptr) throw Kel::RangeException("there is no user '" + user + "' on this machine");
  return entry->pw_uid;
}

std::optional<gid_t> groupId(const std::string& group) {
  if (group.empty()) return std::nullopt;
  if (const auto id = number(group)) return *id;
  const ::group* entry = getgrnam(group.c_str());
  if (entry == nullptr) throw Kel::RangeException("there is no group '" + group + "' on this machine");
  return entry->gr_gid;
}

void becomeUser(std::optional<uid_t> user, std::optional<gid_t> group) {
  const passwd* entry = user ? getpwuid(*user) : nullptr;
  if (entry != nullptr && !group) group = entry->pw_gid;
  if (group && setgid(*group) != 0) fail(fmt::format("cannot become group {}", *group));
  if (entry != nullptr) {
    if (initgroups(entry->pw_name, *group) != 0)
      fail(fmt::format("cannot take the groups of user {}", entry->pw_name));
  } else if (user || group) {
    if (setgroups(group ? 1 : 0, group ? &*group : nullptr) != 0)
      fail("cannot leave the groups of the starting user");
  }
  if (user && setuid(*user) != 0) fail(fmt::format("cannot become user {}", *user));
}

void makeStateDirectory(const std::string& path, std::optional<uid_t> user, std::optional<gid_t> group) {
  std::error_code error;
  const bool isNew = std::filesystem::create_directories(path, error);
  if (error) fail("cannot make the directory " + path, error.value());
  if (isNew && chmod(path.c_str(), 0700) != 0) fail("cannot protect the directory " + path);
  constexpr auto same = static_cast<uid_t>(-1);
  if ((user || group) && chown(path.c_str(), user.value_or(same), group.value_or(same)) != 0) {
    fail("cannot hand over the directory " + path);
  }
  if (access(path.c_str(), W_OK | X_OK) != 0) fail("cannot write to the directory " + path);
}

}  // namespace Host
