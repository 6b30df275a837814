#pragma once
// Keeps the agent's state database equal to the store, and notifies subscribers of changes in the store's tables.
//
// Guarantees:
// - It works in a task that yields to requests. The state database is updated before the tables, so a reactor to an
//   entry finds the interfaces and VRFs that the entry names.
// - The doorbell wakes it; a poll once a second makes up for a lost wake-up. An idle task verifies the whole store once
//   a minute, and at once when damage was met.
// - It logs one line whenever its status changes: what it waits for, or what is wrong.
// - All readers of one turn of the loop share one snapshot, which is released at the end of the turn. If the loop does
//   not know the end of a turn, a queued task releases it at the start of the next turn.

#include "brev/TimerTask.h"
#include "host/composition/EventLoop.h"
#include "quillo/Scrubber.h"
#include "quillo/tables/ArpTableMount.h"
#include "varnix/EntityManager.h"

namespace Host {

class StoreFollower {
 public:
  // Creates the state database in the directory "Varnix" of `root`. Throws Kel::Exception if the loop cannot take the
  // doorbell's descriptor. Lifetime: `loop` must outlive this object.
  StoreFollower(EventLoop& loop, const Kel::Ptr<Brev::TaskScheduler>& scheduler, const Kel::Ptr<Kel::Dir>& root,
                const std::string& storeDirectory);
  ~StoreFollower();
  StoreFollower(const StoreFollower&) = delete;
  StoreFollower& operator=(const StoreFollower&) = delete;

  const Varnix::Tree& tree() const { return manager_->tree(); }
  // The manager's quilloMount mounts the routes and FECs of each VRF.
  const Kel::Ptr<Varnix::EntityManager>& manager() const { return manager_; }
  const Kel::Ptr<Quillo::ArpTableMount>& arpTable() const { return arpTable_; }
  const Kel::Ptr<Quillo::Mount>& mount() const { return mount_; }

 private:
  void followTurns(const Kel::Ptr<Brev::TaskScheduler>& scheduler);
  void follow(Brev::Task& task);
  bool step();
  void scrub(Brev::Task& task);
  void reportStatus();

  EventLoop& loop_;
  Kel::Ptr<Quillo::Mount> mount_;
  Kel::Ptr<Varnix::EntityManager> manager_;
  Kel::Ptr<Quillo::TableFollower> tables_;  // one for all tables: they share a journal
  Kel::Ptr<Quillo::ArpTableMount> arpTable_;
  Quillo::Scrubber scrubber_;
  std::uint64_t damageSeen_ = 0;
  Kel::String reported_;
  Kel::Ptr<Brev::Task> turnEndTask_;  // null if the loop knows the end of a turn
  Kel::Ptr<Brev::Task> followTask_;
  Kel::Ptr<Brev::TimerTask> pollTimer_;
  Kel::Ptr<Brev::Task> scrubTask_;
  Kel::Ptr<Brev::TimerTask> scrubTimer_;
};

}  // namespace Host
