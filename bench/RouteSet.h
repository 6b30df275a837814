#pragma once
// The routes that bench/routes adds to the kernel: the same for every agent and in every run. A set of n routes has the
// first n routes of every larger set.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Bench {

struct NextHop {
  std::uint32_t gateway = 0;  // host order
  unsigned interface = 0;     // index in RouteSet::interfaces()
};

struct Interface {
  std::string name;
  std::string address;  // with prefix length; the gateways are in its network
  std::string address6;
};

// The routes can be those of IPv6 instead: each prefix and each gateway of IPv4 stands for one of IPv6.
using Address6 = std::array<std::uint8_t, 16>;
constexpr unsigned length6(unsigned length) {
  return length + 16;
}
constexpr Address6 prefix6(std::uint32_t prefix) {  // 2a00:wwww:wwww::
  const auto byte = [prefix](unsigned shift) { return static_cast<std::uint8_t>(prefix >> shift); };
  return {0x2A, 0, byte(24), byte(16), byte(8), byte(0)};
}
constexpr Address6 gateway6(std::uint32_t gateway) {  // fd00::wwww:wwww
  const auto byte = [gateway](unsigned shift) { return static_cast<std::uint8_t>(gateway >> shift); };
  return {0xFD, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, byte(24), byte(16), byte(8), byte(0)};
}

// The netmask of a prefix length, in host order.
constexpr std::uint32_t mask(unsigned length) {
  return length == 0 ? 0 : ~std::uint32_t{0} << (32 - length);
}

struct Route {
  std::uint32_t prefix = 0;  // host order
  std::uint8_t length = 0;
  std::uint16_t nextHops = 0;  // index of its set of next hops, for RouteSet::nextHops()
};

class RouteSet {
 public:
  // Lengths are distributed as in the Internet's table: 60 % are /24, few are shorter than /16 or longer than /24.
  explicit RouteSet(std::uint32_t routes);

  const std::vector<Route>& routes() const { return routes_; }
  // The next hops of a route, one to four, in ascending order of the gateway. One route in ten has several.
  const std::vector<NextHop>& nextHops(const Route& route) const { return nextHopSets_[route.nextHops]; }
  std::size_t nextHopSets() const { return nextHopSets_.size(); }
  // The sum of the numbers of next hops of all routes.
  std::uint64_t hops() const;

  static const std::vector<Interface>& interfaces();
  // A /30 in 198.18.0.0/15, which no set uses, with next-hop set 0. `number` counts modulo 32,768.
  static Route unusedRoute(std::uint32_t number);

 private:
  void makeNextHopSets();
  void makeRoutes(std::uint32_t count);
  std::vector<std::vector<NextHop>> nextHopSets_;
  std::vector<Route> routes_;
};
}  // namespace Bench
