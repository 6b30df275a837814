#pragma once
// The caches of the agent process, and the state machines that keep them current.
//
// | path                | what                                                                   |
// |---------------------|------------------------------------------------------------------------|
// | Varnix/...          | the state database as mirrored from the store (varnix/Tree.h)          |
// | snmp/status         | Snmp::Status, the agent's own readiness                                |
// | snmp/fecmode        | Quillo::Fib::FecModeStatus: FECs of each VRF, or one table for all     |
// | snmp/ip/ipmib       | the default VRF's IP-MIB cache; ipforwardmib and fibstatsmib beside it |
// | snmp/ip/iftables    | the interfaces and their counters that the default context shows       |
// | snmp/ip/vrf.mibs/V  | the caches of VRF V                                                    |
// | snmp/ip/ipvrfmib    | the VRF tables                                                         |
// | snmp/ip/mplsvpnmib  | the VRFs and their interfaces for MPLS-L3VPN-STD-MIB                   |
// | snmp/ifmib          | the ifIndexes of the interfaces                                        |
// | snmp/agentmib       | the agent's own state                                                  |
//
// While an AgentTree exists, MIB modules find these paths (SnmpUtil::getEntityRelative).

#include <functional>

#include "agentstate/AgentMib.h"
#include "brev/TaskScheduler.h"
#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/Root.h"
#include "ipsnmp/agent/address/DefaultRouterSm.h"
#include "ipsnmp/agent/address/IpIfStatsSm.h"
#include "ipsnmp/agent/address/IpInterfaceSm.h"
#include "ipsnmp/agent/interface/IfTableSm.h"
#include "ipsnmp/agent/route/IfMibSm.h"
#include "ipsnmp/agent/vrf/MplsVpnSm.h"
#include "kel/Dir.h"
#include "varnix/AgentStatus.h"
#include "varnix/Tree.h"

namespace Host {

class AgentTree {
 public:
  // Creates the directory "snmp" in `root`, beside the directory "Varnix" of the state database that `manager` keeps.
  // Without a quilloMount in the manager, no routes are served. Requires: at most one AgentTree exists.
  AgentTree(Kel::Ptr<Kel::Dir> root, const Kel::Ptr<Brev::TaskScheduler>& scheduler,
            Kel::Ptr<const Arp::Table::Status> arpTable, const Kel::Ptr<const Varnix::EntityManager>& manager);
  ~AgentTree();
  AgentTree(const AgentTree&) = delete;
  AgentTree& operator=(const AgentTree&) = delete;

  const Kel::Ptr<Snmp::Status>& snmpStatus() const { return snmpStatus_; }
  const Kel::Ptr<AgentSnmp::AgentMib>& agentMib() const { return agentMib_; }
  // Its attribute `servedVrf` contains the VRFs that are served. The machine is replaced at times: get it again when
  // onVrfRootSmChanged() calls.
  Kel::Ptr<const IpSnmp::VrfRootSm> vrfRootSm() const { return ipRoot_->vrfRootSm(); }
  // Sets a function to call after vrfRootSm() was replaced. That happens when the publisher changes the FEC mode or, in
  // unified mode, the default VRF's id. It also happens when the configuration enables or disables the route tables, or
  // changes the management interfaces.
  void onVrfRootSmChanged(std::function<void()> changed) { vrfRootSmChanged_ = std::move(changed); }
  // Applies the current configuration (Snmp::currentConfig()) after it was read again.
  void reconfigure();

 private:
  class FecModeWatch;
  class ArpIdWatch;
  class DefaultVrfIdWatch;

  void wire();
  void wireRoutes();
  void wireFibStats();
  void wireVrfs();
  // Mounts the tables of the default VRF's current id; null while route tables are disabled.
  IpSnmp::VrfTables mountDefaultVrf() const;
  void remountDefaultVrf();
  bool isUnified() const;
  void restart();

  const Interface::LinuxIntfDetails linuxDetails_;
  const Varnix::Tree varnix_;
  const Kel::Ptr<Brev::TaskScheduler> scheduler_;
  const Kel::Ptr<const Varnix::EntityManager> manager_;
  bool routeTablesEnabled_;  // when the machines were created
  std::function<void()> vrfRootSmChanged_;
  Kel::Ptr<Kel::Dir> root_;
  Kel::Ptr<Snmp::Status> snmpStatus_;
  Kel::Ptr<Quillo::Fib::FecModeStatus> fecModeStatus_;
  Kel::Ptr<const Arp::Table::Status> arpTable_;
  Kel::Ptr<IntfSnmp::IfMib> ifMib_;
  Kel::Ptr<AgentSnmp::AgentMib> agentMib_;
  Kel::Ptr<IpSnmp::IpMib> ipMib_;
  Kel::Ptr<IpSnmp::IpForwardMib> ipForwardMib_;
  Kel::Ptr<FibStatsSnmp::FibStatsMib> fibStatsMib_;
  Kel::Ptr<IpSnmp::IpVrfMib> ipVrfMib_;
  Kel::Ptr<IpSnmp::VrfMibsDir> vrfMibsDir_;
  Kel::Ptr<IpSnmp::IfTables> ifTables_;
  Kel::Ptr<IpSnmp::IfTableSm> ifTableSm_;
  Kel::Ptr<IpSnmp::MplsVpnMib> mplsVpnMib_;
  Kel::Ptr<IpSnmp::Root> ipRoot_;
  Kel::Ptr<ArpIdWatch> arpIdWatch_;
  Kel::Ptr<DefaultVrfIdWatch> defaultVrfIdWatch_;
  Kel::Ptr<FecModeWatch> fecModeWatch_;
  Kel::Ptr<IpSnmp::IfMibSm> ifMibSm_;
  Kel::Ptr<IpSnmp::MplsVpnSm> mplsVpnSm_;
  Kel::Ptr<IpSnmp::IpIfStatsSm> ipIfStatsSm_, ip6IfStatsSm_;
  Kel::Ptr<IpSnmp::IpInterfaceSm> ipInterfaceSm_, ip6InterfaceSm_;
  Kel::Ptr<IpSnmp::DefaultRouterSm> defaultRouterSm_;
};

}  // namespace Host
