#pragma once
// Announces changes of the agent's state by the notifications of QUORIN-AGENT-MIB to net-snmp's receivers (trap2sink,
// informsink, trapsess; a subagent's go to its master). Changes of the publisher are also logged; a publisher that is
// replaced without being lost is only logged.
//
// - The publisher is lost (it has ended, or hangs) or back (it has completed its pass): at most one announcement in ten
//   seconds. A state that ends before the next announcement is due is not announced.
// - Damage was met: at most once a minute.
// - VRFs that were added or removed since the first complete pass: at most ten in a second, the others later. A VRF
//   that was added and removed in between is not announced.
//
// Notifications begin five seconds after the start, so that a subagent has found its master. A publisher that is lost
// at the start is announced too.

#include <set>

#include "agentstate/AgentMib.h"

namespace Host {

class AgentNotifications {
 public:
  // Requires: net-snmp's agent exists while announce() is called.
  AgentNotifications(Kel::Ptr<const AgentSnmp::AgentMib> mib, std::string storeDirectory);

  // Announces how the state differs from what was announced before. Call it once a second.
  void announce();

 private:
  void announcePublisher(Kel::Seconds now);
  void logPublisher(bool isLost) const;
  void announceDamage(Kel::Seconds now);
  void announceVrfs(Kel::Seconds now);

  const Kel::Ptr<const AgentSnmp::AgentMib> mib_;
  const std::string storeDirectory_;
  Kel::Seconds begins_;
  bool isLost_ = false;
  std::uint32_t pid_ = 0;
  Kel::Seconds nextPublisher_ = 0;
  std::uint64_t damage_ = 0;
  Kel::Seconds nextDamage_ = 0;
  bool areVrfsKnown_ = false;
  std::set<Snmp::String> vrfs_;
  Kel::Seconds nextVrfs_ = 0;
};

}  // namespace Host
