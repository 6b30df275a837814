#pragma once
// What makes the agent a good daemon: its process id file, its state directory, the user it runs as.

#include <sys/types.h>

#include <optional>
#include <string>

namespace Host {

// The process id file, there as long as this object is.
class PidFile {
 public:
  // Writes this process's id to `path`, replacing the file of an earlier run; an empty path stands for no file.
  // Throws Kel::Exception, naming the path and the reason.
  explicit PidFile(std::string path);
  ~PidFile();
  PidFile(const PidFile&) = delete;
  PidFile& operator=(const PidFile&) = delete;

 private:
  std::string path_;
};

// Numbers of a user and a group given by name or number; empty text gives nullopt. Throw Kel::RangeException for
// one that does not exist.
std::optional<uid_t> userId(const std::string& user);
std::optional<gid_t> groupId(const std::string& group);

// Makes the process run as this user and group, with the user's supplementary groups. Throws Kel::Exception when
// that is not allowed.
void becomeUser(std::optional<uid_t> user, std::optional<gid_t> group);

// Makes the directory, with its parents, writable by its owner only, and gives it to the user and group. Throws
// Kel::Exception, naming path and reason, when there is then no directory that we can write to.
void makeStateDirectory(const std::string& path, std::optional<uid_t> user, std::optional<gid_t> group);

}  // namespace Host
