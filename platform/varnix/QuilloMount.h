#pragma once
// Finds the shared tables of a VRF by their paths in the state database. V is the VRF's name, "default" for the
// default VRF:
//
// | path                    | type                          |
// |-------------------------|-------------------------------|
// | routing/vrf/status/V    | Quillo::Fib::RouteStatus      |
// | routing6/vrf/status/V   | Quillo::Fib6::RouteStatus     |
// | forwarding/vrf/status/V | Quillo::Fib::ForwardingStatus |
//
// All are read-only. Where one table of FECs serves all VRFs, it is the default VRF's table.

#include <string_view>

#include "quillo/tables/FibMount.h"
#include "varnix/Vrf.h"

namespace KelQuillo {

inline constexpr const char* routeStatusPath = "routing/vrf/status/{}";
inline constexpr const char* route6StatusPath = "routing6/vrf/status/{}";
inline constexpr const char* forwardingStatusPath = "forwarding/vrf/status/{}";

class Mount : public Kel::PtrInterface {
 public:
  // The table at `path`, of the VRF that has the name at the time of the call. Null for any other path, and for a VRF
  // without an id.
  virtual Kel::Ptr<const Quillo::FibTable> table(std::string_view path) const = 0;

  // The same; null also when the table is of another type.
  template <class Table>
  Kel::Ptr<const Table> mounted(std::string_view path) const {
    return boost::dynamic_pointer_cast<const Table>(table(path));
  }
};

// The tables of a store.
class StoreMount final : public Mount {
 public:
  StoreMount(const Kel::Ptr<Quillo::TableFollower>& follower,
             Kel::Ptr<const Vrf::VrfIdMap::NameToIdMapWrapper> vrfNameStatus)
      : fib_(Kel::makePtr<Quillo::FibMount>(follower)), vrfNameStatus_(std::move(vrfNameStatus)) {}
  Kel::Ptr<const Quillo::FibTable> table(std::string_view path) const override;

 private:
  Vrf::VrfIdMap::VrfId vrfId(std::string_view vrfName) const;

  const Kel::Ptr<Quillo::FibMount> fib_;
  const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMapWrapper> vrfNameStatus_;
};

}  // namespace KelQuillo
