#include "host/composition/AgentTree.h"

#include "snmp/SnmpUtil.h"
#include "vantu/IntfId.h"

namespace Host {
namespace {

template <class T>
Kel::Ptr<T> enter(const Kel::Ptr<Kel::Dir>& dir, const char* name) {
  auto entity = Kel::makePtr<T>(name);
  dir->entityIs(entity);
  return entity;
}

// The default VRF's id in the neighbour table, until the state database has one.
constexpr Vrf::VrfIdMap::VrfId defaultVrfId{0};

bool areRouteTablesEnabled() {
  return !SnmpUtil::objectsDisabled(SnmpUtil::getSnmpConfig(), "route-tables");
}

// Applies the configured management interfaces. Returns whether they changed.
bool managementInterfacesChange() {
  const auto& configured = SnmpUtil::getSnmpConfig()->managementInterfaces();
  if (configured == Vantu::MgmtIntfId::configured()) return false;
  Vantu::MgmtIntfId::configuredIs(configured);
  return true;
}

}  // namespace

// Restarts the route machines when the switch changes how it keeps its FECs.
class AgentTree::FecModeWatch : public IpSnmp::FecModeRestartSm::Notifiee {
 public:
  explicit FecModeWatch(AgentTree* owner) : owner_(owner) {}
  void handleFecMode() override { owner_->restart(); }

 private:
  AgentTree* const owner_;
};

// Passes the default VRF's id in the neighbour table to the machines of its route counts.
class AgentTree::ArpIdWatch : public IpSnmp::ArpTableSm::Notifiee {
 public:
  explicit ArpIdWatch(IpSnmp::Root* root) : root_(root) {}
  void handleArpQuilloVrfId() override {
    const auto id = notifier()->arpQuilloVrfId();
    if (const auto sm = root_->fibStatsSm()) sm->vrfIdIs(id);
    if (const auto sm = root_->fib6StatsSm()) sm->vrfIdIs(id);
  }

 private:
  IpSnmp::Root* const root_;
};

// Remounts the default VRF's routes under its published id. VrfRootSm does so for the other VRFs.
class AgentTree::DefaultVrfIdWatch : public Vrf::VrfIdMap::NameToIdMapWrapper::Notifiee {
 public:
  explicit DefaultVrfIdWatch(AgentTree* owner) : owner_(owner) {}
  void handleVrfId(const L3::VrfName& vrfName) override {
    if (vrfName.isDefault()) owner_->remountDefaultVrf();
  }

