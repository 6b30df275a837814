#pragma once
// System services for a daemon: signals, its process id file, its state directory, its user and group.

#include <sys/types.h>

#include <initializer_list>
#include <optional>
#include <string>

namespace Host {

// Signals as a descriptor for an event loop.
class SignalFd {
 public:
  // Blocks the signals for this process and queues them here. Requires: no other threads or children exist yet.
  // Throws Kel::Exception if the system refuses.
  explicit SignalFd(std::initializer_list<int> signals);
  ~SignalFd();
  SignalFd(const SignalFd&) = delete;
  SignalFd& operator=(const SignalFd&) = delete;

  int fd() const { return fd_; }  // readable while a signal is queued
  // Removes the next signal from the queue and returns it; none if the queue is empty.
  std::optional<int> next();

 private:
  int fd_ = -1;
};

// The process id file, which exists as long as this object does.
class PidFile {
 public:
  // Writes this process's id to `path`, in place of the file of an earlier run. No-op for an empty path. Throws
  // Kel::Exception that names the path and the reason.
  explicit PidFile(std::string path);
  ~PidFile();
  PidFile(const PidFile&) = delete;
  PidFile& operator=(const PidFile&) = delete;

 private:
  std::string path_;
};

// Returns the number of a user or group given by name or number; none for empty text. Throws Kel::RangeException if no
// user or group has this name. Numbers are not checked.
std::optional<uid_t> userId(const std::string& user);
std::optional<gid_t> groupId(const std::string& group);

// Changes the process's group, then its user. Without `group` the user's own group is taken. The supplementary groups
// become those of the user; for a number that is no user of this machine, `group` alone. No-op if both are absent.
// Throws Kel::Exception if the system refuses.
void becomeUser(std::optional<uid_t> user, std::optional<gid_t> group);

// Creates the directory with mode 0700, and its missing parents. Gives it, new or not, to the user and group. Throws
// Kel::Exception that names path and reason if that fails or this process cannot write to the directory.
void makeStateDirectory(const std::string& path, std::optional<uid_t> user, std::optional<gid_t> group);

}  // namespace Host
