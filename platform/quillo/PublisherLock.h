#pragma once
// The lock that admits one publisher to a store at a time. Internal to the store.
//
// It is a write lock (fcntl, F_OFD_SETLK) on the file `publisher.lock`, which only the store's owner can open. The
// holder writes its pid and name into the file. Only the lock counts: the kernel releases it when the holder dies,
// while the text stays. Readers see the publisher's lock on the doorbell instead (Doorbell.h).

#include <string>

#include "quillo/Publisher.h"

namespace Quillo {

class PublisherLock {
 public:
  // Takes the lock for a publisher called `name`; the destructor releases it. Throws StoreException: of kind `owned`,
  // with the holder's name and pid, when another publisher holds the lock, or holds the doorbell of a store whose lock
  // file was removed; otherwise as openStoreFile() does.
  PublisherLock(const std::string& directory, const std::string& name);
  ~PublisherLock();
  PublisherLock(const PublisherLock&) = delete;
  PublisherLock& operator=(const PublisherLock&) = delete;

  // Takes the lock again when the file was removed or replaced. Returns true when it had to. Throws as the constructor
  // does, with `owned` when another publisher was faster.
  bool retake();
  // Sets the time of the file to now, from which readers learn that the publisher works.
  void beat();
  // Removes the file if this lock created it. For a publisher that fails to open the store, so that it leaves the
  // directory as it was.
  void undo();

 private:
  // Takes the lock, and returns the descriptor of the locked file. `isOwnDoorbell`: a lock on the doorbell is this
  // publisher's own.
  int take(bool isOwnDoorbell);

  std::string directory_;
  std::string name_;
  bool isNew_ = false;
  int fd_ = -1;
};

// "PID NAME" and, on a second line, "started SECONDS", as a publisher writes it into its files. A name longer than 200
// bytes is cut.
std::string publisherLine(const std::string& name);
// The publisher whose line begins at `offset` of the file, if that process exists: pid, name and start.
PublisherInfo readPublisher(int fd, long offset);

}  // namespace Quillo
