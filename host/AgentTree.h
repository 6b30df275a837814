#pragma once
// The caches of the agent process, and the state machines that keep them current.
//
// | path                | what                                                                   |
// |---------------------|------------------------------------------------------------------------|
// | Varnix/...          | the state database as mirrored from the store (varnix/Tree.h)          |
// | snmp/status         | Snmp::Status, the agent's own readiness                                |
// | snmp/ip/ipmib       | the default VRF's IP-MIB cache; ipforwardmib and fibstatsmib beside it |
// | snmp/ip/vrf.mibs/V  | the caches of VRF V                                                    |
// | snmp/ip/ipvrfmib    | the VRF tables                                                         |
// | snmp/ifmib          | the ifIndexes of the interfaces                                        |
//
// While an AgentTree exists, MIB modules find these paths (SnmpUtil::getEntityRelative).

#include "brev/TaskScheduler.h"
#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/IfMibSm.h"
#include "ipsnmp/agent/Root.h"
#include "kel/Dir.h"
#include "varnix/SnmpStatus.h"
#include "varnix/Tree.h"

namespace Host {

class AgentTree {
 public:
  // Makes the directory "snmp" in `root`, beside the state database that stands in its directory "Varnix". Without
  // a table of neighbours there are none. The manager of the state database may be null.
  AgentTree(Kel::Ptr<Kel::Dir> root, const Varnix::Tree& varnix, const Kel::Ptr<Brev::TaskScheduler>& scheduler,
            Kel::Ptr<const Arp::Table::Status> arpTable, const Kel::Ptr<const Varnix::EntityManager>& manager);
  ~AgentTree();
  AgentTree(const AgentTree&) = delete;
  AgentTree& operator=(const AgentTree&) = delete;

  const Kel::Ptr<Snmp::Status>& snmpStatus() const { return snmpStatus_; }
  // Which VRFs are served.
  Kel::Ptr<const IpSnmp::VrfRootSm> vrfRootSm() const { return ipRoot_->vrfRootSm(); }

 private:
  void wire(const Varnix::Tree& varnix);
  void wireVrfs(const Varnix::Tree& varnix, const Kel::Ptr<Brev::TaskScheduler>& scheduler,
                const Kel::Ptr<const Varnix::EntityManager>& manager);

  const Interface::LinuxIntfDetails linuxDetails_;
  Kel::Ptr<Kel::Dir> root_;
  Kel::Ptr<Snmp::Status> snmpStatus_;
  Kel::Ptr<const Arp::Table::Status> arpTable_;
  Kel::Ptr<IntfSnmp::IfMib> ifMib_;
  Kel::Ptr<IpSnmp::IpMib> ipMib_;
  Kel::Ptr<IpSnmp::IpForwardMib> ipForwardMib_;
  Kel::Ptr<FibStatsSnmp::FibStatsMib> fibStatsMib_;
  Kel::Ptr<IpSnmp::IpVrfMib> ipVrfMib_;
  Kel::Ptr<IpSnmp::VrfMibsDir> vrfMibsDir_;
  Kel::Ptr<IpSnmp::Root> ipRoot_;
  Kel::Ptr<IpSnmp::IfMibSm> ifMibSm_;
};

}  // namespace Host
