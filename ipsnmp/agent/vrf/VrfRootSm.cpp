#include "ipsnmp/agent/vrf/VrfRootSm.h"

#include <utility>

#include "ipsnmp/agent/vrf/VrfRootReactors.h"
#include "kel/Trace.h"

KEL_TYPE_DEFINE(IpSnmp::VrfRootSm)

namespace IpSnmp {
namespace {

Kel::TraceHandle vrfRootSmTrace("VrfRootSm");

constexpr int taskPriority = 2;

// Directories take any name; one that no VRF can have names none.
bool isVrfName(const Kel::Name& name) {
  return !name.empty() && name.size() <= L3::VrfName::maxLength;
}

}  // namespace

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

VrfRootSm::~VrfRootSm() {
  stop();
}

void VrfRootSm::kelStart() {
  watch<KelIntfStatusDir>(intfStatusDir());
  watch<KelArpQuillo>(arpQuillo());
  watch<KelRoutingVrfConfigDir>(routingVrfConfigDir());
  watch<KelRouting6VrfConfigDir>(routing6VrfConfigDir());
  watch<KelRoutingVrfInfoDir>(routingVrfInfoDir());
  watch<KelRouting6VrfInfoDir>(routing6VrfInfoDir());
  watch<KelVrfNameStatus>(vrfNameStatus());
  watch<KelAllVrfStatusLocal>(allVrfStatusLocal());
  watch<KelAllVrfStatusGlobal>(allVrfStatusGlobal());
  watch<KelAllVrfConfig>(allVrfConfig());
  watch<KelSnmpStatus>(snmpStatus());
  for (const auto& vrfName : allVrfStatusLocal()->vrf().keys()) {
    if (const auto record = allVrfStatusLocal()->vrf(vrfName)) vrfStatusLocalIs(this, record);
  }
  handleSnmpStatus();
}

void VrfRootSm::kelStop() {
  stop();
}

void VrfRootSm::stop() {
  if (reactors_.empty()) return;
  reactors_.clear();
  kelSnmpAgentStatus_ = nullptr;
  snmpAgentStatusIs(nullptr);
  task_ = nullptr;
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
  task_ = Kel::makePtr<Brev::Task>(scheduler(), "vrf creation/deletion", taskPriority, KelTask{this});
  initializedIs(true);
  handleVrfCreation();
  handleNameToIdMap();
  handleIntfStatus();
}

// ---- VRFs come ----

void VrfRootSm::handleVrfCreation() {
  QTRACE_ENTRY(vrfRootSmTrace, this);
  const Kel::Ptr<VrfRootSm> self(this);
  for (const auto& vrfName : allVrfStatusLocal()->vrf().keys()) {
    addToVrfTable(vrfName.stringValue());
    if (!vrfName.isDefault()) vrfBacklogIs(vrfName, true);
  }
  // One that is complete is made whether its local status record is there yet or not, as it is later on.
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
  if (!task_ || vrfBacklog().empty()) return;
  if (!task_->scheduled()) vrfBookmarkIs(vrfBacklog().begin()->first);
  task_->taskWorkPendingIs(vrfBacklog().size());
  task_->scheduleTask();
}

void VrfRootSm::doProcessVrfBacklog() {
  QTRACE_ENTRY(vrfRootSmTrace, this);
  QTRACE(vrfRootSmTrace, 2) << "Starting VRF Backlog processing";
  const Kel::Ptr<VrfRootSm> self(this);
  const auto task = task_;
  if (!task) return;
  if (vrfBacklogQuantum() > 0) task->quantumIs(vrfBacklogQuantum());
  // The next one at or after `next`, round the end.
  const auto at = [this](const L3::VrfName& next) {
    const auto found = vrfBacklog().lowerBound(next);
    return found == vrfBacklog().end() ? vrfBacklog().begin()->first : found->first;
  };
  while (!vrfBacklog().empty()) {
    const L3::VrfName vrfName = at(vrfBookmark());
    vrfBacklogDel(vrfName);
    handleVrfCreation(vrfName.stringValue());
    if (!task_) return;  // stopped
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
      unmakeVrf(vrfName);  // half a VRF would never be completed
      failedVrfs_.insert(vrfName);
    }
    return;
  }
  failedVrfs_.erase(vrfName);  // it is made, or lacks something whose arrival examines it again
  QTRACE(vrfRootSmTrace, 2) << " Nothing to do for vrf " << name << " because - initialized=" << initialized()
                            << " vrfRoot(vrfName)=" << vrfRootHas(name)
                            << " routingVrfInfoDir()->entityPtr(vrfName)="
                            << routingVrfInfoDir()->entityPtrHas(name)
                            << " routingVrfConfigDir()->vrfConfig(vrfName)="
                            << routingVrfConfigDir()->vrfConfigHas(name)
                            << " vrfNameStatus()->vrfIdExists( vrfName )=" << vrfNameStatus()->vrfIdExists(vrfName);
}

