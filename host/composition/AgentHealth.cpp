#include "host/composition/AgentHealth.h"

#include <algorithm>
#include <ctime>
#include <utility>
#include <vector>

#include "host/composition/AgentLog.h"
#include "host/composition/Turns.h"
#include "snmp/Config.h"
#include "snmp/Facts.h"

namespace Host {

using AgentSnmp::PublisherState;

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
  lookAtPublisher();
  lookAtStore();
  lookAtVrfs();
  decide();
}

void AgentHealth::lookAtPublisher() {
  const auto publisher = sources_.mount->publisher();
  const auto now = Kel::System::currentTime();
  if (publisher.lastSeen != lastSeen_) {
    // The first time may be long ago. Both clocks are the system's, so steps of the clock do not matter later.
    const auto age = noticed_ ? 0 : static_cast<Kel::Seconds>(std::time(nullptr)) - publisher.lastSeen;
    noticed_ = now - std::max(age, 0.0);
    lastSeen_ = publisher.lastSeen;
  }
  const auto before = mib_->publisherState();
  const auto state = stateOf(publisher, noticed_ ? now - *noticed_ : 0);
  if (publisher.alive) lastPublisher_ = publisher.text();
  mib_->publisherNameIs(publisher.name);
  mib_->publisherPidIs(static_cast<std::uint32_t>(publisher.pid));
  mib_->publisherStartedIs(publisher.started);
  mib_->publisherLastSeenIs(publisher.lastSeen);
  mib_->lastCommitIs(publisher.lastCommit);
  if (state != before) report(before, state);
  mib_->publisherStateIs(state);
}

PublisherState AgentHealth::stateOf(const Quillo::PublisherInfo& publisher, Kel::Seconds silence) const {
  if (publisher.alive) return silence > longestSilence ? AgentSnmp::publisherSilent : AgentSnmp::publisherAlive;
  const bool wasSeen = publisher.lastSeen != 0 || mib_->publisherState() != AgentSnmp::publisherNone;
  return wasSeen ? AgentSnmp::publisherGone : AgentSnmp::publisherNone;
}

void AgentHealth::report(PublisherState before, PublisherState now) const {
  const auto who = lastPublisher_.empty() ? "the publisher" : "the publisher " + lastPublisher_;
  const auto& directory = sources_.mount->directory();
  switch (now) {
    case AgentSnmp::publisherGone:
      logError("{} of the store {} has ended; what it wrote is served as it was. Start quorin-mirrord again", who,
               directory);
      break;
    case AgentSnmp::publisherSilent:
      logError(
          "{} of the store {} has not reported for {} s: it hangs or is stopped; what it wrote is served as it "
          "was. "
          "Restart quorin-mirrord",
          who, directory, static_cast<unsigned>(longestSilence));
      break;
    default:
      if (before != AgentSnmp::publisherNone) logInfo("{} of the store {} is back", who, directory);
      break;
  }
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
    mib_->storeBytesIs(sources_.mount->usedBytes());
    if (const auto pass = snapshot->completePass()) mib_->lastPassIs(pass->time);
  } catch (const Pesk::CorruptionDetectedException& damage) {
    sources_.mount->corruptionDetected(damage);
  } catch (const Quillo::StoreException&) {
    return;  // the follower reports why, and the figures stay
  }
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
  const bool isAway = mib_->publisherState() != AgentSnmp::publisherAlive;
  const auto age = noticed_ ? Kel::System::currentTime() - *noticed_ : 0;
  const bool isStale = staleAfter != 0 && isAway && age > staleAfter;
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
