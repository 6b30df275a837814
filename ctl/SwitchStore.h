#pragma once
// Reads a whole switch from a store, and publishes one.

#include <functional>
#include <memory>
#include <string>

#include "ctl/SwitchState.h"
#include "quillo/Mount.h"
#include "quillo/Publisher.h"
#include "varnix/DocumentPublisher.h"

namespace Ctl {

// Copies the whole store from one snapshot, which takes some tenths of a second for a million routes. The snapshot is
// then released, so the publisher can reuse its pages. Calls `leftOut` with one line for each record that cannot be
// read. Throws Quillo::StoreException, and Pesk::CorruptionDetectedException for damage that ends the reading.
SwitchState switchFromStore(Quillo::Mount& mount, const std::function<void(const std::string& line)>& leftOut);

// Publishes a switch as the only publisher of a store.
//
//   SwitchPublisher publisher({.directory = "/run/quorin", .name = "quorinctl load"});
//   publisher.publish(state, [](double part) { ... });
//   once a second: publisher.poll();
//
// poll() replaces a lost or damaged store by a new one. If that recurs within 10 s, it throws Quillo::StoreException.
class SwitchPublisher {
 public:
  // Takes the publisher's lock. Throws Quillo::StoreException, of kind `owned` if another publisher has it.
  explicit SwitchPublisher(const Quillo::PublisherConfig& config);

  // Called after each commit with the fraction written, 0 to 1. It may call check().
  using Progress = std::function<void(double part)>;

  // Makes the store equal to `state` by a full pass, which writes only differences. The state's moving counters
  // (SwitchState.h) start from their initial values now.
  // Throws Quillo::StoreException, Pesk::CorruptionDetectedException. After a StoreException of kind full or gone, the
  // next poll() retries.
  void publish(std::shared_ptr<const SwitchState> state, const Progress& progress);
  // Writes the current values of moving counters and runs Publisher::check(). A full store is traced once and retried
  // by the next call. Requires: publish() was called. Throws as publish() for other faults.
  void poll();
  // Calls Publisher::check(), for long work between two calls of poll(); no-op within 0.9 s of the last check.
  // Throws as Publisher::check(). After a StoreException of kind full or gone, the next poll() retries.
  void check();

 private:
  void writeAll(const Progress& progress);

  Quillo::Publisher store_;
  std::shared_ptr<const SwitchState> state_;
  std::unique_ptr<Varnix::DocumentPublisher> documents_;
  Kel::Seconds begun_ = 0;     // when publish() was called; counters move since then
  Kel::Seconds madeAnew_ = 0;  // 0: never
  Kel::Seconds lastCheck_ = 0;
  bool isFull_ = false;  // the store was full at the last poll(), and this was traced
};

}  // namespace Ctl
