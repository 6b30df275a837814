#pragma once
// Keeps the agent's copy of the state database in step with the store, in pieces short enough that no request waits
// for it.
//
// The doorbell wakes it, and a poll once a second in case a wake-up was lost. An idle task looks over the whole
// store once a minute for damage that no lookup can see. What it waits for, or what is wrong, is one line in the
// log when it changes.

#include "brev/TimerTask.h"
#include "host/AgentLoop.h"
#include "quillo/Mount.h"
#include "quillo/Scrubber.h"
#include "varnix/EntityManager.h"

namespace Host {

class StoreFollower {
 public:
  // `loop` must outlive this object. The state database is made in the directory "Varnix" of `root`.
  StoreFollower(AgentLoop& loop, const Kel::Ptr<Brev::TaskScheduler>& scheduler, const Kel::Ptr<Kel::Dir>& root,
                const std::string& storeDirectory);
  ~StoreFollower();
  StoreFollower(const StoreFollower&) = delete;
  StoreFollower& operator=(const StoreFollower&) = delete;

  const Varnix::Tree& tree() const { return manager_->tree(); }
  const Kel::Ptr<Varnix::EntityManager>& manager() const { return manager_; }

 private:
  void follow(Brev::Task& task);
  void scrub(Brev::Task& task);
  void reportStatus();

  AgentLoop& loop_;
  Kel::Ptr<Quillo::Mount> mount_;
  Kel::Ptr<Varnix::EntityManager> manager_;
  Quillo::Scrubber scrubber_;
  Kel::String reported_;
  Kel::Ptr<Brev::Task> followTask_;
  Kel::Ptr<Brev::TimerTask> pollTimer_;
  Kel::Ptr<Brev::Task> scrubTask_;
  Kel::Ptr<Brev::TimerTask> scrubTimer_;
};

}  // namespace Host
