#pragma once
// Discovers the VRFs and gives each one other than the default its caches and state machines.
//
// A VRF is created once the agent is ready and the VRF has a routing information entity (IPv4), a routing
// configuration and an id. The order of their arrival does not matter (docs/decisions/0018). When the agent becomes
// ready, a task that yields creates the VRFs that are complete; later, the event that completes a VRF creates it at
// once.
//
// A VRF is removed when its local status record is deleted. Without such a record it is removed when one of the other
// conditions no longer holds.
//
// A VRF whose tables cannot be read is removed again. The task retries it when the neighbour table becomes readable or
// is replaced.
//
// The machine also keeps the VRF table, whether the agent is ready or not: a row for each VRF with a local status
// record. It watches the shared neighbour table and the directory of interfaces once for all VRFs. It passes a changed
// neighbour to the neighbour machine of the VRF with the entry's id, and a changed interface to all neighbour machines.
//
// The default VRF belongs to Root. Its neighbours' id is the one published for "default", or 0.
//
// Requires: no reactor removes a VRF while it is being created.
// Lifetime: stopping or destroying the machine removes every VRF.

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <optional>
#include <set>
#include <tuple>
#include <vector>

#include "brev/TimerTask.h"
#include "ipsnmp/agent/address/IpAddressTableSm.h"
#include "ipsnmp/agent/vrf/VrfRoot.h"
#include "quillo/tables/Fec.h"
#include "snmp/IfMib.h"
#include "varnix/AgentStatus.h"
#include "varnix/EntityManager.h"
#include "varnix/Routing.h"
#include "varnix/Vrf.h"

namespace IpSnmp {

class VrfRootSm;

// Watches the local status record of one VRF.
class KelVrfStatusLocal : public Ip::VrfStatusLocal::Notifiee {
 public:
  KelVrfStatusLocal(VrfRootSm* owner, Kel::Ptr<const Ip::VrfStatusLocal> record)
      : owner_(owner), record_(std::move(record)) {}
  static const L3::VrfName& kelKeyOf(const VrfRootSm*, const Kel::Ptr<const Ip::VrfStatusLocal>& record) {
    return record->vrfName();
  }

  // The collection calls these when it adds and removes the reactor.
  void kelStart();
  void kelStop();

  void handleState() override { handleVrfState(); }
  void handleVrfState();
  void handleHasNamespace() override;
  void handleDel() override;

 private:
  VrfRootSm* const owner_;
  const Kel::Ptr<const Ip::VrfStatusLocal> record_;
};

class VrfRootSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::VrfRootSm", VrfRootSm, Kel::Entity)
 public:
  using KelVrfStatusLocal = IpSnmp::KelVrfStatusLocal;
  using VrfId = Vrf::VrfIdMap::VrfId;

  // Requires: handles are not null, with these exceptions. The entity manager is needed only for the default VRF's
  // routing status and to mount route tables. The default VRF's route table machine and its FECs are needed only if
  // fecMode is 2 (unified). If `routeTablesEnabled` is false, no tables are mounted, and their machines are not
  // created.
  // clang-format off
  KEL_CONSTRUCTOR(VrfRootSm,
    ((Quillo::Fib::FecMode, fecMode))
    ((Kel::Ptr<Brev::TaskScheduler>, scheduler))
    ((Kel::Ptr<IpAddressTableSm>, ipAddressTableSm))
    ((Kel::Ptr<const Interface::AllIntfStatusDir>, intfStatusDir))
    ((Kel::Ptr<const Routing::VrfConfigDir>, routingVrfConfigDir))
    ((Kel::Ptr<const Routing6::VrfConfigDir>, routing6VrfConfigDir))
    ((Kel::Ptr<const Kel::Dir>, routingVrfInfoDir))
    ((Kel::Ptr<const Kel::Dir>, routing6VrfInfoDir))
    ((Kel::Ptr<VrfMibsDir>, vrfMibsDir))
    ((Kel::Ptr<VrfRootDir>, vrfRootDir))
    ((Kel::Ptr<const Ip::AllVrfStatusLocal>, allVrfStatusLocal))
    ((Kel::Ptr<const Ip::AllVrfStatusGlobal>, allVrfStatusGlobal))
    ((Kel::Ptr<const Ip::AllVrfConfig>, allVrfConfig))
    ((Kel::Ptr<const Snmp::Status>, snmpStatus))
    ((Kel::Ptr<IpVrfMib>, ipVrfMib))
    ((Kel::Ptr<const Varnix::EntityManager>, entityManager))
    ((Kel::Ptr<const Arp::Table::Status>, arpQuillo))
    ((Kel::Ptr<ArpTableSm>, defaultVrfArpTableSm))
    ((Kel::Ptr<IpRouteTableSm>, defaultVrfIpRouteTableSm))
    ((Kel::Ptr<const Vrf::VrfIdMap::Status>, vrfIdStatus))
    ((Kel::Ptr<const Vrf::VrfIdMap::NameToIdMapWrapper>, vrfNameStatus))
    ((Kel::Ptr<const IntfSnmp::IfMib>, ifMib))
    ((Kel::Ptr<const IpForwardFecs>, allForwardingFecs))
    ((bool, routeTablesEnabled)))
  // clang-format on

