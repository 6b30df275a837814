#include "host/composition/AgentHealth.h"

#include <algorithm>
#include <ctime>
#include <utility>
#include <vector>

#include "host/composition/AgentLog.h"
#include "host/composition/Turns.h"
#include "kel/Trace.h"
#include "snmp/Config.h"
#include "snmp/Facts.h"

namespace Host {

using AgentSnmp::PublisherState;

static Kel::TraceHandle agentHealthTrace("AgentHealth");

namespace {

constexpr int healthPriority = 2;
constexpr Kel::Seconds lookInterval = 1.0;
// A publisher reports once a second; a million routes may keep it busy for longer.
constexpr Kel::Seconds longestSilence = 10.0;

}  // namespace

AgentHealth::AgentHealth(const Kel::Ptr<Brev::TaskScheduler>& scheduler, Sources sources,
                         Kel::Ptr<Snmp::AgentStatus> status, Kel::Ptr<AgentSnmp::AgentMib> mib)
    : sources_(std::move(sources)),
      status_(std::move(status)),
      mib_(std::move(mib)),
      notifications_(mib_, sources_.mount->directory()),
      timer_(Kel::makePtr<Brev::TimerTask>(scheduler, "agent health", healthPriority,
                                           [this](Brev::Task&) { look(); })) {
  look();
  timer_->scheduleTaskPeriodic(lookInterval);
}

AgentHealth::~AgentHealth() {
  timer_->cancelTask();
  Snmp::factsAreServedIs(true);
}

void AgentHealth::readyIs(bool isReady) {
  status_->agentReadyIs(isReady);
  look();
}

void AgentHealth::look() {
  lookAtStore();
  lookAtPublisher();
  lookAtVrfs();
  decide();
  notifications_.announce();
}

void AgentHealth::lookAtStore() {
  mib_->damageCountIs(sources_.mount->corruptionCount());
  mib_->requestsIs(Snmp::requestCount());
  Turns::Clock::duration longest{};
  for (const auto kind : Turns::kinds) longest = std::max(longest, sources_.turns.figures(kind).longest);
  mib_->longestTurnIs(std::chrono::duration<Kel::Seconds>(longest).count());
  if (!sources_.mount->isReadable()) return;
  try {
    const auto snapshot = sources_.mount->turnSnapshot();
    const auto count = [&](Quillo::TableId table) { return snapshot->tableState(table).count; };
    mib_->routesIs(count(Quillo::TableId::route));
    mib_->routes6Is(count(Quillo::TableId::route6));
    mib_->neighboursIs(count(Quillo::TableId::arp));
    mib_->neighbours6Is(count(Quillo::TableId::neighbor));
    const auto sizes = snapshot->sizes();
    mib_->storeBytesIs(sizes.recordBytes + sizes.journalBytes + sizes.tombstoneBytes);
    if (const auto pass = snapshot->completePass()) mib_->lastPassIs(pass->time);
  } catch (const Pesk::CorruptionDetectedException& damage) {
    sources_.mount->corruptionDetected(damage);
  } catch (const Quillo::StoreException&) {
    return;  // the follower reports why, and the figures stay
  }
}

void AgentHealth::lookAtPublisher() {
  const auto publisher = sources_.mount->publisher();
  if (publisher.isUnknown) {
    QTRACE(agentHealthTrace, 0) << "cannot see whether a publisher of " << sources_.mount->directory()
                                << " runs; let the agent read its file doorbell, and leave it descriptors";
    return;
  }
  const auto now = Kel::System::currentTime();
  const bool hasPublished = mib_->lastPass() != 0 && mib_->lastPass() >= publisher.started;
  if (publisher.alive && mib_->publisherLastSeen() != 0 && publisher.lastSeen != mib_->publisherLastSeen()) {
    reported_ = now;
    if (hasPublished) vouched_ = now;
  }
  if (!vouched_ && publisher.lastSeen != 0) {
    // Both times are by the system's clock, so its steps do not matter later.
    vouched_ = now - std::max(0.0, static_cast<Kel::Seconds>(std::time(nullptr)) - publisher.lastSeen);
    if (!reported_) reported_ = vouched_;
  }
  if (!publisher.name.empty()) mib_->publisherNameIs(publisher.name);
  if (publisher.lastSeen != 0) mib_->publisherLastSeenIs(publisher.lastSeen);
  if (publisher.lastCommit != 0) mib_->lastCommitIs(publisher.lastCommit);
  mib_->publisherPidIs(static_cast<std::uint32_t>(publisher.pid));
  mib_->publisherStartedIs(publisher.started);
  mib_->publisherStateIs(stateOf(publisher, hasPublished));
}

PublisherState AgentHealth::stateOf(const Quillo::PublisherInfo& publisher, bool hasPublished) const {
  if (!publisher.alive) {
    const bool wasSeen = reported_ || mib_->publisherLastSeen() != 0;
    return wasSeen ? AgentSnmp::publisherGone : AgentSnmp::publisherNone;
  }
  if (reported_ && Kel::System::currentTime() - *reported_ > longestSilence) return AgentSnmp::publisherSilent;
  return hasPublished ? AgentSnmp::publisherAlive : AgentSnmp::publisherStarting;
}

// The default VRF exists without a status record.
void AgentHealth::lookAtVrfs() {
  const auto& published = *sources_.publishedVrfs;
  const Kel::Name defaultVrf = L3::VrfName::defaultName;
  const auto isPublished = [&](const Kel::Name& name) {
    return name == defaultVrf ? status_->agentReady() : published.vrf(L3::VrfName(name)) != nullptr;
  };
  const auto note = [&](const Kel::Name& name) {
    mib_->vrfTableIs(Snmp::String(name))->readinessIs(sources_.contexts.readiness(name));
  };
  for (const auto& [vrf, status] : published.vrf()) note(vrf.stringValue());
  if (isPublished(defaultVrf)) note(defaultVrf);
  for (const auto& name : mib_->vrfTable().keys()) {
    if (!isPublished(name.raw())) mib_->vrfTableDel(name);
  }
  mib_->contextsIs(static_cast<std::uint32_t>(sources_.contexts.count()));
}

void AgentHealth::decide() {
  const auto staleAfter = Snmp::currentConfig()->staleAfter();
  const auto age = vouched_ ? Kel::System::currentTime() - *vouched_ : 0;
  const bool isStale = staleAfter != 0 && age > staleAfter;
  if (isStale != mib_->isStale()) {
    if (isStale) {
      logError("what the publisher wrote is older than {} s (quorinStaleAfter) and is not answered any more",
               staleAfter);
    } else {
      logInfo("what the publisher writes is answered again");
    }
  }
  mib_->isStaleIs(isStale);
  mib_->isServingIs(status_->agentReady() && !isStale);
  Snmp::factsAreServedIs(mib_->isServing());
}

}  // namespace Host
