#pragma once
// Adds routes to the network namespace of the process.

#include <cstdint>
#include <vector>

#include "RouteSet.h"

struct mnl_socket;

namespace Bench {

class RouteLoader {
 public:
  // Throws std::runtime_error without rtnetlink, or if an interface of the set is missing.
  explicit RouteLoader(const RouteSet& set);
  ~RouteLoader();
  RouteLoader(const RouteLoader&) = delete;
  RouteLoader& operator=(const RouteLoader&) = delete;

  // Return when the kernel has all routes. Throw std::runtime_error that names a refused route.
  void add(const std::vector<Route>& routes);
  void add(const Route& route) { change(true, {route}); }
  void del(const Route& route) { change(false, {route}); }

 private:
  void change(bool isThere, const std::vector<Route>& routes);
  void send(std::vector<char>& batch, std::uint32_t firstSequence, std::uint32_t lastSequence);
  const RouteSet& set_;
  mnl_socket* socket_;
  std::uint32_t sequence_ = 0;
  std::vector<std::uint32_t> ifIndex_;  // of each of the set's interfaces
};

}  // namespace Bench
