#include "host/composition/Composition.h"

#include <utility>

#include "host/composition/AgentLog.h"
#include "snmp/Config.h"
#include "swfwdstats/SwFwdStats.h"
#include "vantu/NetNs.h"

namespace Host {

namespace {

// Logs, once in a process even if a Composition is created again, what the agent cannot serve here.
void reportLimitations() {
  static bool isReported = false;
  if (std::exchange(isReported, true)) return;
  if (!Vantu::mayEnterNs()) {
    logInfo(
        "no CAP_SYS_ADMIN, so the kernel's IP counters of VRFs that are network namespaces read 0 "
        "(quorinSwFwdIpStatsTable); all else is served. Grant the capability if you need them");
  }
  const auto advice = Ip::kernelIpHeaderAdvice();
  if (!advice.empty()) agentLog(LOG_WARNING, advice);
}

}  // namespace

// Tells the agent when the state database is ready.
class Composition::ReadyWatcher : public Varnix::EntityManager::Notifiee {
 public:
  explicit ReadyWatcher(AgentHealth& health) : health_(health) {}
  void handleReady() override { health_.readyIs(notifier()->ready()); }

 private:
  AgentHealth& health_;
};

class Composition::ServedVrfWatcher : public IpSnmp::VrfRootSm::Notifiee {
 public:
  explicit ServedVrfWatcher(VrfContexts& contexts) : contexts_(contexts) {}
  void handleServedVrf(const L3::VrfName& vrf) override {
    contexts_.setServed(vrf.stringValue(), notifier()->servedVrfHas(vrf));
  }

 private:
  VrfContexts& contexts_;
};

Composition::Composition(EventLoop& loop, const std::string& storeDirectory, SharedGroups::Groups sharedGroups)
    : loop_(loop),
      storeDirectory_(storeDirectory),
      config_(Snmp::currentConfig()),
      scheduler_(Kel::makePtr<Brev::TaskScheduler>()),
      root_(Kel::makePtr<Kel::Dir>("")),
      follower_(loop, scheduler_, root_, storeDirectory),
      tree_(root_, scheduler_, follower_.arpTable(), follower_.manager()),
      sharedGroups_(std::move(sharedGroups)),
      vrfContexts_(contexts_, follower_.tree().routingVrfConfigDir),
      health_(scheduler_, {follower_.mount(), follower_.tree().allVrfStatusLocal, vrfContexts_, loop.turns()},
              tree_.snmpStatus()->agentStatus(), tree_.agentMib()),
      control_(loop, scheduler_, {storeDirectory, tree_.agentMib(), loop.turns(), [this] { health_.look(); }}),
      readyWatcher_(Kel::makePtr<ReadyWatcher>(health_)) {
  readyWatcher_->notifierIs(follower_.manager());
  scheduler_->setRequestPredicate([&loop] { return loop.requestWaiting(); });
  loop_.addFd(scheduler_->pollFd(), [this] { scheduler_->runReady(); });
  reportLimitations();
  control_.pathIs(config_->controlSocket());
  contexts_.enter("");
  followServedVrfs();
  tree_.onVrfRootSmChanged([this] { followServedVrfs(); });
}

Composition::~Composition() {
  tree_.onVrfRootSmChanged({});
  loop_.removeFd(scheduler_->pollFd());
}

void Composition::followServedVrfs() {
  const auto machine = tree_.vrfRootSm();
  servedVrfWatcher_ = Kel::makePtr<ServedVrfWatcher>(vrfContexts_);
  servedVrfWatcher_->notifierIs(machine);
  for (const auto& vrf : machine->servedVrf().keys()) servedVrfWatcher_->handleServedVrf(vrf);
}

void Composition::update(std::unique_ptr<Composition>& composition, EventLoop& loop,
                         const std::string& storeDirectory, SharedGroups::Groups sharedGroups) {
  if (composition && composition->storeDirectory_ == storeDirectory) return composition->reconfigure();
  composition.reset();
  composition = std::make_unique<Composition>(loop, storeDirectory, std::move(sharedGroups));
}

void Composition::reconfigure() {
  const auto config = Snmp::currentConfig();
  const bool isSame = config->disabledObjects() == config_->disabledObjects() &&
                      config->managementInterfaces() == config_->managementInterfaces();
  config_ = config;
  control_.pathIs(config->controlSocket());
  tree_.reconfigure();
  if (isSame) return;
  capabilities_.update();
  contexts_.leave("");
  contexts_.enter("");
  vrfContexts_.reenter();
}

std::string Composition::configuredStoreDirectory() {
  const auto& configured = Snmp::currentConfig()->storeDirectory();
  return configured.empty() ? Quillo::defaultStoreDirectory : configured;
}

void Composition::setNetnsDirectory(const std::string& chosen) {
  const auto& configured = chosen.empty() ? Snmp::currentConfig()->netnsDirectory() : chosen;
  Vantu::setNetNsDirectory(configured.empty() ? Vantu::defaultNetNsDirectory : configured);
}

}  // namespace Host
