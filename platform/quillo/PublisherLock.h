#pragma once
// The lock that admits one publisher to a store at a time. Internal to the store.
//
// It is a write lock (fcntl, F_OFD_SETLK) on the file `publisher.lock` in the store's directory. The holder writes its
// pid and name into the file. Only the lock counts: the kernel releases it when the holder dies, while the text stays.

#include <string>

#include "quillo/Publisher.h"

namespace Quillo {

class PublisherLock {
 public:
  // Takes the lock for a publisher called `name`; the destructor releases it. Throws StoreException: of kind `owned`,
  // with the holder's name and pid, when another publisher holds the lock; of kind `permission`, `full` or `directory`
  // when the file cannot be written.
  PublisherLock(const std::string& directory, const std::string& name);
  ~PublisherLock();
  PublisherLock(const PublisherLock&) = delete;
  PublisherLock& operator=(const PublisherLock&) = delete;

  // Returns the publisher that holds the lock of `directory` now. `alive` is false when none does, and when the file is
  // missing or cannot be read.
  static PublisherInfo holder(const std::string& directory);

 private:
  int fd_ = -1;
};

}  // namespace Quillo