// A reactor may unmake the VRF at each step; then the rest is left alone.
void VrfRootSm::createVrf(const L3::VrfName& vrfName) {
  const Kel::Ptr<VrfRootSm> self(this);
  const Kel::Name name = vrfName.stringValue();
  const auto tables = mountTables(vrfName);
  const auto root = vrfRootDir()->vrfRootIs(name);
  vrfRoot_.map.kelInsert(name, root);
  KEL_NOTIFY_KEY(VrfRoot, name);
  const auto isUnmade = [&] { return vrfRoot(name) != root; };
  if (isUnmade()) return;
  root->vrfIdIs(vrfNameStatus()->vrfIdOf(vrfName));

  const auto mibs = vrfMibsDir()->mibsIs(name);
  if (isUnmade()) return;
  const auto ipMib = mibs->ipmib();
  root->ipMibIs(ipMib);
  root->ipForwardMibIs(mibs->ipforwardmib());
  makeRouteSms(*root, tables);
  if (isUnmade()) return;
  root->fibStatsMibIs(mibs->fibstatsmib());
  makeFibStatsSms(*root, tables);
  if (isUnmade()) return;

  root->arpTableSmIs(intfStatusDir(), ipMib, arpQuillo(), arpQuilloVrfIdOf(vrfName));
  if (isUnmade()) return;

  ipAddressTableSm()->vrfIpMibIs(ipMib);
  ipMib->ipSwFwdStatsIs(Ip::ipVersion4, name);
  ipMib->ipSwFwdStatsIs(Ip::ipVersion6, name);
  refreshSwFwdStats(vrfName);
  if (isUnmade()) return;
  ipAddressTableSm()->handleIntfInVrf(name);
  if (isUnmade()) return;
  servedVrfIs(vrfName, true);
}

void VrfRootSm::refreshSwFwdStats(const L3::VrfName& vrfName) {
  const auto local = allVrfStatusLocal()->vrf(vrfName);
  const auto root = vrfRoot(vrfName.stringValue());
  if (!local || !root || !root->ipMib()) return;
  for (const auto& [ipVersion, stats] : root->ipMib()->ipSwFwdStats()) stats->hasNamespaceIs(local->hasNamespace());
}

// ---- VRFs go ----

void VrfRootSm::handleVrfStatusDel(const L3::VrfName& givenName) {
  QTRACE_ENTRY(vrfRootSmTrace, this);
  const L3::VrfName vrfName = givenName;
  const Kel::Ptr<VrfRootSm> self(this);
  vrfBacklogDel(vrfName);
  failedVrfs_.erase(vrfName);
  removeVrf(vrfName);
}

// These are also called from the destructor, where no handle to this may be made.
void VrfRootSm::removeVrf(const L3::VrfName& vrfName) {
  const Kel::Name name = vrfName.stringValue();
  servedVrfDel(vrfName);
  delFromVrfTable(name);
  delVrfIfRows(name);
  unmakeVrf(vrfName);
}

void VrfRootSm::unmakeVrf(const L3::VrfName& vrfName) {
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
  if (!isKnown && vrfRootHas(vrfName.stringValue()) && !hasConditions(vrfName)) unmakeVrf(vrfName);
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

// ---- the VRF table ----

void VrfRootSm::addToVrfTable(const Kel::Name& givenName) {
  QTRACE_ENTRY(vrfRootSmTrace, this);
  if (!isVrfName(givenName)) return;
  const L3::VrfName vrfName(givenName);
  const auto& name = vrfName.stringValue();
  const auto local = allVrfStatusLocal()->vrf(vrfName);
  if (!local || reactors_.empty()) return;
  const Kel::Ptr<VrfRootSm> self(this);
  const Snmp::String index(name);
  const auto config = allVrfConfig()->vrfConfig(vrfName);
  const auto global = allVrfStatusGlobal()->vrf(vrfName);
  auto row = ipVrfMib()->vrfTable(index);
  if (row && (row->vrfConfig() != config || row->vrfStatusGlobal() != global || row->vrfStatusLocal() != local)) {
    ipVrfMib()->vrfTableDel(index);
  }
  row = ipVrfMib()->vrfTableIs(index, config, global, local);
  const bool isDefault = vrfName.isDefault() && entityManager();
  const Kel::Ptr<const Routing::Config> routing =
      isDefault ? Kel::Ptr<const Routing::Config>(entityManager()->tree().routingConfig)
                : routingVrfConfigDir()->vrfConfig(name);
  const Kel::Ptr<const Routing6::Config> routing6 =
      isDefault ? Kel::Ptr<const Routing6::Config>(entityManager()->tree().routing6Config)
                : routing6VrfConfigDir()->vrfConfig(name);
  const auto status = row->vrfRoutingStatus();
  if (status && (status->vrfConfig() != routing || status->vrf6Config() != routing6)) row->vrfRoutingStatusDel();
  row->vrfRoutingStatusIs(name, routing, routing6);
}

void VrfRootSm::delFromVrfTable(const Kel::Name& vrfName) {
  QTRACE_ENTRY(vrfRootSmTrace, this);
  QTRACE(vrfRootSmTrace, 6) << " for vrf " << vrfName;
  ipVrfMib()->vrfTableDel(Snmp::String(vrfName));
}

void VrfRootSm::delVrfIfRows(const Kel::Name& vrfName) {
  std::vector<std::uint32_t> rows;
  for (const auto& [ifIndex, row] : ipVrfMib()->vrfIfTable()) {
    if (row->vrfName() == vrfName) rows.push_back(ifIndex);
  }
  for (const auto ifIndex : rows) ipVrfMib()->vrfIfTableDel(ifIndex);
}

}  // namespace IpSnmp
