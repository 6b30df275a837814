// The tables of interfaces and of default routers of two VRFs, whatever the order in which records come and go.

#include "ipsnmp/agent/address/IpInterfaceSm.h"

#include "ipsnmp/agent/address/DefaultRouterSm.h"
#include "ipsnmp/agent/route/IfMibSm.h"
#include "ipsnmp/agent/testing/TestWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

struct IpInterfaceSmTest : testing::Test, World {
  Ptr<VrfMibsDir> vrfMibs = Kel::makePtr<VrfMibsDir>("vrf");
  Ptr<IntfSnmp::IfMib> ifMib = Kel::makePtr<IntfSnmp::IfMib>("ifmib");
  Ptr<IfMibSm> ifMibSm = Kel::makePtr<IfMibSm>(tree.intfStatusDir, ifMib);
  Ptr<IpInterfaceSm> machine;
  Ptr<DefaultRouterSm> routerMachine;
  RandomRoutes random{16};

  void machinesAre() {
    machine = Kel::makePtr<IpInterfaceSm>(Ip::ipVersion6, tree.intfStatusDir, tree.l3ConfigDir,
                                          tree.ip6IntfProtocol, tree.ip6IntfStats, tree.ip6Config, ipMib, vrfMibs);
    routerMachine =
        Kel::makePtr<DefaultRouterSm>(tree.routingConfig, tree.routingVrfConfigDir, ifMib, ipMib, vrfMibs);
  }
  Ptr<IpMib> mib(const std::string& vrf) {
    const auto mibs = vrfMibs->mibs(vrf);
    return vrf == "default" ? ipMib : mibs ? mibs->ipmib() : nullptr;
  }

  static Lines rowsOf(const IpMib& mib) {
    std::multiset<std::string> lines;
    for (const auto& [key, row] : mib.ipInterfaceTable()) {
      lines.insert(fmt::format("runs {} {} {}", key.ifIndex(), row->protocol()->intfId().text(),
                               row->addresses() != nullptr));
    }
    for (const auto& [key, row] : mib.ipIfTrafficTable()) {
      lines.insert(fmt::format("counts {} {}", key.ifIndex(), row->stats()->intfId().text()));
    }
    for (const auto& [key, row] : mib.ipDefaultRouterTable()) {
      lines.insert(fmt::format("router {} {} {}", keyText(key.addr()), key.ifIndex(), int{row->preference()}));
    }
    return {lines.begin(), lines.end()};
  }
  Lines expectedOf(const std::string& vrf) {
    std::multiset<std::string> lines;
    for (const auto& [id, status] : tree.intfStatusDir->intfStatus()) {
      const auto l3Config = tree.l3ConfigDir->intfConfig(id);
      if (!l3Config || l3Config->vrf().stringValue() != vrf || status->ifIndex() == 0) continue;
      if (tree.ip6IntfProtocol->intfProtocolHas(id)) {
        lines.insert(fmt::format("runs {} {} {}", status->ifIndex(), id.text(), tree.ip6Config->intfHas(id)));
      }
      if (tree.ip6IntfStats->intfStatsHas(id)) {
        lines.insert(fmt::format("counts {} {}", status->ifIndex(), id.text()));
      }
    }
    const auto config = vrf == "default" ? tree.routingConfig : tree.routingVrfConfigDir->vrfConfig(vrf);
    for (const auto& [router, facts] : config ? config->defaultRouter() : tree.routingConfig->defaultRouter()) {
      const auto status = tree.intfStatusDir->intfStatus(router.intfId());
      if (!config || !status || status->ifIndex() == 0) continue;
      lines.insert(fmt::format("router {} {} {}", router.address().stringValue(), status->ifIndex(),
                               int{facts.preference()}));
    }
    return {lines.begin(), lines.end()};
  }

