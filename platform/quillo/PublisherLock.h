#pragma once
// "One publisher at a time": a lock on a file that names its holder. Internal to the store.
//
// The kernel lets go of the lock when its holder dies, however it dies; what the file says afterwards means
// nothing.

#include <string>

#include "quillo/Publisher.h"

namespace Quillo {

class PublisherLock {
 public:
  // StoreException: `owned` with the holder's name and pid, or why the file cannot be written.
  PublisherLock(const std::string& directory, const std::string& name);
  ~PublisherLock();
  PublisherLock(const PublisherLock&) = delete;
  PublisherLock& operator=(const PublisherLock&) = delete;

  // Who holds the lock of that directory now. A file that is not there or cannot be read counts as nobody.
  static PublisherInfo holder(const std::string& directory);

 private:
  int fd_ = -1;
};

}  // namespace Quillo
