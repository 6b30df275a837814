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

// Copies everything out of one snapshot, some tenths of a second for a million routes, so that the publisher can reuse
// its pages soon. `leftOut` gets a line about each record that cannot be read.
// Throws Quillo::StoreException, and Pesk::CorruptionDetectedException for damage that ends the reading.
SwitchState switchFromStore(Quillo::Mount& mount, const std::function<void(const std::string& line)>& leftOut);

// Publishes a switch as the only publisher of a store.
//
//   SwitchPublisher publisher({.directory = "/run/quorin", .name = "quorinctl load"});
//   publisher.publish(state, [](double part) { ... });
//   once a second: publisher.poll();
//
// If the store is removed or damaged, poll() makes it anew; if that recurs at once, it throws.
class SwitchPublisher {
 public:
  // Takes the publisher's lock. Throws Quillo::StoreException, of kind `owned` if another publisher has it.
  explicit SwitchPublisher(const Quillo::PublisherConfig& config);

  // Called between two commits with the part that is written, 0 to 1.
  using Progress = std::function<void(double part)>;

  // Makes the store equal to `state`, as a full pass: only differences are written. Counters move from now on.
  // Throws Quillo::StoreException, Pesk::CorruptionDetectedException.
  void publish(std::shared_ptr<const SwitchState> state, const Progress& progress);
  // Writes the counters, and does the publisher's checks. A store that is full is tried again with the next call.
  // Throws as publish().
  void poll();
  // Calls Publisher::check(), for long work between two calls of poll(); no-op within checkPeriod of the last check.
  // Throws as Publisher::check().
  void check();

 private:
  void writeAll(const Progress& progress);

  Quillo::Publisher store_;
  std::shared_ptr<const SwitchState> state_;
  std::unique_ptr<Varnix::DocumentPublisher> documents_;
  Kel::Seconds begun_ = 0;     // when the counters began to move
  Kel::Seconds madeAnew_ = 0;  // 0: never
  Kel::Seconds lastCheck_ = 0;
  bool isFull_ = false;  // and traced
};

}  // namespace Ctl
