#pragma once
// A small file that the publisher writes after each commit, and that readers watch. Internal to the store.
//
// It holds the journal's head in 8 bytes, then publisherLine(). While it runs, the publisher holds a read lock on the
// file (fcntl, F_OFD_SETLK). Readers test that lock to see whether a publisher is alive. They open the file read-only,
// so they cannot take a write lock that would exclude it.
//
// A write only wakes the readers, which then read the journal. So a missed one loses nothing: the next write, or the
// poll once a second, leads to the same journal.

#include <cstdint>
#include <string>

#include "quillo/Publisher.h"

namespace Quillo {

class Doorbell {
 public:
  // Creates and locks the file. Throws StoreException as openStoreFile(), or if the file cannot be written: `full` for
  // lack of space, otherwise `directory`.
  Doorbell(const std::string& directory, const std::string& publisherName);
  ~Doorbell();
  Doorbell(const Doorbell&) = delete;
  Doorbell& operator=(const Doorbell&) = delete;

  // Writes the file and so wakes the readers. Recreates it if it was removed or replaced. `seq`: the journal's head.
  // Does not throw: a failure is traced, and readers then notice changes by their poll.
  void ring(std::uint64_t seq);
  // Recreates the file if it was removed or replaced. Returns whether it did. Throws StoreException as the constructor.
  bool check();

 private:
  // Opens the file and writes the publisher's line. Throws StoreException.
  void open();

  std::string directory_;
  std::string name_;
  std::uint64_t seq_ = 0;
  int fd_ = -1;
};

// The publisher that holds the doorbell of `directory` now. `alive` is false if no publisher holds it. `isUnknown` is
// set if the file exists but cannot be opened.
PublisherInfo doorbellHolder(const std::string& directory);

// Watches the doorbell file for rings, and its directory for the store's creation and removal; while there is no
// directory, the nearest one above it.
class DoorbellWatch {
 public:
  explicit DoorbellWatch(const std::string& directory);
  ~DoorbellWatch();
  DoorbellWatch(const DoorbellWatch&) = delete;
  DoorbellWatch& operator=(const DoorbellWatch&) = delete;

  // Readable while an event is pending. -1 if inotify_init1() failed, which is traced: then only the poll works.
  int fd() const { return fd_; }
  // Reads all pending events and calls arm(). Returns whether there was one.
  bool drain();
  // Adds the watches whose paths exist. No-op if all are in place.
  void arm();
  // Makes the next arm() add all watches again, for a store that was replaced.
  void stale() { armed_ = false; }

 private:
  void set(int& watch, const std::string& path, std::uint32_t mask);
  void setStore();

  std::string directory_;
  int fd_ = -1;
  int bell_ = -1;      // watch on the doorbell file
  int folder_ = -1;    // watch on the directory
  int ancestor_ = -1;  // watch on the nearest directory above, while there is no directory
  bool armed_ = false;
};

}  // namespace Quillo
