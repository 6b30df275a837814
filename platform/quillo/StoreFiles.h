#pragma once
// The files of a store directory: their names, their owner, and who may use them. Internal to the store.
//
// A store belongs to the user whom its publisher runs as. Its group reads it, and others have no access at all:
//
//   directory       2750   the group lists and watches it
//   data.mdb        0640
//   lock.mdb        0660   readers register here
//   doorbell        0640
//   damage          0660   readers report damage here
//   publisher.lock  0600   no reader can open it, so none can lock it

#include <sys/types.h>

#include <optional>
#include <string>

namespace Quillo {

inline std::string dataFile(const std::string& directory) {
  return directory + "/data.mdb";
}
inline std::string lockFile(const std::string& directory) {
  return directory + "/lock.mdb";
}
inline std::string doorbellFile(const std::string& directory) {
  return directory + "/doorbell";
}
inline std::string damageFile(const std::string& directory) {
  return directory + "/damage";
}
inline std::string publisherLockFile(const std::string& directory) {
  return directory + "/publisher.lock";
}
inline std::string foreignFile(const std::string& directory) {
  return directory + "/data.mdb.foreign";
}

// All operations throw StoreException of these kinds:
// - `permission`: this user may not do it;
// - `full`: there is no space;
// - `unsafe`: a symbolic link, something other than a regular file, a file with another hard link, or an owner other
//   than this user and root;
// - `directory`: any other failure.

// Creates the directory if it is missing. Sets its group and mode, unless it also contains files that are not the
// store's. In a directory without a doorbell, a data file counts as the store's only with `isRecognised`. Follows a
// symbolic link that belongs to this user or root.
// Refuses a directory that everyone may write, a group that this user is not in, and a link of another user.
void prepareStoreDirectory(const std::string& directory, std::optional<gid_t> group, bool isRecognised = false);

// Whether a publisher has opened a store in the directory before, which shows by the doorbell.
bool hasBeenPublished(const std::string& directory);

// Whether the file system of the directory has no room for a few more pages. The storage engine then reports all kinds
// of errors.
bool isSpaceOut(const std::string& directory);

// Opens a file of the publisher for reading and writing, creates it if it is missing, and sets `mode` and the
// directory's group. Refuses a symbolic link. Replaces a file that has another hard link, which a reader may have made.
// The caller closes the descriptor.
int openStoreFile(const std::string& directory, const std::string& file, mode_t mode, bool* isNew = nullptr);

// Checks a file before the storage engine opens it. Does not open the file itself, since closing the descriptor would
// release the engine's locks. Removes a lock file that has another hard link. No-op if the file is missing.
void checkStoreFile(const std::string& file);

// Sets `mode` and the directory's group on a file that the storage engine created.
void claimStoreFile(const std::string& directory, const std::string& file, mode_t mode);

// Whether the open file `fd` was removed or replaced under its name.
bool isFileReplaced(int fd, const std::string& file);

}  // namespace Quillo
