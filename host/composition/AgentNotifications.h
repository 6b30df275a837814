#pragma once
// Sends the notifications of QUORIN-AGENT-MIB to net-snmp's receivers (trap2sink, informsink, trapsess; a subagent's
// go to its master): publisher lost and back, damage met, a VRF came or went.
//
// VRFs that exist when the first complete pass is in do not count as new. Damage is notified at most once a minute.

#include "agentstate/AgentMib.h"

namespace Host {

class AgentNotifications : public AgentSnmp::AgentMib::Notifiee {
 public:
  // Requires: net-snmp's agent exists while a notification may be sent.
  explicit AgentNotifications(const Kel::Ptr<AgentSnmp::AgentMib>& mib);

  void handlePublisherState() override;
  void handleDamageCount() override;
  void handleVrfTable(const Snmp::String& vrf) override;

 private:
  AgentSnmp::PublisherState before_;
  Kel::Seconds nextDamage_ = 0;
};

}  // namespace Host
