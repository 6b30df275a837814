#pragma once
// Records of the store as an operator reads them: decoded keys, routes with their next hops, route types by name.

#include <optional>
#include <string>
#include <vector>

#include "ctl/StoreReader.h"
#include "quillo/tables/Records.h"

namespace Ctl {

// Two names for the type of a route: in quorinFIBStatsByRouteTypeTable ("connected"), and as the proto of ip-route(8)
// ("kernel").
struct RouteTypeName {
  const char* mib;
  const char* proto;
};

// The names for a route type number and flags as stored; "other" for an unknown number. PrefixType is the IP version.
template <class PrefixType>
RouteTypeName routeTypeName(unsigned type, bool isNexthopGroup, bool isPersistent);
// Whether the FIB statistics count the type.
template <class PrefixType>
bool isCounted(unsigned type);

// The names for a route of a VRF. The VRF's routing configuration overrides the stored flags of a static route.
template <class PrefixType>
RouteTypeName routeTypeName(StoreReader& store, const NamedVrf& vrf, const Quillo::BasicRoute<PrefixType>& route);

// Reads the next hops of routes. It caches the latest FEC, since neighbouring routes often share one.
class NextHops {
 public:
  explicit NextHops(StoreReader& store) : store_(store) {}
  // Null if the route has no FEC, or its FEC is missing or damaged; damage is passed to StoreReader::noteDamage().
  // Lifetime: the result is valid until the next call.
  const std::vector<Quillo::Fib::Via>* find(Quillo::Snapshot& snapshot, StoreReader::VrfId vrfId,
                                            Quillo::Fib::FecId fecId);

 private:
  StoreReader& store_;
  StoreReader::VrfId vrfId_;
  Quillo::Fib::Fec fec_;
};

// "10.0.0.1", "on-link", or "discard" for a via with neither address nor interface. Of a route that does not forward,
// the name of its action.
std::string hopText(const Quillo::Fib::Via& via, Routing::Fib::RouteAction action);
// An array of next hops; empty if `vias` is null. Interface names are those within `vrf` (devOf()).
Json nextHopsJson(const std::vector<Quillo::Fib::Via>* vias, const L3::VrfName& vrf);

// A decoded key: "route 10.0.0.0/8 in VRF red"; `key "\x01..." of table route (REASON)` if it cannot be decoded.
std::string keyText(StoreReader& store, Quillo::TableId table, const std::string& key);

// The fields of a key, without the VRF; null if it cannot be decoded. `what` is then the reason, a string literal; it
// is null on success.
Json keyJson(Quillo::TableId table, Quillo::Bytes key, const char*& what);

// What is wrong with the record, a string literal; null if it can be decoded.
const char* recordFault(Quillo::TableId table, Quillo::Bytes key, Quillo::Bytes value);

// A whole record for programs, with its table and every field; null if it cannot be decoded. `what` as for keyJson().
Json recordJson(StoreReader& store, Quillo::TableId table, Quillo::Bytes key, Quillo::Bytes value,
                const char*& what);

}  // namespace Ctl