 private:
  AgentTree* const owner_;
};

AgentTree::AgentTree(Kel::Ptr<Kel::Dir> root, const Kel::Ptr<Brev::TaskScheduler>& scheduler,
                     Kel::Ptr<const Arp::Table::Status> arpTable,
                     const Kel::Ptr<const Varnix::EntityManager>& manager)
    : varnix_(manager->tree()),
      scheduler_(scheduler),
      manager_(manager),
      routeTablesEnabled_(areRouteTablesEnabled()),
      root_(std::move(root)),
      snmpStatus_(enter<Snmp::Status>(root_->dirIs("snmp"), "status")),
      fecModeStatus_(enter<Quillo::Fib::FecModeStatus>(root_->dirIs("snmp"), "fecmode")),
      arpTable_(std::move(arpTable)),
      ifMib_(enter<IntfSnmp::IfMib>(root_->dirIs("snmp"), "ifmib")),
      agentMib_(enter<AgentSnmp::AgentMib>(root_->dirIs("snmp"), "agentmib")) {
  managementInterfacesChange();
  snmpStatus_->agentStatusIs("agent");
  const auto ip = root_->dirIs("snmp")->dirIs("ip");
  ipMib_ = enter<IpSnmp::IpMib>(ip, "ipmib");
  ipForwardMib_ = enter<IpSnmp::IpForwardMib>(ip, "ipforwardmib");
  fibStatsMib_ = enter<FibStatsSnmp::FibStatsMib>(ip, "fibstatsmib");
  ipVrfMib_ = enter<IpSnmp::IpVrfMib>(ip, "ipvrfmib");
  vrfMibsDir_ = enter<IpSnmp::VrfMibsDir>(ip, "vrf");
  ifTables_ = enter<IpSnmp::IfTables>(ip, "iftables");
  mplsVpnMib_ = enter<IpSnmp::MplsVpnMib>(ip, "mplsvpnmib");
  Interface::IntfDetailsProvider::providerIs(Interface::LinuxIntfDetails::kind, &linuxDetails_);
  ipRoot_ = Kel::makePtr<IpSnmp::Root>("ip");
  ifMibSm_ = Kel::makePtr<IpSnmp::IfMibSm>(varnix_.intfStatusDir, ifMib_);
  ifTableSm_ = Kel::makePtr<IpSnmp::IfTableSm>(varnix_.intfStatusDir, varnix_.intfCountersDir, varnix_.l3ConfigDir,
                                               snmpStatus_, ifTables_, vrfMibsDir_);
  ifTableSm_->setAllInDefault(SnmpUtil::getSnmpConfig()->areAllInterfacesInDefault());
  mplsVpnSm_ = Kel::makePtr<IpSnmp::MplsVpnSm>(ipVrfMib_, vrfMibsDir_, mplsVpnMib_);
  const auto ifStatsSm = [&](Ip::IpVersion version, const Kel::Ptr<Ip::AllIntfStats>& stats) {
    return Kel::makePtr<IpSnmp::IpIfStatsSm>(version, varnix_.intfStatusDir, stats, ipMib_);
  };
  ipIfStatsSm_ = ifStatsSm(Ip::ipVersion4, varnix_.ipIntfStats);
  ip6IfStatsSm_ = ifStatsSm(Ip::ipVersion6, varnix_.ip6IntfStats);
  const auto interfaceSm = [&](Ip::IpVersion version, const Kel::Ptr<Ip::AllIntfProtocol>& protocols,
                               const Kel::Ptr<Ip::AllIntfStats>& stats) {
    return Kel::makePtr<IpSnmp::IpInterfaceSm>(version, varnix_.intfStatusDir, varnix_.l3ConfigDir, protocols,
                                               stats, varnix_.ip6Config, ipMib_, vrfMibsDir_);
  };
  ipInterfaceSm_ = interfaceSm(Ip::ipVersion4, varnix_.ipIntfProtocol, varnix_.ipIntfStats);
  ip6InterfaceSm_ = interfaceSm(Ip::ipVersion6, varnix_.ip6IntfProtocol, varnix_.ip6IntfStats);
  defaultRouterSm_ = Kel::makePtr<IpSnmp::DefaultRouterSm>(varnix_.routingConfig, varnix_.routingVrfConfigDir,
                                                           ifMib_, ipMib_, vrfMibsDir_);
  wire();
  wireRoutes();
  wireFibStats();
  wireVrfs();
  arpIdWatch_ = Kel::makePtr<ArpIdWatch>(ipRoot_.get());
  arpIdWatch_->notifierIs(ipRoot_->arpTableSm());
  defaultVrfIdWatch_ = Kel::makePtr<DefaultVrfIdWatch>(this);
  defaultVrfIdWatch_->notifierIs(varnix_.vrfNameStatus);
  fecModeWatch_ = Kel::makePtr<FecModeWatch>(this);
  fecModeWatch_->notifierIs(ipRoot_->fecModeRestartSm());
  SnmpUtil::rootIs(root_);
}

// The library creates no state machine by itself: the hosting process names those it wants.
void AgentTree::wire() {
  using Kel::Ptr;
  const auto& varnix = varnix_;
  ipRoot_->ipConfigIs(varnix.ipConfig);
  ipRoot_->ipStatusIs(varnix.ipStatus);
  ipRoot_->ip6ConfigIs(varnix.ip6Config);
  ipRoot_->ip6StatusIs(varnix.ip6Status);
  ipRoot_->intfStatusDirIs(varnix.intfStatusDir);
  ipRoot_->ipMibIs(ipMib_);
  ipMib_->ipSwFwdStatsIs(Ip::ipVersion4, L3::VrfName::defaultName);
  ipMib_->ipSwFwdStatsIs(Ip::ipVersion6, L3::VrfName::defaultName);
  ipRoot_->ipForwardMibIs(ipForwardMib_);
  ipRoot_->fibStatsMibIs(fibStatsMib_);
  Kel::callOperation(*ipRoot_, "fecModeSmIs", {Ptr<const L3::Config>(varnix.l3Config), fecModeStatus_});
  Kel::callOperation(*ipRoot_, "fecModeRestartSmIs", {Ptr<const Quillo::Fib::FecModeStatus>(fecModeStatus_)});
  Kel::callOperation(*ipRoot_, "ipAddressTableSmIs",
                     {Ptr<const Interface::AllIntfStatusDir>(varnix.intfStatusDir), ipMib_,
                      Ptr<const Ip::Config>(varnix.ipConfig), Ptr<const Ip::Status>(varnix.ipStatus),
                      Ptr<const Ip6::Config>(varnix.ip6Config), Ptr<const Ip6::Status>(varnix.ip6Status)});
  const Ptr<const Interface::AllIntfStatusDir> intfStatusDir = varnix.intfStatusDir;
  Kel::callOperation(*ipRoot_, "arpTableSmIs", {intfStatusDir, ipMib_, arpTable_, defaultVrfId});
  Kel::callOperation(
      *ipRoot_, "vrfIfTableSmIs",
      {ipVrfMib_, intfStatusDir, Ptr<const Ip::Config>(varnix.ipConfig), Ptr<const Ip6::Config>(varnix.ip6Config)});
  Kel::callOperation(*ipRoot_, "vrfRootDirIs", {Kel::Name("vrfs")});
}

IpSnmp::VrfTables AgentTree::mountDefaultVrf() const {
  const auto& mount = manager_->quilloMount();
  if (!mount || !routeTablesEnabled_) return {};
  return IpSnmp::VrfTables::mounted(*mount, L3::VrfName(), true);
}

void AgentTree::wireRoutes() {
  const auto tables = mountDefaultVrf();
  if (!tables.routeStatus) return;
  const auto& fecs = tables.forwardingStatus;
  const auto unified = isUnified() ? fecs : nullptr;
  Kel::callOperation(*ipRoot_, "ipRouteTableSmIs",
                     {scheduler_, Kel::Name(L3::VrfName::defaultName), ipForwardMib_, tables.routeStatus, fecs,
                      unified, Kel::Ptr<const IpSnmp::IpForwardFecs>(), Kel::Ptr<const IntfSnmp::IfMib>(ifMib_)});
  ipRoot_->ipRouteTableSm()->route6StatusIs(tables.route6Status);
  Kel::callOperation(*ipRoot_, "perVrfFecSmIs", {ipRoot_->ipRouteTableSm(), tables.routeStatus, fecs});
}

void AgentTree::wireFibStats() {
  using Kel::Ptr;
  const auto tables = mountDefaultVrf();
  if (!tables.routeStatus) return;
  const auto id = ipRoot_->arpTableSm()->arpQuilloVrfId();
  Kel::callOperation(
      *ipRoot_, "fibStatsSmIs",
      {tables.routeStatus, arpTable_, id, Ptr<const Routing::Config>(varnix_.routingConfig), fibStatsMib_});
  ipRoot_->fibStatsSm()->taskSchedulerIs(scheduler_);
  Kel::callOperation(
      *ipRoot_, "fib6StatsSmIs",
      {tables.route6Status, arpTable_, id, Ptr<const Routing6::Config>(varnix_.routing6Config), fibStatsMib_});
  ipRoot_->fib6StatsSm()->taskSchedulerIs(scheduler_);
}

void AgentTree::remountDefaultVrf() {
  const auto routeSm = ipRoot_->ipRouteTableSm();
  const auto tables = mountDefaultVrf();
  if (!routeSm || routeSm->routeStatus() == tables.routeStatus) return;
  if (isUnified()) {
    restart();  // its FECs resolve the routes of every VRF
  } else {
    IpSnmp::remountTables(*ipRoot_, tables);
  }
}

// Creates the machine of the other VRFs.
void AgentTree::wireVrfs() {
  using Kel::Ptr;
  const auto& varnix = varnix_;
  const auto routeSm = ipRoot_->ipRouteTableSm();
  const bool areFecsShared = isUnified() && routeSm;
  Kel::callOperation(*ipRoot_, "vrfRootSmIs",
                     {ipRoot_->fecModeRestartSm()->fecMode(),
                      scheduler_,
                      ipRoot_->ipAddressTableSm(),
                      Ptr<const Interface::AllIntfStatusDir>(varnix.intfStatusDir),
                      Ptr<const Routing::VrfConfigDir>(varnix.routingVrfConfigDir),
                      Ptr<const Routing6::VrfConfigDir>(varnix.routing6VrfConfigDir),
                      Ptr<const Kel::Dir>(varnix.routingVrfInfoDir),
                      Ptr<const Kel::Dir>(varnix.routing6VrfInfoDir),
                      vrfMibsDir_,
                      ipRoot_->vrfRootDir(),
                      Ptr<const Ip::AllVrfStatusLocal>(varnix.allVrfStatusLocal),
                      Ptr<const Ip::AllVrfStatusGlobal>(varnix.allVrfStatusGlobal),
                      Ptr<const Ip::AllVrfConfig>(varnix.allVrfConfig),
                      Ptr<const Snmp::Status>(snmpStatus_),
                      ipVrfMib_,
                      manager_,
                      arpTable_,
                      ipRoot_->arpTableSm(),
                      routeSm,
                      Ptr<const Vrf::VrfIdMap::Status>(varnix.vrfIdStatus),
                      Ptr<const Vrf::VrfIdMap::NameToIdMapWrapper>(varnix.vrfNameStatus),
                      Ptr<const IntfSnmp::IfMib>(ifMib_),
                      Ptr<const IpSnmp::IpForwardFecs>(areFecsShared ? routeSm->localForwardingFecs() : nullptr),
                      routeTablesEnabled_});
}

bool AgentTree::isUnified() const {
  return ipRoot_->fecModeRestartSm()->fecMode() == Quillo::Fib::fecModeUnified;
}

void AgentTree::reconfigure() {
  ifTableSm_->setAllInDefault(SnmpUtil::getSnmpConfig()->areAllInterfacesInDefault());
  const bool areEnabled = areRouteTablesEnabled();
  const bool isSame = !managementInterfacesChange() && areEnabled == routeTablesEnabled_;
  routeTablesEnabled_ = areEnabled;
  if (!isSame) return restart();
  if (const auto sm = ipRoot_->ipRouteTableSm()) sm->reconfigure();
  for (const auto& [name, root] : ipRoot_->vrfRootSm()->vrfRoot()) {
    if (const auto sm = root->ipRouteTableSm()) sm->reconfigure();
  }
}

void AgentTree::restart() {
  ipRoot_->vrfRootSmDel();
  ipRoot_->fib6StatsSmDel();
  ipRoot_->fibStatsSmDel();
  ipRoot_->perVrfFecSmDel();
  ipRoot_->ipRouteTableSmDel();
  wireRoutes();
  wireFibStats();
  wireVrfs();
  if (vrfRootSmChanged_) vrfRootSmChanged_();
}

AgentTree::~AgentTree() {
  SnmpUtil::rootIs(nullptr);
  arpIdWatch_ = nullptr;
  defaultVrfIdWatch_ = nullptr;
  fecModeWatch_ = nullptr;
  ipRoot_ = nullptr;  // the machines are destroyed before the entities that they watch
  ifMibSm_ = nullptr;
  ifTableSm_ = nullptr;
  mplsVpnSm_ = nullptr;
  ipIfStatsSm_ = ip6IfStatsSm_ = nullptr;
  ipInterfaceSm_ = ip6InterfaceSm_ = nullptr;
  defaultRouterSm_ = nullptr;
  Interface::IntfDetailsProvider::providerIs(Interface::LinuxIntfDetails::kind, nullptr);
}

}  // namespace Host
