#pragma once
// Adds routes to the network namespace of the process.

#include <cstdint>
#include <vector>

#include "RouteSet.h"

struct mnl_socket;

namespace Bench {

class RouteLoader {
 public:
  // Throws std::runtime_error if rtnetlink cannot be opened, or an interface of the set is missing. Lifetime: `set`
  // must outlive this object.
  RouteLoader(const RouteSet& set, bool isIpv6);
  ~RouteLoader();
  RouteLoader(const RouteLoader&) = delete;
  RouteLoader& operator=(const RouteLoader&) = delete;

  // Return once the kernel has added or deleted the routes. Requires: the routes are of the set, or
  // RouteSet::unusedRoute(). Throw std::runtime_error if the kernel refuses a route, such as one that exists already.
  // The kernel still processes the other routes of the same batch of 32 KiB, but gets no later batch. Do not use the
  // object after an exception: its socket may still hold answers to that batch.
  void add(const std::vector<Route>& routes);
  void add(const Route& route) { change(true, {route}); }
  void del(const Route& route) { change(false, {route}); }

 private:
  void change(bool isThere, const std::vector<Route>& routes);
  void send(std::vector<char>& batch, std::uint32_t firstSequence, std::uint32_t lastSequence);
  const RouteSet& set_;
  const bool isIpv6_;
  mnl_socket* socket_;
  std::uint32_t sequence_ = 0;
  std::vector<std::uint32_t> ifIndex_;  // of each of the set's interfaces
};

}  // namespace Bench
