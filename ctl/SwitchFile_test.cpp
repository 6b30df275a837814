#include "ctl/SwitchFile.h"

#include <gmock/gmock.h>

#include <random>

#include "ctl/SwitchStore.h"
#include "ctl/YamlText.h"
#include "quillo/tables/FecIds.h"
#include "quillo/testing/TestStore.h"

namespace Ctl {
namespace {

using Quillo::TableId;
using Random = std::mt19937;

unsigned below(Random& random, unsigned limit) {
  return std::uniform_int_distribution<unsigned>(0, limit - 1)(random);
}
bool oneIn(Random& random, unsigned count) {
  return below(random, count) == 0;
}

std::string textOf(const SwitchState& state, const SwitchWriting& writing = {}) {
  std::string text;
  writeSwitch(state, writing, [&](std::string_view part) { text += part; });
  return text;
}

using Records = std::map<std::pair<TableId, std::string>, std::string>;

class SwitchFileTest : public Quillo::Test::TestStore {
 protected:
  Quillo::PublisherConfig at(const std::string& name) const {
    auto config = this->config();
    config.directory = parent_ + "/" + name;
    return config;
  }
  static Kel::Ptr<Quillo::Mount> mounted(const Quillo::PublisherConfig& config) {
    const auto mount = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{config.directory});
    mount->refresh();
    return mount;
  }
  static Records records(const Quillo::PublisherConfig& config) {
    Records all;
    const auto mount = mounted(config);
    const auto snapshot = mount->snapshot();
    for (const auto& table : Quillo::knownTables) {
      for (auto scan = snapshot.scan(table.id); scan.valid(); scan.next()) {
        all.emplace(std::pair(table.id, scan.key()), scan.value());
      }
    }
    return all;
  }
};

// ---- states with everything that a store can hold

const std::vector<std::string> names{"Ethernet1", "red/eth0", "a b",    "null", "on'e", "x: y", "\xff\x01", "12",
                                     "blackhole", "10.0.0.9", "back\\", "Zü",   "#",    "::1",  "- x",      "{f}"};

std::vector<Quillo::Fib::Via> randomVias(Random& random) {
  std::vector<Quillo::Fib::Via> vias(below(random, 4));
  for (auto& via : vias) {
    via.hop = oneIn(random, 2) ? Vantu::IpGenAddr(Vantu::IpAddr(below(random, 3)))
                               : Vantu::IpGenAddr(Vantu::Ip6Addr::fromString(oneIn(random, 2) ? "::" : "fe80::1"));
    if (!oneIn(random, 4)) via.intfId = Vantu::IntfId(names[below(random, 16)]);
  }
  if (oneIn(random, 2)) Quillo::sortVias(vias);
  return vias;
}

template <class PrefixType>
void addRoutes(Random& random, VrfTables& tables,
               const std::map<Quillo::Fib::FecId, std::vector<Quillo::Fib::Via>>& fecs) {
  for (unsigned number = below(random, 20); number > 0; --number) {
    Quillo::BasicRoute<PrefixType> route;
    route.prefix = PrefixType::fromString(std::is_same_v<PrefixType, Vantu::Prefix>
                                              ? "10." + std::to_string(number) + ".0.0/16"
                                              : "2001:db8:" + std::to_string(number) + "::/48");
    route.routeType = Routing::Fib::RouteType(static_cast<std::uint8_t>(1 + below(random, 40)));
    route.routePreference = Routing::RoutePreference(static_cast<std::uint8_t>(below(random, 130)));
    route.metric = Routing::RouteMetric(below(random, 3));
    route.isPersistent = !oneIn(random, 3);
    route.isNexthopGroup = oneIn(random, 3);
    route.action = Routing::Fib::RouteAction(below(random, 4));
    if (!fecs.empty())
      route.fecId = std::next(fecs.begin(), below(random, static_cast<unsigned>(fecs.size())))->first;
    tables.routesOf<PrefixType>().push_back(route);
  }
}

// Documents that no section of a VRF gives.
void disturb(Random& random, const Varnix::Tree& tree, const Vantu::IntfId& id) {
  const L3::VrfName gone("gone");
  switch (below(random, 9)) {
    case 0:
      return static_cast<void>(tree.intfStatusDir->intfStatusDel(id));
    case 1:
      return tree.l3StatusDir->intfStatusIs(id)->vrfIs(gone);
    case 2:
      return static_cast<void>(tree.l3ConfigDir->intfConfigDel(id));
    case 3:
      return tree.intfStatusDir->intfStatusIs(id)->kindIs("other kind");
    case 4:
      return tree.ipStatus->ipIntfStatusIs(id)->unnumberedIntfIdIs(Vantu::IntfId("x: y"));
    case 5:
      return tree.vrfIdStatus->vrfNameIs(VrfId(77), gone);
    case 6:
      return tree.ip6IntfStats->intfStatsIs(id)->discontinuityTimeIs(-1.5);
    case 7:
      return tree.allVrfStatusGlobal->vrfIs(gone)->stateIs(Ip::vrfStateDeleting);
    default:
      return tree.intfStatusDir->intfStatusIs(id)->ifIndexIs(below(random, 3));
  }
}

void addInterfaces(Random& random, const Varnix::Tree& tree, const L3::VrfName& vrf, std::uint32_t& ifIndex) {
  for (unsigned count = below(random, 4); count > 0; --count) {
    InterfaceSpec spec;
    spec.id = Vantu::IntfId(names[ifIndex % 16] + (ifIndex < 16 ? "" : std::to_string(ifIndex)));
    spec.ifIndex = ++ifIndex;
    spec.state = static_cast<Interface::OperStatus>(1 + below(random, 7));
    if (oneIn(random, 2)) spec.mac = Vantu::EthAddr::fromString("12:34:56:11:22:33");
    spec.adminStatus = static_cast<Interface::AdminStatus>(below(random, 3));
    spec.duplex = static_cast<Interface::Duplex>(1 + below(random, 3));
    spec.promiscuous = oneIn(random, 2);
    spec.connectorPresent = oneIn(random, 2);
    spec.alias = oneIn(random, 2) ? "" : names[below(random, 16)];
    for (auto* number : {&spec.mtu, &spec.ifType, &spec.speed, &spec.lowerIfIndex, &spec.upperIfIndex})
      *number = below(random, 3);
    for (std::uint32_t host = below(random, 3); host > 0; --host) {
      spec.ipv4.emplace_back(Vantu::IpAddr(0x0a000000 + host), 24);
      spec.ipv6.emplace_back(Vantu::Ip6AddrWithMask::fromString("2001:db8::" + std::to_string(host) + "/64"),
                             static_cast<Ip6::AddressState>(below(random, 5)));
    }
    for (auto& counters : spec.counters) {
      if (oneIn(random, 2))
        counters = {Ip::IntfCounters(1, ~0ULL, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12), 1.1, 0.1 + ifIndex};
    }
    if (oneIn(random, 2)) spec.linkCounters = Interface::LinkCounters(1, 2, below(random, 4), 4, 5, ~0ULL, 7, 8, 9);
    addInterface(tree, vrf, spec);
    if (oneIn(random, 2)) disturb(random, tree, spec.id);
  }
}

std::shared_ptr<SwitchState> randomSwitch(Random& random) {
  const auto made = std::make_shared<SwitchState>();
  SwitchState& state = *made;
  state.tree.l3Config->fecModeIs(static_cast<Quillo::Fib::FecMode>(below(random, 3)));
  std::uint32_t ifIndex = 0;
  std::vector<VrfSpec> vrfs(1);
  for (unsigned id = 1; id < 4; ++id) {
    VrfSpec spec;
    spec.name = L3::VrfName(names[below(random, 4) + 4 * id]);
    spec.id = VrfId(id * (1 + below(random, 3)) + 10 * id);
    spec.isNamespace = oneIn(random, 2);
    spec.kernelTable = 253 + below(random, 3);
    spec.forwards4 = oneIn(random, 2);
    if (oneIn(random, 2)) spec.routeDistinguisher = Vantu::RouteDistinguisher::fromString("0.65000:1");
    spec.staticRoutes6[Routing6::StaticRouteKey::fromString("::/0 200")] = Routing::StaticRouteFacts(true, false);
    vrfs.push_back(spec);
  }
  for (const auto& spec : vrfs) {
    addVrf(state.tree, spec);
    addInterfaces(random, state.tree, spec.name, ifIndex);
    for (unsigned count = below(random, 4); count > 0; --count) {
      state.neighbours.push_back({{spec.id, Vantu::IpGenAddr(Vantu::IpAddr(count)), Vantu::IntfId(names[count])},
                                  Vantu::EthAddr::fromString("02:00:00:00:00:01"),
                                  {oneIn(random, 2)}});
    }
    auto& fecs = state.tables[spec.id].fecs;
    for (unsigned count = spec.id == state.fecVrf(spec.id) ? below(random, 6) : 0; count > 0; --count) {
      const auto vias = randomVias(random);
      fecs.emplace(oneIn(random, 2) ? Quillo::fecIdOf(vias) : Quillo::Fib::FecId(count), vias);
    }
  }
  for (const auto& spec : vrfs) {
    auto& tables = state.tables[spec.id];
    const auto& fecs = state.tables[state.fecVrf(spec.id)].fecs;
    addRoutes<Vantu::Prefix>(random, tables, fecs);
    addRoutes<Vantu::Ip6Prefix>(random, tables, fecs);
  }
  return made;
}

TEST_F(SwitchFileTest, aDumpedStoreIsLoadedRecordForRecord) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    Random random(seed);
    SwitchPublisher(at("first")).publish(randomSwitch(random), {});
    const auto fail = [](const std::string& line) { ADD_FAILURE() << line; };
    const std::string text = textOf(switchFromStore(*mounted(at("first")), fail), {.leftOut = fail});
    // Into the store of the seed before, which a full pass makes equal.
    const auto copy = std::make_shared<SwitchState>(switchFromText(text, {.file = "copy"}));
    SwitchPublisher(at("second")).publish(copy, {});
    ASSERT_EQ(records(at("first")), records(at("second"))) << "seed " << seed << "\n" << text;
  }
}

