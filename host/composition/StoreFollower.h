#pragma once
// Keeps the agent's copy of the state database in step with the store, and tells what changed in the store's tables,
// in pieces short enough that no request waits for it. The tables come after the state database: who reacts to an
// entry finds the interfaces and VRFs that it names.
//
// The doorbell wakes it, and a poll once a second in case a wake-up was lost. An idle task looks over the whole
// store once a minute for damage that no lookup can see. What it waits for, or what is wrong, is one line in the
// log when it changes.
//
// Whoever reads the store in one turn of the loop shares one snapshot. It goes at the turn's end or, where the loop does
// not tell of that, first thing in the turn that follows at once: a task that is queued keeps the loop from waiting.

#include "brev/TimerTask.h"
#include "host/composition/EventLoop.h"
#include "quillo/Scrubber.h"
#include "quillo/tables/ArpTableMount.h"
#include "varnix/EntityManager.h"

namespace Host {

class StoreFollower {
 public:
  // `loop` must outlive this object. The state database is made in the directory "Varnix" of `root`.
  StoreFollower(EventLoop& loop, const Kel::Ptr<Brev::TaskScheduler>& scheduler, const Kel::Ptr<Kel::Dir>& root,
                const std::string& storeDirectory);
  ~StoreFollower();
  StoreFollower(const StoreFollower&) = delete;
  StoreFollower& operator=(const StoreFollower&) = delete;

  const Varnix::Tree& tree() const { return manager_->tree(); }
  // With the routes and FECs of each VRF to be mounted.
  const Kel::Ptr<Varnix::EntityManager>& manager() const { return manager_; }
  const Kel::Ptr<Quillo::ArpTableMount>& arpTable() const { return arpTable_; }

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
  Kel::String reported_;
  Kel::Ptr<Brev::Task> turnEndTask_;  // null where the loop tells of the end of a turn
  Kel::Ptr<Brev::Task> followTask_;
  Kel::Ptr<Brev::TimerTask> pollTimer_;
  Kel::Ptr<Brev::Task> scrubTask_;
  Kel::Ptr<Brev::TimerTask> scrubTimer_;
};

}  // namespace Host
