#pragma once
// The agent's own state, as QUORIN-AGENT-MIB shows it: of the publisher, of the store, of the VRFs and of the agent.
// The host writes it once a second (host/composition/AgentHealth.h).
//
// Times are seconds since 1970 (UTC) by the system's clock; 0 means unknown.

#include "kel/Attribute.h"
#include "kel/Entity.h"
#include "kel/System.h"
#include "snmp/String.h"

namespace AgentSnmp {

enum PublisherState : int {
  publisherNone = 1,     // none runs, and the store's directory shows no trace of an earlier one
  publisherAlive = 2,    // it runs and reports once a second
  publisherSilent = 3,   // it runs, but has not reported for a while: it hangs or is stopped
  publisherGone = 4,     // it has ended
  publisherStarting = 5  // it runs and reports, but has not published everything yet
};
BOOST_DESCRIBE_ENUM(PublisherState, publisherNone, publisherAlive, publisherSilent, publisherGone,
                    publisherStarting)

inline std::ostream& operator<<(std::ostream& out, PublisherState state) {
  return out << Kel::enumName(state);
}

enum VrfReadiness : int {
  vrfReady = 1,     // its context is served
  vrfWaiting = 2,   // some of its state is not published yet
  vrfNoContext = 3  // its name cannot be that of a context
};
BOOST_DESCRIBE_ENUM(VrfReadiness, vrfReady, vrfWaiting, vrfNoContext)

inline std::ostream& operator<<(std::ostream& out, VrfReadiness readiness) {
  return out << Kel::enumName(readiness);
}

// A VRF that is published, the default one included.
class VrfEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("AgentSnmp::VrfEntry", VrfEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(VrfEntry, ((Snmp::String, vrfName)))
  KEL_STORED(AgentSnmp::VrfReadiness, readiness, Readiness, vrfWaiting)
  KEL_TYPE_END_DECLARE
};

class AgentMib : public Kel::Entity {
  KEL_TYPE_BEGIN("AgentSnmp::AgentMib", AgentMib, Kel::Entity)
 public:
  KEL_NAMED(AgentMib, Kel::Entity)

  KEL_STORED(AgentSnmp::PublisherState, publisherState, PublisherState, publisherNone)
  KEL_STORED(Kel::String, publisherName, PublisherName, )   // of the latest one
  KEL_STORED(std::uint32_t, publisherPid, PublisherPid, 0)  // 0 if none runs
  KEL_STORED(Kel::Seconds, publisherStarted, PublisherStarted, 0)
  KEL_STORED(Kel::Seconds, publisherLastSeen, PublisherLastSeen, 0)
  KEL_STORED(Kel::Seconds, lastCommit, LastCommit, 0)
  KEL_STORED(Kel::Seconds, lastPass, LastPass, 0)  // when a publisher last completed one

  // Whether the objects that a publisher feeds are answered: there was a complete pass, and the state is not stale.
  KEL_STORED(bool, isServing, IsServing, false)
  KEL_STORED(bool, isStale, IsStale, false)  // older than quorinStaleAfter

  KEL_STORED(std::uint64_t, storeBytes, StoreBytes, 0)
  KEL_STORED(std::uint64_t, damageCount, DamageCount, 0)  // damage that the agent met since it started
  KEL_STORED(std::uint64_t, routes, Routes, 0)            // IPv4, of all VRFs, in the store
  KEL_STORED(std::uint64_t, routes6, Routes6, 0)
  KEL_STORED(std::uint64_t, neighbours, Neighbours, 0)  // IPv4, of all VRFs, in the store
  KEL_STORED(std::uint64_t, neighbours6, Neighbours6, 0)
  KEL_STORED(std::uint32_t, contexts, Contexts, 0)
  KEL_STORED(std::uint64_t, requests, Requests, 0)       // messages that asked for objects of this library
  KEL_STORED(Kel::Seconds, longestTurn, LongestTurn, 0)  // of the event loop
  KEL_MEMBERS(Ordered, Snmp::String, VrfEntry, vrfTable, VrfTable)
  KEL_TYPE_END_DECLARE
};

}  // namespace AgentSnmp
