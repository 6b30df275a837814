#pragma once
// A whole switch in memory: the contents of a store, apart from any store.
//
//   SwitchState state;
//   addVrf(state.tree, {.name = L3::VrfName("red"), .id = VrfId(1)});
//   addInterface(state.tree, L3::VrfName("red"), {.id = Vantu::IntfId("Ethernet1"), .ifIndex = 1});
//   state.tables[VrfId(1)].routes.push_back(route);
//
// The two operations write the documents that quorin-mirrord writes for a VRF and an interface; the specs hold what
// these documents say. Documents that differ from that are in the tree and in no spec.

#include <array>
#include <map>
#include <optional>
#include <string>
#include <utility>
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

// The counters of one interface and IP version that grow with time.
struct MovingCounters {
  struct Counter {
    std::string name;  // of a field of Ip::IntfCounters
    std::uint64_t start = 0;
    double perSecond = 0;
  };
  Kel::Ptr<Ip::IntfStats> record;
  std::vector<Counter> counters;  // all fields

  // Writes the values of `seconds` after the start into the record.
  void set(Kel::Seconds seconds) const;
};

struct SwitchState {
  Varnix::Tree tree{Kel::makePtr<Kel::Dir>("")};
  std::vector<Arp::Table::ArpEntry> neighbours;
  std::map<VrfId, VrfTables> tables;
  std::vector<MovingCounters> moving;

  // The VRF id under which the FECs of a VRF's routes are.
  VrfId fecVrf(const VrfId& vrfId) const {
    return tree.l3Config->fecMode() == Quillo::Fib::fecModeUnified ? VrfId(0) : vrfId;
  }
  std::size_t routes() const;
};

struct VrfSpec {
  L3::VrfName name = {};
  VrfId id{0};
  Vantu::RouteDistinguisher routeDistinguisher = {};
  bool isNamespace = false;
  std::uint32_t kernelTable = 254;
  bool forwards4 = true;
  bool forwards6 = true;
  std::map<Routing::StaticRouteKey, Routing::StaticRouteFacts> staticRoutes = {};
  std::map<Routing6::StaticRouteKey, Routing::StaticRouteFacts> staticRoutes6 = {};
};

struct CounterSpec {
  Ip::IntfCounters counters;
  double discontinuityTime = 0;
  double utcOffset = 0;
};

struct InterfaceSpec {
  Vantu::IntfId id = {};
  std::uint32_t ifIndex = 0;
  Interface::OperStatus state = Interface::operStatusUp;
  Vantu::EthAddr mac = {};
  std::vector<Vantu::IpAddrWithMask> ipv4 = {};  // the primary one first
  std::vector<std::pair<Vantu::Ip6AddrWithMask, Ip6::AddressState>> ipv6 = {};
  std::array<std::optional<CounterSpec>, 2> counters = {};  // IPv4, IPv6

  // Whether the addresses are in effect: as the kernel's IFF_RUNNING.
  bool isRunning() const { return state == Interface::operStatusUp || state == Interface::operStatusUnknown; }
};

// The directory of the counters of one IP version: 0 is IPv4, 1 is IPv6.
inline const Kel::Ptr<Ip::AllIntfStats>& statsOf(const Varnix::Tree& tree, std::size_t version) {
  return version == 0 ? tree.ipIntfStats : tree.ip6IntfStats;
}

void addVrf(const Varnix::Tree& tree, const VrfSpec& spec);
// Requires: the VRF was added.
void addInterface(const Varnix::Tree& tree, const L3::VrfName& vrf, const InterfaceSpec& spec);

// What the documents say; fields without a document have their defaults.
VrfSpec vrfSpec(const Varnix::Tree& tree, const L3::VrfName& name, const VrfId& id);
InterfaceSpec interfaceSpec(const Varnix::Tree& tree, const Vantu::IntfId& id);

}  // namespace Ctl