  // The VRFs that were created. They belong to `vrfRootDir`.
  KEL_MEMBERS_READ(Hashed, Kel::Name, VrfRoot, vrfRoot, VrfRoot)
  KEL_STORED(Vrf::VrfIdMap::VrfId, defaultVrfId, DefaultVrfId)
  // The published ids by name; null until the agent is ready.
  KEL_CHILD(Vrf::VrfIdMap::NameToIdMap, nameToIdMap, NameToIdMap)
  // The forwarding status that all VRFs share if fecMode is 2 (unified); else, and until the agent is ready, null.
  KEL_REFERENCE(const Quillo::Fib::ForwardingStatus, unifiedForwardingStatus, UnifiedForwardingStatus)
  // The id that keys a VRF's entries in the shared neighbour table, and its inverse. Each id has one VRF (IdClaims).
  KEL_VALUES(Ordered, L3::VrfName, Vrf::VrfIdMap::VrfId, arpQuilloVrfNameToIdMap, ArpQuilloVrfNameToIdMap)
  KEL_VALUES(Hashed, Vrf::VrfIdMap::VrfId, L3::VrfName, arpQuilloVrfIdReverseMapper, ArpQuilloVrfIdReverseMapper)
  void doProcessVrfBacklog();
  using KelTask = Brev::OwnedTask<Brev::Task, VrfRootSm, &VrfRootSm::doProcessVrfBacklog>;
  // Processes the backlog; null until the agent is ready.
  KEL_OWNED(KelTask, task, Task)
  // The VRFs that the task has to examine (the value is always true), and the name from which its next run continues.
  KEL_VALUES(Ordered, L3::VrfName, bool, vrfBacklog, VrfBacklog)
  KEL_STORED(L3::VrfName, vrfBookmark, VrfBookmark)
  KEL_STORED(double, vrfBacklogQuantum, VrfBacklogQuantum, 0.01)  // seconds of one run; above 0
  KEL_MEMBERS(Hashed, L3::VrfName, KelVrfStatusLocal, vrfStatusLocal, VrfStatusLocal)
  KEL_STORED(bool, initialized, Initialized, false)
  KEL_REFERENCE(const Snmp::AgentStatus, snmpAgentStatus, SnmpAgentStatus)  // as the SNMP status has it
  // The VRFs whose SNMP contexts can be served (always true): added as the last step of a VRF's creation, deleted as
  // the first step of its removal.
  KEL_VALUES(Hashed, L3::VrfName, bool, servedVrf, ServedVrf)
  KEL_TYPE_END_DECLARE

 public:
  ~VrfRootSm() override;
  void kelStart() override;
  void kelStop() override;

  // Starts the creation of VRFs when the agent is ready for the first time; otherwise a no-op.
  void handleInitialized(bool isReady);
  // Adds every VRF with a local status record or a routing configuration to the backlog.
  void handleVrfCreation();
  // Creates the VRF if its conditions hold and it does not exist yet.
  void handleVrfCreation(const Kel::Name& vrfName);
  // Sets whether the VRF has a network namespace of its own in its software-forwarding statistics.
  void refreshSwFwdStats(const L3::VrfName& vrfName);
  // Call it when the VRF's local status record was deleted.
  void handleVrfStatusDel(const L3::VrfName& vrfName);

  // Updates the VRF's row from its records. No-op without a local status record.
  void addToVrfTable(const Kel::Name& vrfName);
  void delFromVrfTable(const Kel::Name& vrfName);

