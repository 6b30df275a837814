#pragma once
// A whole switch in memory: everything that a store can hold.
//
//   SwitchState state;
//   addVrf(state.tree, {.name = L3::VrfName("red"), .id = VrfId(1)});
//   addInterface(state.tree, L3::VrfName("red"), {.id = Vantu::IntfId("Ethernet1"), .ifIndex = 1});
//   state.tables[VrfId(1)].routes.push_back(route);
//
// addVrf() and addInterface() write the documents that quorin-mirrord writes for a VRF and an interface. VrfSpec and
// InterfaceSpec hold what these documents say. All other documents are in the tree only.

#include <array>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "kel/System.h"
#include "quillo/tables/ArpTable.h"
#include "quillo/tables/FibTables.h"
#include "varnix/Tree.h"

namespace Ctl {

using ::Vrf::VrfIdMap::VrfId;

// The routes and FECs that the store holds under one VRF id.
struct VrfTables {
  std::vector<Quillo::BasicRoute<Vantu::Prefix>> routes;
  std::vector<Quillo::BasicRoute<Vantu::Ip6Prefix>> routes6;
  std::map<Quillo::Fib::FecId, std::vector<Quillo::Fib::Via>> fecs;

  template <class PrefixType>
  auto& routesOf() {
    if constexpr (std::is_same_v<PrefixType, Vantu::Prefix>) {
      return routes;
    } else {
      return routes6;
    }
  }
};

// The counters of one interface that grow with time: those of an IP version, or those of all protocols.
struct MovingCounters {
  struct Counter {
    std::string name;  // of a field of Ip::IntfCounters or Interface::LinkCounters
    std::uint64_t start = 0;
    double perSecond = 0;
  };
  std::variant<Kel::Ptr<Ip::IntfStats>, Kel::Ptr<Interface::IntfCounters>> record;
  std::vector<Counter> counters;  // all fields

  // Sets the record's counters to their values `seconds` after the start; they wrap at 2^64.
  void set(Kel::Seconds seconds) const;
};

struct SwitchState {
  Varnix::Tree tree{Kel::makePtr<Kel::Dir>("")};
  std::vector<Arp::Table::ArpEntry> neighbours;
  std::map<VrfId, VrfTables> tables;
  std::vector<MovingCounters> moving;  // of interfaces with a counter that moves

  // The VRF id under which the FECs of a VRF's routes are: in unified mode, that of the default VRF.
  VrfId fecVrf(const VrfId& vrfId) const {
    return tree.l3Config->fecMode() == Quillo::Fib::fecModeUnified ? VrfId(0) : vrfId;
  }
  // The number of routes, of both IP versions and all VRFs.
  std::size_t routes() const;
};

struct VrfSpec {
  L3::VrfName name = {};
  VrfId id{0};
  Vantu::RouteDistinguisher routeDistinguisher = {};
  bool isNamespace = false;
  std::uint32_t kernelTable = 254;  // RT_TABLE_MAIN
  bool forwards4 = true;
  bool forwards6 = true;
  std::map<Routing::StaticRouteKey, Routing::StaticRouteFacts> staticRoutes = {};
  std::map<Routing6::StaticRouteKey, Routing::StaticRouteFacts> staticRoutes6 = {};
};

// The counters of one interface and IP version: the attributes of Ip::IntfStats (varnix/Interface.h).
struct CounterSpec {
  Ip::IntfCounters counters;
  double discontinuityTime = 0;
  double utcOffset = 0;
};

struct InterfaceSpec {
  Vantu::IntfId id = {};
  std::uint32_t ifIndex = 0;
  Interface::OperStatus state = Interface::operStatusUp;
  Interface::AdminStatus adminStatus = Interface::adminStatusUp;
  std::uint32_t ifType = 1;
  std::uint32_t mtu = 0;
  Vantu::EthAddr mac = {};  // also the physical address
  Kel::String alias = {};
  std::uint32_t speed = 0;
  Interface::Duplex duplex = Interface::duplexUnknown;
  bool promiscuous = false;
  bool connectorPresent = false;
  std::uint32_t lowerIfIndex = 0;
  std::uint32_t upperIfIndex = 0;
  std::vector<Vantu::IpAddrWithMask> ipv4 = {};  // the primary one first
  std::vector<std::pair<Vantu::Ip6AddrWithMask, Ip6::AddressState>> ipv6 = {};
  std::array<std::optional<CounterSpec>, 2> counters = {};  // IPv4, IPv6
  std::optional<Interface::LinkCounters> linkCounters = {};

  // Whether the addresses are in effect: the kernel's IFF_RUNNING.
  bool isRunning() const { return state == Interface::operStatusUp || state == Interface::operStatusUnknown; }
};

// The directory of the counters of one IP version. `version`: 0 for IPv4, 1 for IPv6.
inline const Kel::Ptr<Ip::AllIntfStats>& statsOf(const Varnix::Tree& tree, std::size_t version) {
  return version == 0 ? tree.ipIntfStats : tree.ip6IntfStats;
}

void addVrf(const Varnix::Tree& tree, const VrfSpec& spec);
// Requires: the VRF was added.
void addInterface(const Varnix::Tree& tree, const L3::VrfName& vrf, const InterfaceSpec& spec);

// Read the documents of a VRF and of an interface. Fields without a document have their defaults.
VrfSpec vrfSpec(const Varnix::Tree& tree, const L3::VrfName& name, const VrfId& id);
InterfaceSpec interfaceSpec(const Varnix::Tree& tree, const Vantu::IntfId& id);

}  // namespace Ctl
