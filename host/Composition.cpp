#include "host/Composition.h"

#include <memory>

namespace Host {

// Passes the state database's readiness on to those who wait for the agent's.
class Composition::ReadyWatcher : public Varnix::EntityManager::Notifiee {
 public:
  explicit ReadyWatcher(Kel::Ptr<Snmp::Status> status) : status_(std::move(status)) {}
  void handleReady() override { status_->agentReadyIs(notifier()->ready()); }

 private:
  Kel::Ptr<Snmp::Status> status_;
};

Composition::Composition(AgentLoop& loop, const std::string& storeDirectory)
    : loop_(loop),
      scheduler_(Kel::makePtr<Brev::TaskScheduler>()),
      root_(Kel::makePtr<Kel::Dir>("")),
      follower_(loop, scheduler_, root_, storeDirectory),
      tree_(root_, follower_.tree()),
      readyWatcher_(Kel::makePtr<ReadyWatcher>(tree_.snmpStatus())) {
  readyWatcher_->notifierIs(follower_.manager());
  scheduler_->requestWaitsIs([&loop] { return loop.requestWaiting(); });
  loop_.addFd(scheduler_->pollFd(), [this] { scheduler_->runReady(); });
  contexts_.enter("");
}

Composition::~Composition() {
  loop_.removeFd(scheduler_->pollFd());
}

void Composition::reconfigure() {
  contexts_.leave("");
  contexts_.enter("");
}

AgentHooks Composition::hooks() {
  const auto composition = std::make_shared<std::unique_ptr<Composition>>();
  return {
      .started =
          [composition](AgentLoop& loop, const AgentOptions& options) {
            *composition = std::make_unique<Composition>(loop, options.storeDirectory);
          },
      .reconfigured = [composition] { (*composition)->reconfigure(); },
      .stopping = [composition] { composition->reset(); },
  };
}

}  // namespace Host
