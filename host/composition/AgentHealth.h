#pragma once
// Watches the publisher and the store, and keeps the agent's own state (agentstate/AgentMib.h) current: once a second,
// and at once when the state database becomes ready or quorinctl asks.
//
// - Announces in the log and by notifications what changes (AgentNotifications.h).
// - Decides whether what a publisher wrote is answered (snmp/Facts.h): after the first complete pass, until no
//   publisher that has completed its own pass has reported for longer than quorinStaleAfter.

#include <optional>

#include "agentstate/AgentMib.h"
#include "brev/TimerTask.h"
#include "host/composition/AgentNotifications.h"
#include "host/composition/VrfContexts.h"
#include "quillo/Mount.h"
#include "varnix/AgentStatus.h"
#include "varnix/Vrf.h"

namespace Host {

class Turns;

class AgentHealth {
 public:
  // What it reads. Lifetime: the references outlive this object.
  struct Sources {
    Kel::Ptr<Quillo::Mount> mount;
    Kel::Ptr<const Ip::AllVrfStatusLocal> publishedVrfs;
    const VrfContexts& contexts;
    const Turns& turns;
  };

  // Sets `status` ready when told so, and writes `mib`.
  AgentHealth(const Kel::Ptr<Brev::TaskScheduler>& scheduler, Sources sources, Kel::Ptr<Snmp::AgentStatus> status,
              Kel::Ptr<AgentSnmp::AgentMib> mib);
  // Facts are served again, as before.
  ~AgentHealth();
  AgentHealth(const AgentHealth&) = delete;
  AgentHealth& operator=(const AgentHealth&) = delete;

  // Whether the state database holds a complete pass of a publisher.
  void readyIs(bool isReady);
  // Brings the agent's state up to date.
  void look();

 private:
  void lookAtStore();
  void lookAtPublisher();
  void lookAtVrfs();
  void decide();
  AgentSnmp::PublisherState stateOf(const Quillo::PublisherInfo& publisher, bool hasPublished) const;

  const Sources sources_;
  const Kel::Ptr<Snmp::AgentStatus> status_;
  const Kel::Ptr<AgentSnmp::AgentMib> mib_;
  AgentNotifications notifications_;
  // By our clock: when a publisher last reported, and when one did that had completed its own pass. None yet: no
  // publisher was seen.
  std::optional<Kel::Seconds> reported_, vouched_;
  Kel::Ptr<Brev::TimerTask> timer_;
};

}  // namespace Host
