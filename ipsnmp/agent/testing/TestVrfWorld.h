#pragma once
// For tests: VRFs, neighbours and the machines that serve them, with a clock that only the test moves.

#include "ipsnmp/agent/Root.h"
#include "ipsnmp/agent/testing/TestWorld.h"
#include "quillo/testing/TestArpTable.h"

namespace IpSnmpTest {

using Vrf::VrfIdMap::VrfId;

inline Arp::Table::ArpEntry neighbour(unsigned vrfId, std::string_view addr, std::string_view intf) {
  Arp::Table::ArpEntry entry;
  entry.key = {VrfId(vrfId), Vantu::IpGenAddr::fromString(addr), intfOf(intf)};
  return entry;
}

// The neighbour rows as text: "3 10.0.0.1 eth0@1;" is ifIndex, address, interface and the id of the VRF.
inline std::string neighbours(const IpSnmp::IpMib& mib) {
  std::string text;
  for (const auto& [index, row] : mib.ipNetToPhysicalTable()) {
    text += fmt::format("{} {} {}@{};", index.ifIndex(), keyText(index.addr()), row->intfId().text(),
                        row->arpQuilloVrfId().value());
  }
  return text;
}

inline std::string vrfIfs(const IpSnmp::IpVrfMib& mib) {
  std::string text;
  for (const auto& [ifIndex, row] : mib.vrfIfTable()) {
    text += fmt::format("{} {} {};", ifIndex, row->vrfName(), row->intfStatus()->intfId().text());
  }
  return text;
}

struct VrfWorld : World {
  double now = 1000;
  Ptr<Brev::TaskScheduler> scheduler;
  Ptr<Arp::Table::TestStatus> arp = Kel::makePtr<Arp::Table::TestStatus>();
  Ptr<Snmp::Status> snmpStatus = Kel::makePtr<Snmp::Status>("status");
  Ptr<IpSnmp::IpVrfMib> ipVrfMib = Kel::makePtr<IpSnmp::IpVrfMib>("ipvrfmib");
  Ptr<IpSnmp::VrfMibsDir> vrfMibsDir = Kel::makePtr<IpSnmp::VrfMibsDir>("vrf");
  Ptr<IntfSnmp::IfMib> ifMib = Kel::makePtr<IntfSnmp::IfMib>("ifmib");
  Quillo::Fib::FecMode fecMode = Quillo::Fib::fecModePerVrf;
  bool routeTablesEnabled = true;
  Ptr<Varnix::EntityManager> manager;        // null: no tables are mounted
  Ptr<IpSnmp::IpRouteTableSm> routeTableSm;  // the default VRF's
  Ptr<IpSnmp::Root> root = Kel::makePtr<IpSnmp::Root>("root");
  Ptr<IpSnmp::VrfRootSm> vrfRootSm;

  VrfWorld() {
    Kel::System::clockIs([this] { return now; });
    scheduler = Kel::makePtr<Brev::TaskScheduler>();
  }
  ~VrfWorld() { Kel::System::clockIs({}); }

  void start() {
    root->arpTableSmIs(tree.intfStatusDir, ipMib, arp, VrfId(0));
    root->vrfIfTableSmIs(ipVrfMib, tree.intfStatusDir, tree.ipConfig, tree.ip6Config);
    root->vrfRootDirIs("vrfs");
    vrfRootSmIs();
  }
  void vrfRootSmIs() {
    const auto allFecs = routeTableSm ? routeTableSm->localForwardingFecs() : nullptr;
    vrfRootSm = root->vrfRootSmIs(
        fecMode, scheduler, sm, tree.intfStatusDir, tree.routingVrfConfigDir, tree.routing6VrfConfigDir,
        tree.routingVrfInfoDir, tree.routing6VrfInfoDir, vrfMibsDir, root->vrfRootDir(), tree.allVrfStatusLocal,
        tree.allVrfStatusGlobal, tree.allVrfConfig, snmpStatus, ipVrfMib, manager, arp, root->arpTableSm(),
        routeTableSm, tree.vrfIdStatus, tree.vrfNameStatus, ifMib, allFecs, routeTablesEnabled);
  }
  void startReady() {
    start();
    agentIsReady();
    runTasks();
  }
  void agentIsReady() { snmpStatus->agentStatusIs("agent")->agentReadyIs(true); }
  void runTasks() {
    while (scheduler->runReady()) {
    }
  }

  void infoIs(const std::string& vrf) {
    if (!tree.routingVrfInfoDir->entityPtrHas(vrf)) {
      tree.routingVrfInfoDir->entityIs(Kel::makePtr<Routing::VrfInfo>(vrf));
    }
  }
  void routingIs(const std::string& vrf) { tree.routingVrfConfigDir->vrfConfigIs(vrf); }
  void idIs(const std::string& vrf, unsigned id) { tree.vrfNameStatus->vrfIdIs(L3::VrfName(vrf), VrfId(id)); }
  void localIs(const std::string& vrf) {
    tree.allVrfStatusLocal->vrfIs(L3::VrfName(vrf))->stateIs(Ip::vrfStateActive);
  }
  void localDel(const std::string& vrf) { tree.allVrfStatusLocal->vrfDel(L3::VrfName(vrf)); }
  // Creates all records that a VRF needs.
  void vrfIs(const std::string& vrf, unsigned id) {
    infoIs(vrf);
    routingIs(vrf);
    idIs(vrf, id);
    localIs(vrf);
  }
  // Puts the interface's IPv4 configuration into the VRF.
  void intfVrfIs(std::string_view intf, std::string_view vrf) {
    auto l3 = tree.l3ConfigDir->intfConfigIs(intfOf(intf));
    l3->vrfIs(L3::VrfName(vrf));
    tree.ipConfig->ipIntfConfigIs(intfOf(intf))->l3ConfigIs(l3);
  }

  bool isServed(const std::string& vrf) const {
    const auto mibs = vrfMibsDir->mibs(vrf);
    const bool served = vrfRootSm->servedVrfHas(L3::VrfName(vrf));
    const auto made = vrfRootSm->vrfRoot(vrf);
    EXPECT_EQ(served, mibs != nullptr) << vrf;
    EXPECT_EQ(served, made != nullptr) << vrf;
    EXPECT_EQ(made, root ? root->vrfRootDir()->vrfRoot(vrf) : nullptr) << vrf;
    EXPECT_EQ(sm->vrfIpMib(vrf), mibs ? mibs->ipmib() : nullptr) << vrf;
    return served;
  }
  std::string neighboursOf(const std::string& vrf) const {
    const auto mibs = vrfMibsDir->mibs(vrf);
    return mibs ? neighbours(*mibs->ipmib()) : "no cache";
  }
};

}  // namespace IpSnmpTest
