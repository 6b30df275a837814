#pragma once
// Records of the store as an operator reads them: decoded keys, routes with their next hops, route types by name.

#include <optional>
#include <string>
#include <vector>

#include "ctl/StoreReader.h"
#include "quillo/tables/Records.h"

namespace Ctl {

// The name of a route's type in quorinFIBStatsByRouteTypeTable ("connected"), and its origin as ip-route(8) has it
// ("kernel").
struct RouteTypeName {
  const char* mib;
  const char* proto;
};

// Of a record as a publisher wrote it. `isCounted` is false for types that the FIB statistics leave out.
template <class PrefixType>
RouteTypeName routeTypeName(unsigned type, bool isNexthopGroup, bool isPersistent);
template <class PrefixType>
bool isCounted(unsigned type);

// The same of a route in a VRF, whose configuration may say more.
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

// "10.0.0.1", "on-link", or "discard" for a via that leads nowhere.
std::string hopText(const Quillo::Fib::Via& via);
Json nextHopsJson(const std::vector<Quillo::Fib::Via>* vias, const L3::VrfName& vrf);

// A decoded key: "route 10.0.0.0/8 in VRF red"; "key \x01..." if it cannot be decoded.
std::string keyText(StoreReader& store, Quillo::TableId table, const std::string& key);

// The fields of a key, without the VRF. Null, and `what` is set, when it cannot be decoded.
Json keyJson(Quillo::TableId table, Quillo::Bytes key, const char*& what);

// Null, or what is wrong with the record.
const char* recordFault(Quillo::TableId table, Quillo::Bytes key, Quillo::Bytes value);

// A whole record for programs, with its table and every field. Null, and `what` is set, when it cannot be decoded.
Json recordJson(StoreReader& store, Quillo::TableId table, Quillo::Bytes key, Quillo::Bytes value,
                const char*& what);

}  // namespace Ctl
