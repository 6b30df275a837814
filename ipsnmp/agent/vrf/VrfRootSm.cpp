#include "ipsnmp/agent/vrf/VrfRootSm.h"

#include <utility>

#include "kel/Trace.h"

KEL_TYPE_DEFINE(IpSnmp::VrfRootSm)

namespace IpSnmp {
namespace {

Kel::TraceHandle vrfRootSmTrace("VrfRootSm");

constexpr int taskPriority = 2;

}  // namespace

// ---- reactors ----

struct VrfRootSm::KelArpQuillo : OwnedReactor<VrfRootSm, Arp::Table::Status> {
  using OwnedReactor::OwnedReactor;
  void handleInitialized() override {
    const Kel::Ptr<VrfRootSm> keep(owner_);
    for (const auto& sm : owner_->arpTableSms()) sm->handleInitialized();
    owner_->retryVrfs();
  }
  void handleTable() override {
    const Kel::Ptr<VrfRootSm> keep(owner_);
    for (const auto& sm : owner_->arpTableSms()) sm->handleTable();
    owner_->retryVrfs();
  }
  void onArpEntry(const Arp::Table::ArpKey& key) override { owner_->handleArpEntry(key); }
  void onNeighborEntry(const Arp::Table::ArpKey& key) override { owner_->handleNeighborEntry(key); }
};

struct VrfRootSm::KelNameToIdMap : OwnedReactor<VrfRootSm, Vrf::VrfIdMap::NameToIdMap> {
  using OwnedReactor::OwnedReactor;
  void handleVrfId(const L3::VrfName& vrfName) override { owner_->handleNameToIdMap(vrfName); }
};

struct VrfRootSm::KelRoutingVrfConfigDir : OwnedReactor<VrfRootSm, Routing::VrfConfigDir> {
  using OwnedReactor::OwnedReactor;
  void handleVrfConfig(const Kel::Name& vrfName) override { owner_->onVrfConfig(vrfName); }
};

struct VrfRootSm::KelRouting6VrfConfigDir : OwnedReactor<VrfRootSm, Routing6::VrfConfigDir> {
  using OwnedReactor::OwnedReactor;
  void handleVrfConfig(const Kel::Name& vrfName) override { owner_->onVrf6Config(vrfName); }
};

struct VrfRootSm::KelRoutingVrfInfoDir : OwnedReactor<VrfRootSm, Kel::Dir> {
  using OwnedReactor::OwnedReactor;
  void handleEntityPtr(const Kel::Name& vrfName) override { owner_->onEntityPtr(vrfName); }
};

struct VrfRootSm::KelRouting6VrfInfoDir : OwnedReactor<VrfRootSm, Kel::Dir> {
  using OwnedReactor::OwnedReactor;
  void handleEntityPtr(const Kel::Name& vrfName) override {
    if (notifier()->entityPtrHas(vrfName)) owner_->handleVrfCreation(vrfName);
  }
};

struct VrfRootSm::KelVrfNameStatus : OwnedReactor<VrfRootSm, Vrf::VrfIdMap::NameToIdMapWrapper> {
  using OwnedReactor::OwnedReactor;
  void handleVrfId(const L3::VrfName& vrfName) override { owner_->handleVrfNameToIdChange(vrfName); }
};

struct VrfRootSm::KelAllVrfStatusLocal : OwnedReactor<VrfRootSm, Ip::AllVrfStatusLocal> {
  using OwnedReactor::OwnedReactor;
  // A record may be deleted and created again before the change is notified, so its reactor is always created again.
  void handleVrf(const L3::VrfName& vrfName) override {
    const Kel::Ptr<VrfRootSm> keep(owner_);
    owner_->vrfStatusLocalDel(vrfName);
    if (const auto record = notifier()->vrf(vrfName)) owner_->vrfStatusLocalIs(owner_, record);
  }
};

struct VrfRootSm::KelAllVrfStatusGlobal : OwnedReactor<VrfRootSm, Ip::AllVrfStatusGlobal> {
  using OwnedReactor::OwnedReactor;
  void handleVrf(const L3::VrfName& vrfName) override { owner_->addToVrfTable(vrfName.stringValue()); }
};

struct VrfRootSm::KelAllVrfConfig : OwnedReactor<VrfRootSm, Ip::AllVrfConfig> {
  using OwnedReactor::OwnedReactor;
  void handleVrfConfig(const L3::VrfName& vrfName) override { owner_->addToVrfTable(vrfName.stringValue()); }
};

struct VrfRootSm::KelSnmpStatus : OwnedReactor<VrfRootSm, Snmp::Status> {
  using OwnedReactor::OwnedReactor;
  void handleAgentStatus() override { owner_->handleSnmpStatus(); }
};

struct VrfRootSm::KelSnmpAgentStatus : OwnedReactor<VrfRootSm, Snmp::AgentStatus> {
  using OwnedReactor::OwnedReactor;
  void handleAgentReady() override { owner_->handleInitialized(notifier()->agentReady()); }
};

void KelVrfStatusLocal::kelStart() {
  notifierIs(record_);
  handleHasNamespace();
  handleVrfState();
}

void KelVrfStatusLocal::kelStop() {
  notifierIs(nullptr);
}

void KelVrfStatusLocal::handleVrfState() {
  const Kel::Ptr<VrfRootSm> owner(owner_);
  const Kel::Name vrfName = record_->vrfName().stringValue();
  owner->addToVrfTable(vrfName);
  owner->handleVrfCreation(vrfName);
}

void KelVrfStatusLocal::handleHasNamespace() {
  owner_->refreshSwFwdStats(record_->vrfName());
}

void KelVrfStatusLocal::handleDel() {
  kelStop();
  owner_->handleVrfStatusDel(record_->vrfName());
}

// ---- start and stop ----

VrfRootSm::~VrfRootSm() {
  VrfRootSm::kelStop();
}

void VrfRootSm::kelStart() {
  watch<KelIntfStatusDir>(intfStatusDir(), [this](const Vantu::IntfId& intfId) { handleIntfStatus(intfId); });
  watch<KelArpQuillo>(arpQuillo(), this);
  watch<KelRoutingVrfConfigDir>(routingVrfConfigDir(), this);
  watch<KelRouting6VrfConfigDir>(routing6VrfConfigDir(), this);
  watch<KelRoutingVrfInfoDir>(routingVrfInfoDir(), this);
  watch<KelRouting6VrfInfoDir>(routing6VrfInfoDir(), this);
  watch<KelVrfNameStatus>(vrfNameStatus(), this);
  watch<KelAllVrfStatusLocal>(allVrfStatusLocal(), this);
  watch<KelAllVrfStatusGlobal>(allVrfStatusGlobal(), this);
  watch<KelAllVrfConfig>(allVrfConfig(), this);
  watch<KelSnmpStatus>(snmpStatus(), this);
  for (const auto& vrfName : allVrfStatusLocal()->vrf().keys()) {
    if (const auto record = allVrfStatusLocal()->vrf(vrfName)) vrfStatusLocalIs(this, record);
  }
  handleSnmpStatus();
}

void VrfRootSm::kelStop() {
  if (reactors_.empty()) return;
  reactors_.clear();
  kelSnmpAgentStatus_ = nullptr;
  snmpAgentStatusIs(nullptr);
  taskDel();
  failedVrfs_.clear();
  vrfStatusLocalDelAll();
  for (const auto& vrfName : vrfRoot().keys()) removeVrf(L3::VrfName(vrfName));
  ipVrfMib()->vrfTableDelAll();
  nameToIdMapDel();
  unifiedForwardingStatusIs(nullptr);
}

void VrfRootSm::handleSnmpStatus() {
  const Kel::Ptr<VrfRootSm> self(this);
  snmpAgentStatusIs(snmpStatus()->agentStatus());
  const auto reactor = Kel::makePtr<KelSnmpAgentStatus>(this);
  reactor->notifierIs(snmpAgentStatus());
  kelSnmpAgentStatus_ = reactor;
  if (snmpAgentStatus()) handleInitialized(snmpAgentStatus()->agentReady());
}

void VrfRootSm::handleInitialized(bool isReady) {
  QTRACE_ENTRY(vrfRootSmTrace, this);
  if (!isReady || initialized() || reactors_.empty()) return;
  const Kel::Ptr<VrfRootSm> self(this);
  nameToIdMapIs("nameToIdMap");
  if (defaultVrfIpRouteTableSm()) unifiedForwardingStatusIs(defaultVrfIpRouteTableSm()->unifiedForwardingStatus());
  taskIs(Kel::makePtr<KelTask>(this, scheduler(), "vrf creation/deletion", taskPriority));
  initializedIs(true);
  handleVrfCreation();
  // Watch before processing the ids, which may throw while the store cannot be read.
  if (const auto map = nameToIdMap()) {
    for (const auto& [vrfName, id] : vrfNameStatus()->vrfId()) map->vrfIdIs(vrfName, id);
    watch<KelNameToIdMap>(map, this);
  }
  handleNameToIdMap();
  handleIntfStatus();
}

// ---- making VRFs ----

bool VrfRootSm::isVrfName(const Kel::Name& name) {
  return !name.empty() && name.size() <= L3::VrfName::maxLength;
}

void VrfRootSm::handleVrfCreation() {
  QTRACE_ENTRY(vrfRootSmTrace, this);
  const Kel::Ptr<VrfRootSm> self(this);
  for (const auto& vrfName : allVrfStatusLocal()->vrf().keys()) {
    addToVrfTable(vrfName.stringValue());
    if (!vrfName.isDefault()) vrfBacklogIs(vrfName, true);
  }
  // A complete VRF needs no local status record, as with later events.
  for (const auto& name : routingVrfConfigDir()->vrfConfig().keys()) {
    if (isVrfName(name) && !L3::VrfName(name).isDefault()) vrfBacklogIs(L3::VrfName(name), true);
  }
  scheduleVrfBacklog();
}

void VrfRootSm::retryVrfs() {
  const Kel::Ptr<VrfRootSm> self(this);
  for (const auto& vrfName : std::exchange(failedVrfs_, {})) vrfBacklogIs(vrfName, true);
  scheduleVrfBacklog();
}

void VrfRootSm::scheduleVrfBacklog() {
  if (!task() || vrfBacklog().empty()) return;
  if (!task()->scheduled()) vrfBookmarkIs(vrfBacklog().begin()->first);
  task()->taskWorkPendingIs(vrfBacklog().size());
  task()->scheduleTask();
}

void VrfRootSm::doProcessVrfBacklog() {
  QTRACE_ENTRY(vrfRootSmTrace, this);
  QTRACE(vrfRootSmTrace, 2) << "Starting VRF Backlog processing";
  const Kel::Ptr<VrfRootSm> self(this);
  const auto task = this->task();
  if (!task) return;
  if (vrfBacklogQuantum() > 0) task->quantumIs(vrfBacklogQuantum());
  // lower_bound(next); after the last one, the first.
  const auto at = [this](const L3::VrfName& next) {
    const auto found = vrfBacklog().lowerBound(next);
    return found == vrfBacklog().end() ? vrfBacklog().begin()->first : found->first;
  };
  while (!vrfBacklog().empty()) {
    const L3::VrfName vrfName = at(vrfBookmark());
    vrfBacklogDel(vrfName);
    handleVrfCreation(vrfName.stringValue());
    if (!this->task()) return;  // stopped
    task->taskWorkCountInc();
    task->taskWorkPendingIs(vrfBacklog().size());
    if (vrfBacklog().empty()) break;
    vrfBookmarkIs(at(vrfName));
    if (task->taskShouldYield()) {
      QTRACE(vrfRootSmTrace, 2) << "VRF Backlog processing yielding";
      task->scheduleTask();
      return;
    }
  }
  QTRACE(vrfRootSmTrace, 2) << "VRF Backlog processing done";
}

bool VrfRootSm::hasConditions(const L3::VrfName& vrfName) const {
  const auto& name = vrfName.stringValue();
  return initialized() && routingVrfInfoDir()->entityPtrHas(name) && routingVrfConfigDir()->vrfConfigHas(name) &&
         vrfNameStatus()->vrfIdExists(vrfName);
}

void VrfRootSm::handleVrfCreation(const Kel::Name& givenName) {
  QTRACE_ENTRY(vrfRootSmTrace, this);
  if (!isVrfName(givenName)) return;
  const L3::VrfName vrfName(givenName);
  if (vrfName.isDefault() || reactors_.empty()) return;
  const auto& name = vrfName.stringValue();
  if (hasConditions(vrfName) && !vrfRootHas(name)) {
    const Kel::Ptr<VrfRootSm> self(this);
    try {
      createVrf(vrfName);
      failedVrfs_.erase(vrfName);
    } catch (const Kel::Exception& error) {
      // One line at level 0, however many VRFs wait for the same table.
      QTRACE(vrfRootSmTrace, failedVrfs_.empty() ? 0 : 2)
          << "vrf " << vrfName << " is not complete: " << error.what();
      destroyVrf(vrfName);  // no later event would complete it
      failedVrfs_.insert(vrfName);
    }
    return;
  }
  failedVrfs_.erase(vrfName);  // it exists, or the event that completes it examines it again
  QTRACE(vrfRootSmTrace, 2) << " Nothing to do for vrf " << name << " because - initialized=" << initialized()
                            << " vrfRoot(vrfName)=" << vrfRootHas(name)
                            << " routingVrfInfoDir()->entityPtr(vrfName)="
                            << routingVrfInfoDir()->entityPtrHas(name)
                            << " routingVrfConfigDir()->vrfConfig(vrfName)="
                            << routingVrfConfigDir()->vrfConfigHas(name)
                            << " vrfNameStatus()->vrfIdExists( vrfName )=" << vrfNameStatus()->vrfIdExists(vrfName);
}

void VrfRootSm::createVrf(const L3::VrfName& vrfName) {
  const Kel::Name name = vrfName.stringValue();
  const auto tables = mountTables(vrfName);
  const auto root = vrfRootDir()->vrfRootIs(name);
  vrfRoot_.map.kelInsert(name, root);
  KEL_NOTIFY_KEY(VrfRoot, name);
  root->vrfIdIs(vrfNameStatus()->vrfIdOf(vrfName));

  const auto mibs = vrfMibsDir()->mibsIs(name);
  const auto ipMib = mibs->ipmib();
  root->ipMibIs(ipMib);
  root->ipForwardMibIs(mibs->ipforwardmib());
  makeRouteSms(*root, tables);
  root->fibStatsMibIs(mibs->fibstatsmib());
  makeFibStatsSms(*root, tables);
  root->arpTableSmIs(intfStatusDir(), ipMib, arpQuillo(), arpQuilloVrfIdOf(vrfName));

  ipAddressTableSm()->vrfIpMibIs(ipMib);
  ipMib->ipSwFwdStatsIs(Ip::ipVersion4, name);
  ipMib->ipSwFwdStatsIs(Ip::ipVersion6, name);
  refreshSwFwdStats(vrfName);
  ipAddressTableSm()->handleIntfInVrf(name);
  servedVrfIs(vrfName, true);
}

void VrfRootSm::refreshSwFwdStats(const L3::VrfName& vrfName) {
  const auto local = allVrfStatusLocal()->vrf(vrfName);
  const auto root = vrfRoot(vrfName.stringValue());
  if (!local || !root || !root->ipMib()) return;
  for (const auto& [ipVersion, stats] : root->ipMib()->ipSwFwdStats()) stats->hasNamespaceIs(local->hasNamespace());
}

// ---- unmaking VRFs ----

void VrfRootSm::handleVrfStatusDel(const L3::VrfName& givenName) {
  QTRACE_ENTRY(vrfRootSmTrace, this);
  const L3::VrfName vrfName = givenName;
  const Kel::Ptr<VrfRootSm> self(this);
  vrfBacklogDel(vrfName);
  failedVrfs_.erase(vrfName);
  removeVrf(vrfName);
}

// The destructor calls these two, so they must not make a handle to this object.
void VrfRootSm::removeVrf(const L3::VrfName& vrfName) {
  const Kel::Name name = vrfName.stringValue();
  servedVrfDel(vrfName);
  delFromVrfTable(name);
  delVrfIfRows(name);
  destroyVrf(vrfName);
}

void VrfRootSm::destroyVrf(const L3::VrfName& vrfName) {
  const Kel::Name name = vrfName.stringValue();
  servedVrfDel(vrfName);
  if (!vrfRootHas(name)) return;
  ipAddressTableSm()->vrfIpMibDel(name);
  vrfMibsDir()->mibsDel(name);
  vrfRootDir()->vrfRootDel(name);
  vrfRoot_.map.kelTake(name);
  KEL_NOTIFY_KEY(VrfRoot, name);
}

void VrfRootSm::removeUnlessComplete(const L3::VrfName& vrfName) {
  const bool isKnown = allVrfStatusLocal()->vrfHas(vrfName);
  if (!isKnown && vrfRootHas(vrfName.stringValue()) && !hasConditions(vrfName)) destroyVrf(vrfName);
}

void VrfRootSm::onVrfConfig(const Kel::Name& vrfName) {
  QTRACE_ENTRY(vrfRootSmTrace, this);
  if (!isVrfName(vrfName)) return;
  const Kel::Ptr<VrfRootSm> self(this);
  addToVrfTable(vrfName);
  refreshFibStats(vrfName);
  if (routingVrfConfigDir()->vrfConfigHas(vrfName)) return handleVrfCreation(vrfName);
  removeUnlessComplete(L3::VrfName(vrfName));
}

void VrfRootSm::onVrf6Config(const Kel::Name& vrfName) {
  QTRACE_ENTRY(vrfRootSmTrace, this);
  if (!isVrfName(vrfName)) return;
  const Kel::Ptr<VrfRootSm> self(this);
  addToVrfTable(vrfName);
  refreshFibStats(vrfName);
}

void VrfRootSm::onEntityPtr(const Kel::Name& vrfName) {
  QTRACE_ENTRY(vrfRootSmTrace, this);
  if (!isVrfName(vrfName)) return;
  const Kel::Ptr<VrfRootSm> self(this);
  if (routingVrfInfoDir()->entityPtrHas(vrfName)) return handleVrfCreation(vrfName);
  removeUnlessComplete(L3::VrfName(vrfName));
}

}  // namespace IpSnmp
