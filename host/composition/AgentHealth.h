#pragma once
// Watches the publisher and the store, and keeps the agent's own state (agentstate/AgentMib.h) current: once a second,
// and at once when the state database becomes ready or quorinctl asks for the state.
//
// - Announces changes in the log and by notifications (AgentNotifications.h).
// - Decides whether published objects are answered (snmp/Facts.h): from the first complete pass on, except while the
//   state is stale. It is stale while the latest report of a publisher that had completed its own pass is older than
//   quorinStaleAfter (0: never stale). At the agent's start the latest report of any publisher counts.

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
  // What AgentHealth reads. Lifetime: the references outlive it.
  struct Sources {
    Kel::Ptr<Quillo::Mount> mount;
    Kel::Ptr<const Ip::AllVrfStatusLocal> publishedVrfs;
    const VrfContexts& contexts;
    const Turns& turns;
  };

  // Keeps `mib` current; readyIs() sets `status`. Calls look() once.
  AgentHealth(const Kel::Ptr<Brev::TaskScheduler>& scheduler, Sources sources, Kel::Ptr<Snmp::AgentStatus> status,
              Kel::Ptr<AgentSnmp::AgentMib> mib);
  // Stops the timer, and sets Snmp::areFactsServed() to true, its initial value.
  ~AgentHealth();
  AgentHealth(const AgentHealth&) = delete;
  AgentHealth& operator=(const AgentHealth&) = delete;

  // Sets whether the state database holds a complete pass of a publisher, and calls look().
  void readyIs(bool isReady);
  // Reads the sources, writes `mib`, decides what is answered, and announces changes.
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
  // Times by our clock: the latest report of any publisher, and of one that had completed its own pass. None: no such
  // report was seen.
  std::optional<Kel::Seconds> reported_, vouched_;
  Kel::Ptr<Brev::TimerTask> timer_;
};

}  // namespace Host
