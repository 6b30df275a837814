#pragma once
// For tests: the shared tables of one VRF, the cache over them, and a model of the rows.
//
// The model finds a row by examining all plain entries one after the other. The test itself, or a state machine,
// derives the cache's prefixes and next hops from the tables.

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "ipsnmp/IpCidrRouteTableIteratorConst.h"
#include "kel/testing/TraceLines.h"
#include "quillo/testing/TestFibTables.h"

namespace IpSnmpTest {

using IpSnmp::IpCidrRouteTableEntry;
using IpSnmp::IpCidrRouteTableIndex;
using Kel::Ptr;
using KelTest::TraceLines;
using Quillo::Fib::FecId;
using RouteIterator = IpSnmp::IpForwardMib::IpCidrRouteTableIteratorConst;

inline Vantu::IpAddr ip(std::string_view text) {
  return Vantu::IpAddr::fromString(text);
}
inline Vantu::Prefix prefixOf(std::string_view text) {
  return Vantu::Prefix::fromString(text);
}
// "10.0.0.0/24 10.1.1.1 if3 type4 proto7 metric10 pref1"
inline std::string rowText(const IpCidrRouteTableEntry& row) {
  unsigned length = 0;
  while (length < 32 && row.index().mask() != Vantu::IpAddr::netmask(length)) ++length;
  return fmt::format("{}/{} {} if{} type{} proto{} metric{} pref{}", row.index().dest().stringValue(), length,
                     row.index().nextHop().stringValue(), row.ifIndex(), row.type(), row.protocol().value(),
                     row.metric().value(), row.preference().value());
}

inline std::vector<std::string> rowTextsOf(const Ptr<IpSnmp::IpForwardMib>& mib) {
  std::vector<std::string> texts;
  for (RouteIterator at(mib); at; ++at) texts.push_back(rowText(*at));
  return texts;
}

struct Hop {
  std::string addr;
  std::string intf;
};

struct RouteTables {
  Ptr<Quillo::TestRouteStatus<Vantu::Prefix>> routes = Kel::makePtr<Quillo::TestRouteStatus<Vantu::Prefix>>();
  Ptr<Quillo::TestRouteStatus<Vantu::Ip6Prefix>> routes6 =
      Kel::makePtr<Quillo::TestRouteStatus<Vantu::Ip6Prefix>>();
  Ptr<Quillo::TestForwardingStatus> fecs = Kel::makePtr<Quillo::TestForwardingStatus>();
  Ptr<IntfSnmp::IfMib> ifMib = Kel::makePtr<IntfSnmp::IfMib>("ifMib");
  Ptr<IpSnmp::IpForwardMib> mib = Kel::makePtr<IpSnmp::IpForwardMib>("ipforwardmib");

  void intfIs(std::string_view name, std::int32_t ifIndex) {
    ifMib->ifIndexByIntfIdIs(Vantu::IntfId(name), ifIndex);
  }
  static Quillo::Fib::Route route(const Vantu::Prefix& prefix, unsigned fecId, unsigned type = 7) {
    Quillo::Fib::Route made;
    made.prefix = prefix;
    made.routeType = Routing::Fib::RouteType(static_cast<std::uint8_t>(type));
    made.metric = Routing::RouteMetric(10);
    made.routePreference = Routing::RoutePreference(1);
    made.fecId = FecId(fecId);
    return made;
  }
  static Quillo::Fib::Fec fec(unsigned fecId, const std::vector<Hop>& hops) {
    Quillo::Fib::Fec made;
    made.fecId = FecId(fecId);
    for (const auto& hop : hops)
      made.via.push_back({Vantu::IpGenAddr::fromString(hop.addr), Vantu::IntfId(hop.intf)});
    return made;
  }
  void routeIs(std::string_view prefix, unsigned fecId, unsigned type = 7) {
    routes->routeIs(route(prefixOf(prefix), fecId, type));
  }
  void fecIs(unsigned fecId, const std::vector<Hop>& hops) { fecs->fecIs(fec(fecId, hops)); }

  std::vector<IpCidrRouteTableEntry> rows() const {
    std::vector<IpCidrRouteTableEntry> all;
    for (RouteIterator at(mib); at; ++at) all.push_back(*at);
    return all;
  }
  std::vector<std::string> rowTexts() const { return rowTextsOf(mib); }
};

class RouteModel {
 public:
  struct Derived {
    std::map<std::pair<std::uint32_t, unsigned>, Vantu::Prefix> order;  // by address, then length
    std::map<FecId, std::map<std::uint32_t, unsigned>> nextHops;        // next hop -> via
  };
  explicit RouteModel(const RouteTables& tables) : tables_(tables) {}