  void changeSomething() {
    const unsigned number = random.below(3);
    const auto id = intfOf(fmt::format("eth{}", number));
    const bool isAdded = random.below(3) > 0;
    const char* vrf = random.below(2) ? "red" : "default";
    switch (random.below(8)) {
      case 0:
        return isAdded ? void(intfIs(id.text(), random.below(3) ? number + 1 + 10 * random.below(3) : 0))
                       : void(tree.intfStatusDir->intfStatusDel(id));
      case 1:
        return isAdded ? tree.l3ConfigDir->intfConfigIs(id)->vrfIs(L3::VrfName(vrf))
                       : void(tree.l3ConfigDir->intfConfigDel(id));
      case 2:
        return isAdded ? void(tree.ip6IntfProtocol->intfProtocolIs(id))
                       : void(tree.ip6IntfProtocol->intfProtocolDel(id));
      case 3:
        return isAdded ? void(tree.ip6IntfStats->intfStatsIs(id)) : void(tree.ip6IntfStats->intfStatsDel(id));
      case 4:
        return isAdded ? void(tree.ip6Config->intfIs(id)) : void(tree.ip6Config->intfDel(id));
      case 5:
        return isAdded ? void(vrfMibs->mibsIs("red")) : void(vrfMibs->mibsDel("red"));
      case 6:
        return isAdded ? void(tree.routingVrfConfigDir->vrfConfigIs("red"))
                       : void(tree.routingVrfConfigDir->vrfConfigDel("red"));
      default:
        const auto config = vrf[0] == 'd' ? tree.routingConfig : tree.routingVrfConfigDir->vrfConfig(vrf);
        const Routing::DefaultRouterKey key(random.nextHop(), id);
        if (!config) return;
        if (!isAdded) return config->defaultRouterDelAll();
        config->defaultRouterIs(key, Routing::DefaultRouterFacts(0, 0, static_cast<int>(random.below(3)) - 1));
    }
  }
};

TEST_F(IpInterfaceSmTest, rowsAreThoseOfTheRecordsInAnyOrder) {
  machinesAre();
  for (int step = 0; step < 3000; ++step) {
    changeSomething();
    if (random.below(200) == 0) {
      machine = nullptr;
      routerMachine = nullptr;
      ASSERT_EQ(rowsOf(*ipMib), Lines()) << "its rows go with a machine";
      machinesAre();
    }
    for (const char* vrf : {"default", "red"}) {
      const auto present = mib(vrf);
      if (!present) continue;
      ASSERT_EQ(rowsOf(*present), expectedOf(vrf)) << vrf << " after step " << step;
    }
  }
}

TEST_F(IpInterfaceSmTest, changesOfRowsAreTimed) {
  Kel::Seconds now = Kel::System::currentTime();
  Kel::System::clockIs([&] { return now; });
  machinesAre();
  intfIs("eth0", 3);
  tree.l3ConfigDir->intfConfigIs(intfOf("eth0"));
  const auto protocol = tree.ip6IntfProtocol->intfProtocolIs(intfOf("eth0"));
  const auto config = tree.ip6Config->intfIs(intfOf("eth0"));
  const auto expect = [&](bool isChanged, const std::function<void()>& change) {
    const auto before = now;
    now += 10;
    change();
    EXPECT_EQ(ipMib->ipv6InterfaceTableLastChange(), isChanged ? now : before);
    if (!isChanged) now = before;
  };
  const Ip::IntfParameters parameters(true, true, 65535, 1000, 30000);
  expect(true, [&] { protocol->parametersIs(parameters); });
  expect(false, [&] { protocol->parametersIs(parameters); });
  expect(true, [&] { config->addrIs(mask6("fe80::1/64"), Ip6::AddressInfo()); });
  expect(false, [&] { config->addrIs(mask6("2001:db8::1/64"), Ip6::AddressInfo()); });
  EXPECT_EQ(ipMib->ipIfStatsTableLastChange(), 0.0);
  expect(false, [&] { tree.ip6IntfStats->intfStatsIs(intfOf("eth0")); });
  EXPECT_EQ(ipMib->ipIfStatsTableLastChange(), now + 10);
  Kel::System::clockIs({});
}

}  // namespace
}  // namespace IpSnmpTest
