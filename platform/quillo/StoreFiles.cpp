#include "quillo/StoreFiles.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>
#include <vector>

#include "kel/Trace.h"
#include "quillo/StoreException.h"

namespace Quillo {

namespace {

Kel::TraceHandle storeFilesTrace("QuilloFiles");

using Kind = StoreException::Kind;
namespace fs = std::filesystem;

constexpr mode_t directoryMode = 02750;

[[noreturn]] void fail(const std::string& what, const std::string& path, int error) {
  const Kind kind = error == EACCES || error == EPERM || error == EROFS ? Kind::permission
                    : error == ENOSPC || error == EDQUOT                ? Kind::full
                                                                        : Kind::directory;
  throw StoreException(kind,
                       fmt::format("cannot {} {}: {}; make the directory writable for user {} and leave room in "
                                   "it, or choose another one with --store",
                                   what, path, std::strerror(error), ::geteuid()));
}

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
  throw StoreException(Kind::unsafe,
                       fmt::format("{} {}; remove it, or choose another directory with --store", path, why));
}

void checkOwner(const std::string& path, const struct stat& status) {
  if (status.st_uid == ::geteuid() || status.st_uid == 0) return;
  throw StoreException(Kind::unsafe,
                       fmt::format("{} belongs to user {}, and this publisher runs as user {}; run it as "
                                   "that user, or choose another directory with --store",
                                   path, status.st_uid, ::geteuid()));
}

void checkFile(const std::string& path, const struct stat& status) {
  if (S_ISLNK(status.st_mode)) refuse(path, "is a symbolic link, where a file of the store should be");
  if (!S_ISREG(status.st_mode)) refuse(path, "is not a regular file");
  if (status.st_nlink > 1) refuse(path, "has a second name (a hard link)");
  checkOwner(path, status);
}

struct stat statusOf(const std::string& directory) {
  struct stat status {};
  if (::stat(directory.c_str(), &status) != 0) fail("look at", directory, errno);
  return status;
}

bool isOfTheStore(std::string_view name) {
  for (const char* own : {"data.mdb", "lock.mdb", "doorbell", "damage", "publisher.lock"}) {
    if (name == own) return true;
  }
  return name.starts_with("data.mdb.");
}

bool isOwnGroup(gid_t group) {
  if (group == ::getegid()) return true;
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(0, ::getgroups(0, nullptr))));
  const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
  return count > 0 && std::find(groups.begin(), groups.begin() + count, group) != groups.begin() + count;
}

// Who owns a link decides where it leads.
void checkLink(std::string directory) {
  while (directory.size() > 1 && directory.back() == '/') directory.pop_back();  // lstat() would follow the link
  struct stat status {};
  if (::lstat(directory.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) checkOwner(directory, status);
}

bool holdsOtherFiles(const std::string& directory) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(directory, error)) {
    if (!isOfTheStore(entry.path().filename().native())) return true;
  }
  return static_cast<bool>(error);
}

}  // namespace

bool hasBeenPublished(const std::string& directory) {
  struct stat owner {};
  struct stat bell {};
  return ::stat(directory.c_str(), &owner) == 0 && ::lstat(doorbellFile(directory).c_str(), &bell) == 0 &&
         S_ISREG(bell.st_mode) && (bell.st_uid == owner.st_uid || bell.st_uid == ::geteuid());
}

bool isSpaceOut(const std::string& directory) {
  constexpr std::uint64_t nextToNothingBytes = 65536;
  struct statvfs space {};
  return ::statvfs(directory.c_str(), &space) == 0 && space.f_bavail * space.f_frsize < nextToNothingBytes;
}