TEST_F(SwitchFileTest, aDumpOfOneVrfHasItAlone) {
  const char* text = R"(
vrfs:
  red: {interfaces: {Ethernet1: {ifIndex: 7}}, routes: [{prefix: 10.0.0.0/8, via: Ethernet1}, {prefix: 0.0.0.0/0, via: Ethernet2}]}
  blue: {interfaces: {Ethernet2: }, routes: [{prefix: 11.0.0.0/8, via: Ethernet2}]}
)";
  const std::string red = textOf(switchFromText(text, {.file = "f"}), {.vrf = L3::VrfName("red")});
  EXPECT_EQ(red, R"(# A switch, as quorinctl dump wrote it. quorinctl load publishes it.
vrfs:
  red:
    id: 1
    forwarding: {ipv4: true, ipv6: true}
    interfaces:
      Ethernet1:
        ifIndex: 7
    routes:
      - {prefix: 10.0.0.0/8, via: Ethernet1, proto: static}
      - {prefix: 0.0.0.0/0, via: Ethernet2, proto: static}
absentInterfaces:
  - Ethernet2
)");
  SwitchState odd = switchFromText(text, {.file = "f"});
  odd.tree.vrfNameStatus->vrfIdIs(L3::VrfName("blue"), Vrf::VrfIdMap::VrfId(0));
  EXPECT_THROW(textOf(odd, {.vrf = L3::VrfName("blue")}), Kel::RangeException);
}

