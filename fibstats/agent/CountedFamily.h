#pragma once
// Traits of the route statistics of IPv4 (Ip4Routes) and IPv6 (Ip6Routes): tables, and the route type of each publisher
// type number (docs/mirror.md lists the mirror's).

#include <optional>

#include "fibstats/FibStatsMib.h"
#include "quillo/tables/ArpTable.h"
#include "quillo/tables/FibTables.h"
#include "varnix/Routing.h"
#include "varnix/Values.h"

namespace FibStatsSnmp {

struct Ip4Routes {
  using Prefix = Vantu::Prefix;
  using RouteStatus = Quillo::Fib::RouteStatus;
  using Config = Routing::Config;
  using StaticRouteKey = Routing::StaticRouteKey;
  static constexpr Ip::IpVersion version = Ip::ipVersion4;
  static constexpr const char* text = "IPv4";
  static constexpr unsigned hostLength = 32;

  // Whether routes of this type are left out: number 0, the attached type (its hosts count as neighbours), and one type
  // number that the statistics omit. Types that map to routeTypeInternal do count.
  static bool isSkipped(unsigned routeType);
  // None for static routes, whose kind does not follow from the number.
  static std::optional<RouteType> typeOf(unsigned routeType);

  // The host route to an address. Throws Kel::RangeException for an address of the other IP version.
  static Prefix host(const Vantu::IpGenAddr& address) { return {address.v4(), hostLength}; }
  static bool isCountedHost(const Vantu::IpGenAddr&) { return true; }
  static Arp::Table::ArpEntry neighbour(const Arp::Table::Status& table, const Arp::Table::ArpKey& key) {
    return table.arpEntry(key);
  }
  // Visits the VRF's neighbours from the address `from` on, until `visit` returns false. Throws for damage after
  // visiting all readable ones.
  static void forEachNeighbour(const Arp::Table::Status& table, const Vrf::VrfIdMap::VrfId& vrfId,
                               const Vantu::IpGenAddr& from, const Arp::Table::Status::VisitWhile& visit) {
    table.forEachArpEntry(vrfId, from, visit);
  }
};

struct Ip6Routes {
  using Prefix = Vantu::Ip6Prefix;
  using RouteStatus = Quillo::Fib6::RouteStatus;
  using Config = Routing6::Config;
  using StaticRouteKey = Routing6::StaticRouteKey;
  static constexpr Ip::IpVersion version = Ip::ipVersion6;
  static constexpr const char* text = "IPv6";
  static constexpr unsigned hostLength = 128;

  static bool isSkipped(unsigned routeType);
  static std::optional<RouteType> typeOf(unsigned routeType);

  static Prefix host(const Vantu::IpGenAddr& address) { return {address.v6(), hostLength}; }
  // Link-local hosts do not count as routes, since fe80::/10 is on every interface.
  static bool isCountedHost(const Vantu::IpGenAddr& address) { return !address.isLinkLocal(); }
  static Arp::Table::ArpEntry neighbour(const Arp::Table::Status& table, const Arp::Table::ArpKey& key) {
    return table.neighborEntry(key);
  }
  static void forEachNeighbour(const Arp::Table::Status& table, const Vrf::VrfIdMap::VrfId& vrfId,
                               const Vantu::IpGenAddr& from, const Arp::Table::Status::VisitWhile& visit) {
    table.forEachNeighborEntry(vrfId, from, visit);
  }
};

}  // namespace FibStatsSnmp
