#pragma once
// A small file that the publisher writes after each commit, and that readers watch. Internal to the store.
//
// A ring has no content, so a missed one loses nothing: the next ring, or the poll, leads to the same journal.

#include <cstdint>
#include <string>

namespace Quillo {

class Doorbell {
 public:
  // StoreException when the file cannot be made.
  explicit Doorbell(const std::string& directory);
  ~Doorbell();
  Doorbell(const Doorbell&) = delete;
  Doorbell& operator=(const Doorbell&) = delete;

  void ring(std::uint64_t seq);

 private:
  bool open();
  std::string file_;
  int fd_ = -1;
};

// Watches the doorbell file for rings, and its directory for the store's creation and removal; while there is no
// directory, the nearest one above it.
class DoorbellWatch {
 public:
  explicit DoorbellWatch(const std::string& directory);
  ~DoorbellWatch();
  DoorbellWatch(const DoorbellWatch&) = delete;
  DoorbellWatch& operator=(const DoorbellWatch&) = delete;

  // -1 when the system has no watch to give.
  int fd() const { return fd_; }
  // Reads all events that are pending; true when there was one.
  bool drain();
  // Sets the watches that can be set now. Costs nothing when all are set.
  void arm();
  // Sets all watches anew with the next arm().
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