  Derived settled() const {
    Derived made;
    for (const auto& [prefix, route] : tables_.routes->map) {
      if (!tables_.routes->damagedEntries.contains(prefix)) {
        made.order.emplace(std::pair(prefix.address().value(), prefix.length()), prefix);
      }
    }
    for (const auto& [fecId, fec] : tables_.fecs->map) {
      if (tables_.fecs->damagedEntries.contains(fecId)) continue;
      auto& hops = made.nextHops[fecId];
      for (unsigned i = 0; i < fec.via.size(); ++i) {
        if (fec.via[i].hop.af() == Vantu::ipv4_) hops[fec.via[i].hop.v4().value()] = i;
      }
    }
    return made;
  }

  std::vector<IpCidrRouteTableEntry> rows(const Derived& derived) const {
    std::vector<IpCidrRouteTableEntry> all;
    for (const auto& [key, prefix] : derived.order) rowsOf(derived, prefix, all);
    return all;
  }

  std::optional<IpCidrRouteTableEntry> fetch(const Derived& derived, const IpCidrRouteTableIndex& index,
                                             bool getNext) const {
    unsigned length = 0;
    while (length < 32 && (index.mask().value() & (0x80000000U >> length))) ++length;
    bool isFirst = true;
    for (const auto& [key, prefix] : derived.order) {
      if (key < std::pair(index.dest().value(), length)) continue;
      std::vector<IpCidrRouteTableEntry> candidates;
      rowsOf(derived, prefix, candidates);
      for (const auto& row : candidates) {
        if (isFirst && row.index().nextHop().value() < index.nextHop().value()) continue;
        if (getNext && row.index() == index) continue;
        return row;
      }
      isFirst = false;
    }
    return std::nullopt;
  }

 private:
  void rowsOf(const Derived& derived, const Vantu::Prefix& prefix, std::vector<IpCidrRouteTableEntry>& into) const {
    const auto route = tables_.routes->map.find(prefix);
    if (route == tables_.routes->map.end() || tables_.routes->damagedEntries.contains(prefix)) return;
    const std::set<unsigned> rejected{0, 1, 3, 5};
    if (rejected.contains(route->second.routeType.value())) return;
    const auto fecId = route->second.fecId;
    const auto fec = tables_.fecs->map.find(fecId);
    if (fec == tables_.fecs->map.end() || tables_.fecs->damagedEntries.contains(fecId)) return;
    const auto hops = derived.nextHops.find(fecId);
    if (hops == derived.nextHops.end()) return;
    for (const auto& [hop, via] : hops->second) {
      if (via >= fec->second.via.size()) continue;
      const auto intf = fec->second.via[via].intfId.text();
      const auto* known = tables_.ifMib->ifIndexByIntfId(Vantu::IntfId(intf));
      const std::int32_t ifIndex = known ? *known : 0;
      const bool isTunnel = intf.find("DynamicTunnel") != std::string::npos;
      if (!intf.empty() && (isTunnel || ifIndex == 0)) continue;
      const std::int32_t type = hop == 0 ? 3 : intf.empty() ? 1 : 4;
      into.emplace_back(IpCidrRouteTableIndex(prefix.address(), prefix.netmask(), 0, Vantu::IpAddr(hop)),
                        static_cast<std::uint32_t>(intf.empty() ? 0 : ifIndex), route->second.metric,
                        route->second.routePreference, route->second.routeType, type);
    }
  }

  const RouteTables& tables_;
};

// The cache over the tables, with prefixes and next hops as a test sets them.
struct SettledRoutes : RouteTables {
  Ptr<IpSnmp::FecsAndPrefixes> prefixes = Kel::makePtr<IpSnmp::FecsAndPrefixes>();
  Ptr<IpSnmp::IpForwardFecs> forwardFecs = Kel::makePtr<IpSnmp::IpForwardFecs>();
  RouteModel model{*this};
  RouteModel::Derived derived;

  explicit SettledRoutes(Ptr<IpSnmp::IpForwardMib> cache = Kel::makePtr<IpSnmp::IpForwardMib>("ipforwardmib")) {
    mib = std::move(cache);
    prefixes->forwardFecsIs(forwardFecs);
    mib->routeStatusIs(routes);
    mib->route6StatusIs(routes6);
    mib->vrfForwardingStatusIs(fecs);
    mib->fecsAndPrefixesIs(prefixes);
    mib->ifMibIs(ifMib);
  }
  void settle() {
    derived = model.settled();
    prefixes->orderedPrefixDelAll();
    forwardFecs->forwardFecDelAll();
    for (const auto& [key, prefix] : derived.order) prefixes->orderedPrefixIs(prefix.addrWithMask(), true);
    for (const auto& [fecId, hops] : derived.nextHops) {
      const auto fec = forwardFecs->forwardFecIs(fecId);
      for (const auto& [hop, via] : hops) fec->nextHopIs(Vantu::IpAddr(hop), Quillo::Fib::ViaIndex(via));
    }
  }
};

// Changes the tables at random: adjacent and nested prefixes, FECs that are added and deleted independently of their
// routes, interfaces of every kind.
struct RandomRoutes {
  std::mt19937 engine;
  explicit RandomRoutes(unsigned seed) : engine(seed) {}
  unsigned below(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(engine); }

