#pragma once
// Discovers the VRFs and gives each one other than the default its caches and state machines.
//
// A VRF is made when the agent is ready and the VRF has a routing information entity (IPv4), a routing configuration and
// an id. It is unmade when its local status record is deleted. The VRFs that are known when the agent becomes ready are
// made by a task that yields; later, each event that may complete a VRF examines that VRF at once. The order of arrival
// does not matter (docs/decisions/0018): the routing configuration may be the last. A VRF without a local status record
// is unmade when one of the other conditions no longer holds.
//
// A VRF that cannot be made because a table cannot be read is unmade again, and the task examines it again when the
// neighbour table becomes readable or is replaced.
//
// The machine also keeps the VRF table: a row for each VRF with a local status record, whether the agent is ready or
// not. It watches the shared neighbour table and the directory of interfaces once for all VRFs: a changed neighbour
// goes to the neighbour machine of the VRF whose id the entry has, a changed interface to all of them.
//
// The default VRF belongs to Root and is never made here. Its neighbours' id is the one published for "default", or 0.
//
// Requires: no reactor unmakes a VRF while it is being made.
// Lifetime: stopping or destroying the machine unmakes every VRF.

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

  // The collection calls these when the reactor enters and leaves it.
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

  // Requires: handles are not null, with these exceptions. The entity manager is needed for the default VRF's routing
  // status and to mount the tables of routes; the default VRF's route table machine and its FECs when fecMode is 2
  // (unified). Without `routeTablesEnabled` no tables are mounted, and no machines made that read them.
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

  // The VRFs that are made. They belong to `vrfRootDir`.
  KEL_MEMBERS_READ(Hashed, Kel::Name, VrfRoot, vrfRoot, VrfRoot)
  KEL_STORED(Vrf::VrfIdMap::VrfId, defaultVrfId, DefaultVrfId)
  // The published ids by name, from when the agent is ready.
  KEL_CHILD(Vrf::VrfIdMap::NameToIdMap, nameToIdMap, NameToIdMap)
  // The forwarding status that all VRFs share when fecMode is 2 (unified), from when the agent is ready; else null.
  KEL_REFERENCE(const Quillo::Fib::ForwardingStatus, unifiedForwardingStatus, UnifiedForwardingStatus)
  // Under which id the shared neighbour table keys a VRF's entries, and back. An id is one VRF's (IdClaims).
  KEL_VALUES(Ordered, L3::VrfName, Vrf::VrfIdMap::VrfId, arpQuilloVrfNameToIdMap, ArpQuilloVrfNameToIdMap)
  KEL_VALUES(Hashed, Vrf::VrfIdMap::VrfId, L3::VrfName, arpQuilloVrfIdReverseMapper, ArpQuilloVrfIdReverseMapper)
  void doProcessVrfBacklog();
  using KelTask = Brev::OwnedTask<Brev::Task, VrfRootSm, &VrfRootSm::doProcessVrfBacklog>;
  // Works off the backlog; null until the agent is ready.
  KEL_OWNED(KelTask, task, Task)
  // VRFs that wait to be examined (always true), and the next one.
  KEL_VALUES(Ordered, L3::VrfName, bool, vrfBacklog, VrfBacklog)
  KEL_STORED(L3::VrfName, vrfBookmark, VrfBookmark)
  KEL_STORED(double, vrfBacklogQuantum, VrfBacklogQuantum, 0.01)  // seconds that a run may take; above 0
  KEL_MEMBERS(Hashed, L3::VrfName, KelVrfStatusLocal, vrfStatusLocal, VrfStatusLocal)
  KEL_STORED(bool, initialized, Initialized, false)
  KEL_REFERENCE(const Snmp::AgentStatus, snmpAgentStatus, SnmpAgentStatus)  // as the SNMP status has it
  // The VRFs whose SNMP contexts can be served (always true): set as the last step of making a VRF, deleted before
  // anything of it is unmade.
  KEL_VALUES(Hashed, L3::VrfName, bool, servedVrf, ServedVrf)
  KEL_TYPE_END_DECLARE

 public:
  ~VrfRootSm() override;
  void kelStart() override;
  void kelStop() override;

  // Starts when the agent is ready for the first time. Otherwise a no-op.
  void handleInitialized(bool isReady);
  // Enters every VRF with a local status record or a routing configuration in the backlog.
  void handleVrfCreation();
  // Makes the VRF if its conditions hold and it is not made yet.
  void handleVrfCreation(const Kel::Name& vrfName);
  // Sets whether the VRF has a network namespace of its own in its software-forwarding statistics.
  void refreshSwFwdStats(const L3::VrfName& vrfName);
  // The local status record of the VRF was deleted.
  void handleVrfStatusDel(const L3::VrfName& vrfName);

  // Makes the VRF's row equal to its records. No-op without a local status record.
  void addToVrfTable(const Kel::Name& vrfName);
  void delFromVrfTable(const Kel::Name& vrfName);

  void handleArpEntry(const Arp::Table::ArpKey& key);
  void handleNeighborEntry(const Arp::Table::ArpKey& key);
  // The published id of this VRF may have changed; without a name: any may have.
  void handleNameToIdMap();
  void handleNameToIdMap(const L3::VrfName& vrfName);
  void handleVrfNameToIdChange(const L3::VrfName& vrfName);
  // Gives the VRF's neighbour machine the id that its entries have now.
  void handleArpQuilloVrfName(const L3::VrfName& vrfName);
  // The interface's status record was created or deleted; without an id: any may have been.
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

  // The VRF to which the neighbour table's entries of an id belong. Each VRF is published under at most one id. A
  // publisher may have two VRFs under one id for a moment; the id is then the default VRF's if that claims it, else that
  // of the lowest name.
  class IdClaims {
   public:
    // Not known: the VRF has no id. Returns the ids whose holder may have changed.
    std::vector<VrfId> claimIs(const L3::VrfName& vrfName, VrfId id);
    std::optional<L3::VrfName> holder(VrfId id) const;

   private:
    absl::btree_map<L3::VrfName, VrfId> idByName_;
    absl::btree_set<std::tuple<VrfId, bool, L3::VrfName>> claims_;
  };

  // Makes a reactor of `argument` that watches `watched` until the machine stops.
  template <class Reactor, class Watched, class Argument>
  void watch(const Kel::Ptr<Watched>& watched, Argument argument) {
    const auto reactor = Kel::makePtr<Reactor>(std::move(argument));
    reactor->notifierIs(watched);
    reactors_.push_back(reactor);
  }

  // Directories take any name, also one that no VRF can have.
  static bool isVrfName(const Kel::Name& name);
  void handleSnmpStatus();
  void onVrfConfig(const Kel::Name& vrfName);
  void onVrf6Config(const Kel::Name& vrfName);
  void onEntityPtr(const Kel::Name& vrfName);
  bool hasConditions(const L3::VrfName& vrfName) const;
  void createVrf(const L3::VrfName& vrfName);
  // Enters the VRFs that could not be made in the backlog again.
  void retryVrfs();
  // Schedules the task if there is work.
  void scheduleVrfBacklog();
  // Unmakes the VRF and removes its rows from the VRF tables.
  void removeVrf(const L3::VrfName& vrfName);
  // Removes the VRF's caches and machines.
  void unmakeVrf(const L3::VrfName& vrfName);
  void removeUnlessComplete(const L3::VrfName& vrfName);
  // No tables without an entity manager. In unified mode no forwarding table is mounted.
  VrfTables mountTables(const L3::VrfName& vrfName) const;
  void makeRouteSms(VrfRoot& root, const VrfTables& tables);
  void makeFibStatsSms(VrfRoot& root, const VrfTables& tables);
  // Gives the FIB statistics machines the VRF's present configuration and id.
  void refreshFibStats(const Kel::Name& vrfName);
  void delVrfIfRows(const Kel::Name& vrfName);
  VrfId publishedId(const L3::VrfName& vrfName) const;
  VrfId arpQuilloVrfIdOf(const L3::VrfName& vrfName) const;
  Kel::Ptr<ArpTableSm> arpTableSmOf(const L3::VrfName& vrfName);
  // Null when no VRF has the id; `vrfName` is set otherwise.
  Kel::Ptr<ArpTableSm> arpTableSmOf(VrfId id, L3::VrfName& vrfName);
  void handleNeighbour(const Arp::Table::ArpKey& key);
  // Those of every VRF, the default one first.
  std::vector<Kel::Ptr<ArpTableSm>> arpTableSms();

  std::vector<Kel::Ptr<Kel::NotifieeBase>> reactors_;  // none: stopped
  Kel::Ptr<Kel::NotifieeBase> kelSnmpAgentStatus_;
  std::set<L3::VrfName> failedVrfs_;  // the conditions held, but the VRF could not be made
  IdClaims idClaims_;
};

}  // namespace IpSnmp