TEST_F(SwitchFileTest, countRepeatsAndCountersMove) {
  stopClock();
  const auto state = std::make_shared<SwitchState>(switchFromText(R"(
vrfs:
  red:
    interfaces:
      Ethernet9: {count: 2, ifIndex: 20, adminStatus: down, mtu: 9000, alias: '\x41 b', upperIfIndex: 1, mac: '02:00:00:00:00:ff', addresses: [10.0.255.1/24, '2001:db8:0:ffff::1/64'],
                  counters: {ipv6: {inPkts: {start: 100, perSecond: 2.5}, inMcastPkts: 40},
                             link: {inOctets: {start: 7, perSecond: 3}, inUcastPkts: {perSecond: 2}, inMulticastPkts: 5}}}
      Vlan1: {state: down, addresses: [10.9.0.1/24, 10.9.1.1/24]}
    neighbours: [{address: 10.0.0.255, interface: Vlan1, mac: '02:00:00:00:00:ff', count: 2}]
    routes: [{prefix: 10.255.0.0/16, count: 2, via: blackhole}]
)",
                                                                  {.file = "f"}));
  const InterfaceSpec second = interfaceSpec(state->tree, Vantu::IntfId("Ethernet10"));
  EXPECT_EQ(second.ifIndex, 21U);
  EXPECT_EQ(second.mac.stringValue(), "02:00:00:00:01:00");
  const auto status = state->tree.intfStatusDir->intfStatus(second.id);
  EXPECT_EQ(status->physAddress(), Kel::String("\x02\0\0\0\x01\0", 6)) << "ifPhysAddress";
  EXPECT_EQ(std::tuple(status->adminStatus(), status->mtu(), status->alias(), status->upperIfIndex()),
            std::tuple(Interface::adminStatusDown, 9000U, "A b", 1U));
  EXPECT_EQ(second.ipv4.front().stringValue(), "10.1.0.1/24");
  EXPECT_EQ(second.ipv6.front().first.stringValue(), "2001:db8:1::1/64");
  EXPECT_EQ(interfaceSpec(state->tree, Vantu::IntfId("Vlan1")).ifIndex, 1U);
  EXPECT_TRUE(state->tree.ipStatus->ipIntfStatus(Vantu::IntfId("Vlan1"))->activeAddrWithMask().address().isZero());
  EXPECT_EQ(state->neighbours[1].addr().stringValue(), "10.0.1.0");
  EXPECT_EQ(state->tables.at(VrfId(1)).routes[1].prefix.stringValue(), "11.0.0.0/16");

  SwitchPublisher publisher(at("store"));
  publisher.publish(state, {});
  now_ += 10;
  publisher.poll();
  const auto stored = switchFromStore(*mounted(at("store")), {});
  const auto read = interfaceSpec(stored.tree, second.id);
  const auto counters = read.counters[1]->counters;
  EXPECT_EQ(counters.inPkts(), 125U);
  EXPECT_EQ(counters.inUcastPkts(), 85U);
  EXPECT_EQ(read.linkCounters, Interface::LinkCounters(37, 25, 5, 0, 0, 0, 0, 0, 0));
}

