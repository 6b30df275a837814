// The VRF root state machine: the rows of vrfTable, and the removal of a VRF's rows in vrfIfTable.

#include "ipsnmp/agent/vrf/VrfRootSm.h"
#include "kel/Trace.h"

namespace IpSnmp {
namespace {

Kel::TraceHandle vrfTableTrace("VrfRootSm");

}  // namespace

void VrfRootSm::addToVrfTable(const Kel::Name& givenName) {
  QTRACE_ENTRY(vrfTableTrace, this);
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
  QTRACE_ENTRY(vrfTableTrace, this);
  QTRACE(vrfTableTrace, 6) << " for vrf " << vrfName;
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
