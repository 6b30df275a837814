#pragma once
// What tells the statistics of IPv4 routes from those of IPv6 routes: their tables, and what the numbers of the
// routing platform's route types mean.

#include <optional>

#include "fibstats/RouteType.h"
#include "quillo/tables/ArpTable.h"
#include "quillo/tables/FibTables.h"
#include "varnix/IpVersion.h"
#include "varnix/Routing.h"

namespace FibStatsSnmp {

struct Ip4Routes {
  using Prefix = Vantu::Prefix;
  using RouteStatus = Quillo::Fib::RouteStatus;
  using Config = Routing::Config;
  using StaticRouteKey = Routing::StaticRouteKey;
  static constexpr Ip::IpVersion version = Ip::ipVersion4;
  static constexpr const char* text = "IPv4";
  static constexpr unsigned hostLength = 32;

  // Routes of this type are not counted: they are the platform's own, or counted as the neighbours that they are.
  static bool isSkipped(unsigned routeType);
  // Nothing for static routes, of which the number alone does not tell the kind.
  static std::optional<RouteType> typeOf(unsigned routeType);

  // Throws Kel::RangeException for an address of the other IP version.
  static Prefix host(const Vantu::IpGenAddr& address) { return {address.v4(), hostLength}; }
  static bool isCountedHost(const Vantu::IpGenAddr&) { return true; }
  static Arp::Table::ArpEntry neighbour(const Arp::Table::Status& table, const Arp::Table::ArpKey& key) {
    return table.arpEntry(key);
  }
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
  // fe80::/10 is on every interface; its hosts say nothing of where routes lead.
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