// Each fault is named with its line, its key and what to write instead.
TEST_F(SwitchFileTest, wrongFilesAreRefused) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "f:1: the file: it is empty; write 'vrfs:' and the VRFs below it"},
      {"vrfs: [", "f:1: YAML: "},
      {"vrfs:\n  a: *b", "f:2: YAML: the referenced anchor is not defined"},
      {"vrfs: {a: &b , c: *b}", "f:1: YAML: aliases are not understood here; write the value out"},
      {"vrfs:\n---\nvrfs:", "f:2: YAML: a second document begins; write a file for each switch"},
      {"vrf: 1", "f:1: the file: 'vrf' is no key of it; the keys are fecMode, vrfs, absentInterfaces, documents"},
      {"fecMode: both", "f:1: fecMode: 'both' is none of its words; use unknown, perVrf, unified"},
      {"vrfs:\n  red:\n  red:", "f:3: vrfs.red: the VRF is there twice; put both together"},
      {"vrfs:\n  ? 'a\\b'\n", "f:2: vrfs: "},
      {"vrfs:\n  default:\n    id: 4", "f:3: vrfs.default.id: the default VRF has none; remove the line"},
      {"vrfs: {a: {id: 4}, b: {id: 4}}", "f:1: vrfs.b.id: vrfs.a has 4 already; write another number, or none"},
      {"vrfs:\n red:\n  id: x", "f:3: vrfs.red.id: 'x' is no number there; use 1 to 16777214"},
      {"vrfs:\n red:\n  routeDistinguisher: 1", "f:3: vrfs.red.routeDistinguisher: "},
      {"vrfs:\n red:\n  forwarding: {ipv4: maybe}",
       "f:3: vrfs.red.forwarding.ipv4: it is neither; use true or false"},
      {"vrfs:\n red:\n  interfaces:\n   e1: {state: upp}",
       "f:4: vrfs.red.interfaces.e1.state: 'upp' is none of its words; use up, down, testing, unknown, dormant, "
       "notPresent, lowerLayerDown"},
      {"vrfs:\n red:\n  interfaces:\n   e1: {mac: 1:2}", "f:4: vrfs.red.interfaces.e1.mac: "},
      {"vrfs:\n red:\n  interfaces:\n   e1:\n    addresses:\n    - 10.0.0.1/24\n    - 10.0.0.1/33",
       "f:7: vrfs.red.interfaces.e1.addresses: "},
      {"vrfs:\n red:\n  interfaces:\n   e1: {addresses: ['::1/64 fresh']}",
       "f:4: vrfs.red.interfaces.e1.addresses: 'fresh' is none of its words; use unknown, preferred, "},
      {"vrfs:\n red:\n  interfaces:\n   e1: {counters: {ipv6: {inPkgs: 1}}}",
       "f:4: vrfs.red.interfaces.e1.counters.ipv6: 'inPkgs' is no counter; the counters are inPkts, inOctets, "},
      {"vrfs:\n red:\n  interfaces:\n   e1: {counters: {link: {inPkts: 1}}}",
       "f:4: vrfs.red.interfaces.e1.counters.link: 'inPkts' is no counter; the counters are inOctets, "
       "inUcastPkts, "},
      {"vrfs:\n red:\n  interfaces:\n   e1: {counters: {ipv6: {inPkts: {perSecond: -1}}}}",
       "f:4: vrfs.red.interfaces.e1.counters.ipv6.inPkts.perSecond: '-1' is no number there; use a number of at "},
      {"vrfs:\n red:\n  interfaces:\n   Vlan: {count: 2}",
       "f:4: vrfs.red.interfaces.Vlan: a name of several interfaces ends with the first one's number; lower the "},
      {"vrfs:\n red:\n  interfaces:\n   e4294967295: {count: 2}",
       "f:4: vrfs.red.interfaces.e4294967295: the numbers in the names of these interfaces end at 4294967295; "
       "lower "},
      {"vrfs:\n red:\n  interfaces:\n   e1: {count: 3, ifIndex: 2147483646}",
       "f:4: vrfs.red.interfaces.e1: the ifIndexes end before the count does; lower the count, or write the "},
      {"vrfs:\n red: {interfaces: {e1: , e2: {ifIndex: 5}}}\n blue: {interfaces: {e1: }}",
       "f:3: vrfs.blue.interfaces.e1: the interface e1 is there twice; remove one; an interface is in one VRF"},
      {"vrfs: {red: {interfaces: {e1: {ifIndex: 5}, e2: {ifIndex: 5}}}}",
       "f:1: vrfs.red.interfaces.e2.ifIndex: e1 has 5 already; write another number, or none"},
      {"vrfs:\n red:\n  neighbours:\n  - {address: 10.0.0.1, mac: 02:00:00:00:00:01}",
       "f:4: vrfs.red.neighbours: a neighbour has address, interface and mac; write all three"},
      {"vrfs:\n red:\n  neighbours:\n  - {address: 10.0.0.1, interface: e9, mac: '02:00:00:00:00:01'}",
       "f:4: vrfs.red.neighbours.interface: there is no interface 'e9'; add it to the interfaces of a VRF, or "},
      {"vrfs:\n red:\n  routes:\n  - {via: blackhole}",
       "f:4: vrfs.red.routes: a route has no prefix; write 'prefix: ADDRESS/LENGTH'"},
      {"vrfs:\n red:\n  routes:\n  - {prefix: 10.0.0.1/8, via: blackhole}", "f:4: vrfs.red.routes.prefix: "},
      {"vrfs:\n red:\n  routes:\n  - {prefix: 10.0.0.0/8}",
       "f:4: vrfs.red.routes: the route has no via; write 'ADDRESS INTERFACE', "},
      {"vrfs:\n red:\n  routes:\n  - {prefix: 10.0.0.0/8, via: [10.0.0.300 e1]}",
       "f:4: vrfs.red.routes.via: '10.0.0.300 e1' is no next hop; write 'ADDRESS INTERFACE', "},
      {"vrfs:\n red:\n  routes:\n  - {prefix: 10.0.0.0/8, via: e1}",
       "f:4: vrfs.red.routes.via: there is no interface 'e1'; "},
      {"vrfs:\n red:\n  routes:\n  - {prefix: 10.0.0.0/8, via: blackhole, proto: ebgp}",
       "f:4: vrfs.red.routes.proto: 'ebgp' is no protocol here; use connected, static, rip, ospf, isis, bgp, "
       "other"},
      {"vrfs:\n red:\n  routes:\n  - {prefix: 10.0.0.0/8, via: blackhole, action: drop}",
       "f:4: vrfs.red.routes.action: 'drop' is no action; use forward, blackhole, unreachable, prohibit"},
      {"vrfs:\n red:\n  routes:\n  - {prefix: 10.0.0.0/8, via: blackhole}\n  - {prefix: 9.0.0.0/8, count: 2, via: "
       "blackhole}",
       "f:5: vrfs.red.routes.prefix: a route to 10.0.0.0/8 is there twice; remove one of them"},
      {"vrfs:\n red:\n  routes:\n  - {prefix: 255.0.0.0/8, count: 2, via: blackhole}",
       "f:4: vrfs.red.routes.prefix: the addresses end before the count does; "},
      {"vrfs:\n red:\n  routes:\n  - {prefix: 10.0.0.0/8, fec: 3}",
       "f:4: vrfs.red.routes.fec: there is no FEC 3; add it to the VRF's fecs, or write the next hops as via"},
      {"documents:\n- {path: ip/config}\n- {path: ip/nowhere, type: X}",
       "f:3: documents.path: there is no place for it"},
      {"documents:\n- {path: l3/config, attributes: {fecMode: 7}}", "f:2: documents.attributes.fecMode: "},
      {"documents:\n- {path: l3/config, absent: true}",
       "f:2: documents.path: no document there can be absent; remove the entry"},
  };
  for (const auto& [text, message] : cases) {
    try {
      switchFromText(text, {.file = "f"});
      ADD_FAILURE() << "accepted:\n" << text;
    } catch (const YamlException& error) {
      EXPECT_THAT(error.what(), testing::StartsWith(message)) << text;
      EXPECT_THAT(error.what(), testing::HasSubstr("; ")) << text;
    }
  }
}

}  // namespace
}  // namespace Ctl
