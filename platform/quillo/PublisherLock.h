#pragma once
// The lock that lets one publisher at a time have a store: on a file that names its holder. Internal to the store.
//
// The kernel releases the lock when its holder dies; the text that is left in the file then has no meaning.

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

  // Who holds the lock of that directory now. Nobody when the file is missing or cannot be read.
  static PublisherInfo holder(const std::string& directory);

 private:
  int fd_ = -1;
};

}  // namespace Quillo
