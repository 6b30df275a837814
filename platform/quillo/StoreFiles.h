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

// All operations throw StoreException: of kind `permission` when this user may not do it, `full` when there is no
// space, `unsafe` for a link, for something that is no file, for a file with a second name, and for an owner other than
// this user and root; otherwise of kind `directory`.

// Makes the directory if it is missing. Gives it to `group`, and takes it away from others, unless it also holds files
// that are not the store's. A data file in a directory where no publisher has been is not the store's until
// `isRecognised`. Refuses a directory that everyone may write, or a group that this user is not in, and a link of
// another user in its place. Follows a link of this user or root.
void prepareStoreDirectory(const std::string& directory, std::optional<gid_t> group, bool isRecognised = false);

// Whether a publisher has opened a store there before: only then is there a doorbell.
bool hasBeenPublished(const std::string& directory);

// Whether the file system of the directory has no room for a few more pages. The storage engine then reports all kinds of
// errors.
bool isSpaceOut(const std::string& directory);

// Opens a file of the publisher for reading and writing, makes it if it is missing, and gives it `mode` and the
// directory's group. Follows no symbolic link, and makes a file anew that has a second name, since a reader may have
// given it that. The caller closes the descriptor.
int openStoreFile(const std::string& directory, const std::string& file, mode_t mode, bool* isNew = nullptr);

// Checks a file before the storage engine opens it, without opening it: the engine's own locks would be lost when the
// descriptor is closed. A lock file with a second name is removed. A missing file is left to the engine.
void checkStoreFile(const std::string& file);

// Gives a file that the storage engine made `mode` and the directory's group.
void claimStoreFile(const std::string& directory, const std::string& file, mode_t mode);

// Another file, or none, has the name of the open file `fd`.
bool isFileReplaced(int fd, const std::string& file);

}  // namespace Quillo