  Vantu::IpAddr anyAddress() { return Vantu::IpAddr(static_cast<std::uint32_t>(engine())); }
  Vantu::IpAddr address() {
    const std::uint32_t highest[] = {0, 0x0A000000, 0x0A010000, 0x80000000, 0xFFFFFF00};
    return Vantu::IpAddr(highest[below(5)] | below(4) << 6);
  }
  Vantu::Prefix prefix() { return {address(), below(6) ? 22 + below(11) : below(33)}; }
  Vantu::IpAddr nextHop() { return below(5) ? Vantu::IpAddr(0x0A090900U + below(6)) : Vantu::IpAddr(); }
  Vantu::IntfId intf() {
    const char* names[] = {"eth0",    "eth1", "red/eth0", "", "DynamicTunnel1", "red/DynamicTunnel2",
                           "unknown", "none0"};
    return Vantu::IntfId(names[below(8)]);
  }
  IpCidrRouteTableIndex index() {
    const auto mask = below(4) ? Vantu::IpAddr::netmask(22 + below(11)) : anyAddress();
    return IpCidrRouteTableIndex(below(8) ? address() : anyAddress(), mask, below(3) ? 0 : below(3), nextHop());
  }

  void intfs(RouteTables& tables) {
    tables.intfIs("eth0", 3);
    tables.intfIs("eth1", 2147483647);
    tables.intfIs("red/eth0", 1048579);
    tables.intfIs("DynamicTunnel1", 9);
    tables.intfIs("none0", 0);
  }
  // Damages a route and a FEC, or repairs them.
  void damage(RouteTables& tables, bool areNotified) {
    const auto toggle = [&](auto& table, const auto& key, auto write) {
      if (!table.damagedEntries.erase(key)) table.damagedEntries[key] = "checksum";
      if (areNotified && table.map.contains(key)) (table.*write)(table.map[key]);
    };
    toggle(*tables.routes, prefix(), &Quillo::TestRouteStatus<Vantu::Prefix>::routeIs);
    toggle(*tables.fecs, FecId(1 + below(8)), &Quillo::TestForwardingStatus::fecIs);
  }
  Routing::Fib::RouteAction action() { return Routing::Fib::RouteAction(below(8) ? 0 : below(4)); }
  void change6(RouteTables& tables) {
    Quillo::Fib6::Route made;
    Vantu::Ip6Addr::Bytes bytes{static_cast<std::uint8_t>(below(2) * 0xfe),
                                static_cast<std::uint8_t>(below(3) << 6)};
    bytes[15] = static_cast<std::uint8_t>(below(3));
    made.prefix = Vantu::Ip6Prefix(Vantu::Ip6Addr(bytes), below(4) ? 120 + below(9) : below(129));
    made.routeType = Routing::Fib::RouteType(static_cast<std::uint8_t>(1 + below(20)));
    made.metric = Routing::RouteMetric(below(3));
    made.fecId = FecId(1 + below(9));
    made.action = action();
    if (below(4)) return tables.routes6->routeIs(made);
    tables.routes6->routeDel(made.prefix);
  }
  void change(RouteTables& tables) {
    if (below(3) == 0) change6(tables);
    switch (below(8)) {
      case 0:
        return tables.routes->routeDel(prefix());
      case 1:
        return tables.fecs->fecDel(FecId(1 + below(8)));
      case 2: {
        auto fec = RouteTables::fec(1 + below(8), {});
        for (unsigned left = below(5); left > 0; --left) fec.via.push_back({nextHop(), intf()});
        for (unsigned left = below(10) ? 0 : 3; left > 0; --left) {
          fec.via.push_back({Vantu::IpGenAddr::fromString(below(3) ? "fe80::1" : "::"), intf()});
        }
        return tables.fecs->fecIs(fec);
      }
      case 3:
        return below(2) ? tables.intfIs("eth0", static_cast<std::int32_t>(below(3)))
                        : void(tables.ifMib->ifIndexByIntfIdDel(Vantu::IntfId("eth1")));
      default: {
        auto made = RouteTables::route(prefix(), 1 + below(9), below(4) ? 7 + below(20) : below(7));
        made.action = action();
        return tables.routes->routeIs(made);
      }
    }
  }
};

}  // namespace IpSnmpTest
