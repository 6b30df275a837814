#pragma once
// What stands behind Mount. Internal to the store.

#include "quillo/Doorbell.h"
#include "quillo/Mount.h"
#include "quillo/View.h"

namespace Quillo {

class MountImpl {
 public:
  explicit MountImpl(const MountConfig& config);

  Mount::State state() const { return state_; }
  const std::string& stateText() const { return stateText_; }
  const std::string& directory() const { return directory_; }
  bool refresh();
  std::shared_ptr<View> view();
  DoorbellWatch& watch() { return watch_; }
  void corruptionDetected(const std::string& message);
  std::uint64_t corruptionCount() const { return corruptionCount_; }

 private:
  // What a refresh compares with the one before.
  struct Sight {
    Mount::State state = Mount::State::waiting;
    std::uint64_t epoch = 0;
    std::uint64_t seq = 0;
    Kel::Seconds passTime = 0;
    bool operator==(const Sight&) const = default;
  };

  void stateIs(Mount::State state, const std::string& text);
  void noticeReplacement();
  void open();
  void close();
  void look(Sight& sight);

  std::string directory_;
  DoorbellWatch watch_;
  std::shared_ptr<Environment> store_;
  std::weak_ptr<View> view_;
  std::optional<View::KnownHead> knownHead_;  // of store_
  Mount::State state_ = Mount::State::waiting;
  std::string stateText_;
  // Begins at 1, so that a default bookmark belongs to no epoch.
  std::uint64_t epoch_ = 1;
  Sight seen_;
  bool seenAny_ = false;

  std::uint64_t corruptionCount_ = 0;
  Kel::Seconds corruptionTime_ = 0;
  Kel::Seconds pause_ = 0;  // between damage and the next attempt
};

}  // namespace Quillo
