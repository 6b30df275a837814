#pragma once
// What a daemon needs of the system: signals, its process id file, its state directory, the user it runs as.

#include <sys/types.h>

#include <initializer_list>
#include <optional>
#include <string>

namespace Host {

// Signals as a descriptor for an event loop.
class SignalFd {
 public:
  // Blocks the signals for this process and queues them here. Requires that there are no other threads or children yet.
  // Throws Kel::Exception when the system refuses.
  explicit SignalFd(std::initializer_list<int> signals);
  ~SignalFd();
  SignalFd(const SignalFd&) = delete;
  SignalFd& operator=(const SignalFd&) = delete;

  int fd() const { return fd_; }  // readable while a signal waits
  // Removes the next signal from the queue; nullopt when it is empty.
  std::optional<int> next();

 private:
  int fd_ = -1;
};

// The process id file, which exists as long as this object does.
class PidFile {
 public:
  // Writes this process's id to `path`, replacing the file of an earlier run; a no-op with an empty path. Throws
  // Kel::Exception, naming the path and the reason.
  explicit PidFile(std::string path);
  ~PidFile();
  PidFile(const PidFile&) = delete;
  PidFile& operator=(const PidFile&) = delete;

 private:
  std::string path_;
};

// The number of a user or group that is given by name or number; nullopt for empty text. Throw Kel::RangeException when
// it does not exist.
std::optional<uid_t> userId(const std::string& user);
std::optional<gid_t> groupId(const std::string& group);

// Changes the process's user and group, and takes the user's supplementary groups. Throws Kel::Exception when the
// system refuses.
void becomeUser(std::optional<uid_t> user, std::optional<gid_t> group);

// Makes the directory and its parents, writable by the owner only, and gives it to the user and group. Throws
// Kel::Exception, naming path and reason, when the result is not a directory that we can write to.
void makeStateDirectory(const std::string& path, std::optional<uid_t> user, std::optional<gid_t> group);

}  // namespace Host