  // Call them when the neighbour's entry was created, deleted or changed: IPv4, IPv6.
  void handleArpEntry(const Arp::Table::ArpKey& key);
  void handleNeighborEntry(const Arp::Table::ArpKey& key);
  // Call it when the published id of this VRF may have changed; without a name: when any may have.
  void handleNameToIdMap();
  void handleNameToIdMap(const L3::VrfName& vrfName);
  void handleVrfNameToIdChange(const L3::VrfName& vrfName);
  // Passes the VRF's current id to its neighbour machine.
  void handleArpQuilloVrfName(const L3::VrfName& vrfName);
  // Call it when the interface's status record was created or deleted; without an id: when any may have been.
  void handleIntfStatus(const Vantu::IntfId& intfId);
  void handleIntfStatus();

 private:
  struct KelArpQuillo;
  struct KelNameToIdMap;
  struct KelRoutingVrfConfigDir;
  struct KelRouting6VrfConfigDir;
  struct KelRoutingVrfInfoDir;
  struct KelRouting6VrfInfoDir;
  struct KelVrfNameStatus;
  struct KelAllVrfStatusLocal;
  struct KelAllVrfStatusGlobal;
  struct KelAllVrfConfig;
  struct KelSnmpStatus;
  struct KelSnmpAgentStatus;

  // Decides which VRF owns the neighbour table's entries of an id. Each VRF is published under at most one id. A
  // publisher may briefly publish two VRFs under one id; the default VRF then gets it, else the lowest name.
  class IdClaims {
   public:
    // An unknown id means that the VRF has none. Returns the ids whose owner may have changed.
    std::vector<VrfId> setClaim(const L3::VrfName& vrfName, VrfId id);
    std::optional<L3::VrfName> holder(VrfId id) const;

   private:
    absl::btree_map<L3::VrfName, VrfId> idByName_;
    absl::btree_set<std::tuple<VrfId, bool, L3::VrfName>> claims_;
  };

  // Creates a reactor from `argument` that watches `watched` until the machine stops.
  template <class Reactor, class Watched, class Argument>
  void watch(const Kel::Ptr<Watched>& watched, Argument argument) {
    const auto reactor = Kel::makePtr<Reactor>(std::move(argument));
    reactor->notifierIs(watched);
    reactors_.push_back(reactor);
  }

  // Whether a VRF can have the name; directories accept any.
  static bool isVrfName(const Kel::Name& name);
  void handleSnmpStatus();
  void onVrfConfig(const Kel::Name& vrfName);
  void onVrf6Config(const Kel::Name& vrfName);
  void onEntityPtr(const Kel::Name& vrfName);
  bool hasConditions(const L3::VrfName& vrfName) const;
  void createVrf(const L3::VrfName& vrfName);
  // Adds the VRFs that could not be created to the backlog again.
  void retryVrfs();
  // Schedules the task if there is work.
  void scheduleVrfBacklog();
  // Destroys the VRF, and removes its rows from the VRF tables.
  void removeVrf(const L3::VrfName& vrfName);
  // Removes the VRF's caches and machines.
  void destroyVrf(const L3::VrfName& vrfName);
  void removeUnlessComplete(const L3::VrfName& vrfName);
  // No tables without an entity manager. In unified mode no forwarding table is mounted.
  VrfTables mountTables(const L3::VrfName& vrfName) const;
  void makeRouteSms(VrfRoot& root, const VrfTables& tables);
  void makeFibStatsSms(VrfRoot& root, const VrfTables& tables);
  // Passes the VRF's configuration and id to its FIB statistics machines.
  void refreshFibStats(const Kel::Name& vrfName);
  void delVrfIfRows(const Kel::Name& vrfName);
  VrfId publishedId(const L3::VrfName& vrfName) const;
  VrfId arpQuilloVrfIdOf(const L3::VrfName& vrfName) const;
  Kel::Ptr<ArpTableSm> arpTableSmOf(const L3::VrfName& vrfName);
  // Null without a VRF of that id; otherwise sets `vrfName`.
  Kel::Ptr<ArpTableSm> arpTableSmOf(VrfId id, L3::VrfName& vrfName);
  void handleNeighbour(const Arp::Table::ArpKey& key);
  // The neighbour machines of every VRF, the default one first.
  std::vector<Kel::Ptr<ArpTableSm>> arpTableSms();

  std::vector<Kel::Ptr<Kel::NotifieeBase>> reactors_;  // empty: stopped
  Kel::Ptr<Kel::NotifieeBase> kelSnmpAgentStatus_;
  std::set<L3::VrfName> failedVrfs_;  // could not be created although their conditions held
  IdClaims idClaims_;
};

}  // namespace IpSnmp