void prepareStoreDirectory(const std::string& directory, std::optional<gid_t> group, bool isRecognised) {
  checkLink(directory);
  std::error_code error;
  const bool isMade = fs::create_directories(directory, error);
  if (!error && !fs::is_directory(directory)) error = std::make_error_code(std::errc::not_a_directory);
  if (error) {
    throw StoreException(
        error == std::errc::no_space_on_device ? Kind::full : Kind::directory,
        fmt::format(
            "cannot make the store directory {}: {}; make it for user {}, or choose another one with --store",
            directory, error.message(), ::geteuid()));
  }
  const struct stat status = statusOf(directory);
  checkOwner(directory, status);
  const bool isOurs =
      status.st_uid == ::geteuid();  // or root made it for us, with the group and the mode that it needs
  const bool isClaimed =
      isMade || isRecognised || hasBeenPublished(directory) || !fs::exists(dataFile(directory), error);
  if (!isClaimed) {
    // A database of somebody, perhaps.
  } else if (isOurs && !isMade && holdsOtherFiles(directory)) {
    static std::string saidOf;  // an opening that waits for room is repeated every second
    if (std::exchange(saidOf, directory) != directory) {
      QTRACE(storeFilesTrace, 0) << "store directory " << directory
                                 << " holds other files too, so its mode and group are left as they are";
    }
  } else if (isOurs) {
    if (group && *group != status.st_gid && ::chown(directory.c_str(), static_cast<uid_t>(-1), *group) != 0) {
      throw StoreException(
          Kind::permission,
          fmt::format("cannot give {} to group {}: {}; run as root or as a member of that group, or "
                      "choose another one with --group",
                      directory, *group, std::strerror(errno)));
    }
    // Not without need: the kernel would drop the set-group-ID bit of an owner outside the group.
    const bool hasMode = (statusOf(directory).st_mode & 07777) == directoryMode;
    if (!hasMode && ::chmod(directory.c_str(), directoryMode) != 0) fail("set the mode of", directory, errno);
  }
  const struct stat prepared = statusOf(directory);
  const bool isOpenToAll = (prepared.st_mode & S_IWOTH) != 0;
  if (isOpenToAll || ((prepared.st_mode & S_IWGRP) != 0 && !isOwnGroup(prepared.st_gid))) {
    throw StoreException(
        Kind::unsafe,
        fmt::format(
            "store directory {} can be written by {}; choose a directory that only the store uses with --store",
            directory,
            isOpenToAll ? "every user"
                        : fmt::format("group {}, which user {} is not in", prepared.st_gid, ::geteuid())));
  }
}

int openStoreFile(const std::string& directory, const std::string& file, mode_t mode, bool* isNew) {
  constexpr int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  bool isMade = false;
  int fd = ::open(file.c_str(), flags);
  if (fd < 0 && errno == ENOENT) {
    fd = ::open(file.c_str(), flags | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    isMade = fd >= 0;
    if (fd < 0 && errno == EEXIST) fd = ::open(file.c_str(), flags);
  }
  if (fd < 0 && errno == ELOOP) refuse(file, "is a symbolic link, where a file of the store should be");
  if (fd < 0 && (errno == EISDIR || errno == ENXIO)) refuse(file, "is not a regular file");
  if (fd < 0) fail("write", file, errno);
  try {
    struct stat status {};
    if (::fstat(fd, &status) != 0) fail("look at", file, errno);
    if (S_ISREG(status.st_mode) && status.st_nlink > 1 && status.st_uid == ::geteuid()) {
      ::unlink(file.c_str());
      ::close(std::exchange(fd, -1));
      return openStoreFile(directory, file, mode, isNew);
    }
    checkFile(file, status);
    const gid_t group = statusOf(directory).st_gid;
    if (status.st_gid != group && ::fchown(fd, static_cast<uid_t>(-1), group) != 0) {
      QTRACE(storeFilesTrace, 1) << file << " stays with group " << status.st_gid << ": " << std::strerror(errno);
    }
    if ((status.st_mode & 07777) != mode && ::fchmod(fd, mode) != 0) {
      QTRACE(storeFilesTrace, 1) << file << ": mode not set: " << std::strerror(errno);
    }
  } catch (...) {
    if (fd >= 0) ::close(fd);
    throw;
  }
  if (isNew) *isNew = isMade;
  return fd;
}

void checkStoreFile(const std::string& file) {
  struct stat status {};
  if (::lstat(file.c_str(), &status) != 0) return;
  if (S_ISREG(status.st_mode) && status.st_nlink > 1 && status.st_uid == ::geteuid() &&
      file.ends_with("/lock.mdb")) {
    ::unlink(file.c_str());
    return;
  }
  checkFile(file, status);
}

void claimStoreFile(const std::string& directory, const std::string& file, mode_t mode) {
  struct stat status {};
  if (::lstat(file.c_str(), &status) != 0) return;
  checkFile(file, status);
  const gid_t group = statusOf(directory).st_gid;
  if (status.st_gid != group && ::lchown(file.c_str(), static_cast<uid_t>(-1), group) != 0) {
    QTRACE(storeFilesTrace, 1) << file << " stays with group " << status.st_gid << ": " << std::strerror(errno);
  }
  if ((status.st_mode & 07777) != mode && ::chmod(file.c_str(), mode) != 0) {
    QTRACE(storeFilesTrace, 1) << file << ": mode not set: " << std::strerror(errno);
  }
}

bool isFileReplaced(int fd, const std::string& file) {
  struct stat opened {};
  struct stat named {};
  return ::fstat(fd, &opened) != 0 || ::lstat(file.c_str(), &named) != 0 || opened.st_dev != named.st_dev ||
         opened.st_ino != named.st_ino;
}

}  // namespace Quillo
