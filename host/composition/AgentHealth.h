#pragma once
// Watches the publisher and the store, and keeps the agent's own state (agentstate/AgentMib.h) current: once a second,
// and at once when the state database becomes ready.
//
// - Logs one line when the publisher goes, hangs, or is back.
// - Decides whether what a publisher wrote is answered (snmp/Facts.h): after the first complete pass, until a publisher
//   that has gone or hangs has been away for longer than quorinStaleAfter.

#include "agentstate/AgentMib.h"
#include "brev/TimerTask.h"
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
  void lookAtPublisher();
  void lookAtStore();
  void lookAtVrfs();
  void decide();
  AgentSnmp::PublisherState stateOf(const Quillo::PublisherInfo& publisher, Kel::Seconds silence) const;
  void report(AgentSnmp::PublisherState before, AgentSnmp::PublisherState now) const;

  const Sources sources_;
  const Kel::Ptr<Snmp::AgentStatus> status_;
  const Kel::Ptr<AgentSnmp::AgentMib> mib_;
  Kel::String lastPublisher_;            // its text, also after its end
  Kel::Seconds lastSeen_ = 0;            // as the publisher wrote it, by the system's clock
  std::optional<Kel::Seconds> noticed_;  // when lastSeen_ last changed, by our clock
  Kel::Ptr<Brev::TimerTask> timer_;
};

}  // namespace Host
