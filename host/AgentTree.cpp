#include "host/AgentTree.h"

#include "snmp/SnmpUtil.h"

namespace Host {
namespace {

template <class T>
Kel::Ptr<T> enter(const Kel::Ptr<Kel::Dir>& dir, const char* name) {
  auto entity = Kel::makePtr<T>(name);
  dir->entityIs(entity);
  return entity;
}

class NoNeighbours : public Arp::Table::Status {
 public:
  bool initialized() const override { return true; }
  Arp::Table::ArpEntry arpEntry(const Arp::Table::ArpKey&) const override { return {}; }
  Arp::Table::ArpEntry neighborEntry(const Arp::Table::ArpKey&) const override { return {}; }
  void forEachArpEntry(const Vrf::VrfIdMap::VrfId&, const Visit&) const override {}
  void forEachNeighborEntry(const Vrf::VrfIdMap::VrfId&, const Visit&) const override {}
  void corruptionDetected(const Pesk::CorruptionDetectedException&) const override {}
};

// The default VRF's id in the shared tables, until the state database names it.
constexpr Vrf::VrfIdMap::VrfId defaultVrfId{0};

}  // namespace

AgentTree::AgentTree(Kel::Ptr<Kel::Dir> root, const Varnix::Tree& varnix,
                     const Kel::Ptr<Brev::TaskScheduler>& scheduler, Kel::Ptr<const Arp::Table::Status> arpTable,
                     const Kel::Ptr<const Varnix::EntityManager>& manager)
    : root_(std::move(root)),
      snmpStatus_(enter<Snmp::Status>(root_->dirIs("snmp"), "status")),
      arpTable_(arpTable ? std::move(arpTable) : Kel::makePtr<NoNeighbours>()),
      ifMib_(enter<IntfSnmp::IfMib>(root_->dirIs("snmp"), "ifmib")) {
  const auto ip = root_->dirIs("snmp")->dirIs("ip");
  ipMib_ = enter<IpSnmp::IpMib>(ip, "ipmib");
  ipForwardMib_ = enter<IpSnmp::IpForwardMib>(ip, "ipforwardmib");
  fibStatsMib_ = enter<FibStatsSnmp::FibStatsMib>(ip, "fibstatsmib");
  ipVrfMib_ = enter<IpSnmp::IpVrfMib>(ip, "ipvrfmib");
  vrfMibsDir_ = enter<IpSnmp::VrfMibsDir>(ip, "vrf");
  Interface::IntfDetailsProvider::providerIs(Interface::LinuxIntfDetails::kind, &linuxDetails_);
  ipRoot_ = Kel::makePtr<IpSnmp::Root>("ip");
  ifMibSm_ = Kel::makePtr<IpSnmp::IfMibSm>(varnix.intfStatusDir, ifMib_);
  wire(varnix);
  wireVrfs(varnix, scheduler, manager);
  SnmpUtil::rootIs(root_);
}

// The library makes none of its state machines by itself: the process that hosts it names those it wants.
void AgentTree::wire(const Varnix::Tree& varnix) {
  using Kel::Ptr;
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
  Kel::callOperation(*ipRoot_, "ipAddressTableSmIs",
                     {Ptr<const Interface::AllIntfStatusDir>(varnix.intfStatusDir), ipMib_,
                      Ptr<const Ip::Config>(varnix.ipConfig), Ptr<const Ip::Status>(varnix.ipStatus),
                      Ptr<const Ip6::Config>(varnix.ip6Config), Ptr<const Ip6::Status>(varnix.ip6Status)});
}

void AgentTree::wireVrfs(const Varnix::Tree& varnix, const Kel::Ptr<Brev::TaskScheduler>& scheduler,
                         const Kel::Ptr<const Varnix::EntityManager>& manager) {
  using Kel::Ptr;
  const Ptr<const Interface::AllIntfStatusDir> intfStatusDir = varnix.intfStatusDir;
  Kel::callOperation(*ipRoot_, "arpTableSmIs", {intfStatusDir, ipMib_, arpTable_, defaultVrfId});
  Kel::callOperation(
      *ipRoot_, "vrfIfTableSmIs",
      {ipVrfMib_, intfStatusDir, Ptr<const Ip::Config>(varnix.ipConfig), Ptr<const Ip6::Config>(varnix.ip6Config)});
  Kel::callOperation(*ipRoot_, "vrfRootDirIs", {Kel::Name("vrfs")});
  const bool routeTablesEnabled = !SnmpUtil::objectsDisabled(SnmpUtil::getSnmpConfig(), "route-tables");
  Kel::callOperation(*ipRoot_, "vrfRootSmIs",
                     {Quillo::Fib::fecModePerVrf,
                      scheduler,
                      ipRoot_->ipAddressTableSm(),
                      intfStatusDir,
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
                      manager,
                      arpTable_,
                      ipRoot_->arpTableSm(),
                      Ptr<const Vrf::VrfIdMap::Status>(varnix.vrfIdStatus),
                      Ptr<const Vrf::VrfIdMap::NameToIdMapWrapper>(varnix.vrfNameStatus),
                      Ptr<const IntfSnmp::IfMib>(ifMib_),
                      routeTablesEnabled});
}

AgentTree::~AgentTree() {
  SnmpUtil::rootIs(nullptr);
  ipRoot_ = nullptr;  // the machines go before what they watch
  ifMibSm_ = nullptr;
  Interface::IntfDetailsProvider::providerIs(Interface::LinuxIntfDetails::kind, nullptr);
}

}  // namespace Host
