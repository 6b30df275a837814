#pragma once
// What is derived from one VRF's shared tables of routes and FECs, so that rows of ipCidrRouteTable can be found in
// their order: the prefixes, and the next hops of each FEC. The state machine of the route table keeps it.

#include "kel/Entity.h"
#include "quillo/fecs/FecRouteList.h"
#include "vantu/Prefix.h"

namespace IpSnmp {

// The next hops of one FEC.
class IpForwardFec : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpForwardFec", IpForwardFec, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IpForwardFec, ((Quillo::Fib::FecId, fecId)))
  // IPv4 next hops (0.0.0.0 when on-link), each with the place of its via in the shared FEC.
  KEL_VALUES(Ordered, Vantu::IpAddr, Quillo::Fib::ViaIndex, nextHop, NextHop)
  using KelNextHop = Kel::Ordered<Vantu::IpAddr, Quillo::Fib::ViaIndex>;
  KEL_TYPE_END_DECLARE

  // The shared FEC as it was last read, and the generation that its table had then; 0: not to be used again. A thousand
  // routes and more have one FEC, and each of their rows needs it. For IpForwardMib alone.
  struct AsRead {
    Quillo::Fib::Fec fec;
    std::uint64_t generation = 0;
  };
  AsRead& asRead() const { return asRead_; }

 private:
  mutable AsRead asRead_;
};

// The FECs of one VRF, or of all of them where they share one forwarding table.
class IpForwardFecs : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpForwardFecs", IpForwardFecs, Kel::Entity)
 public:
  KEL_MEMBERS(Hashed, Quillo::Fib::FecId, IpForwardFec, forwardFec, ForwardFec)
  KEL_TYPE_END_DECLARE
};

class FecsAndPrefixes : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::FecsAndPrefixes", FecsAndPrefixes, Kel::Entity)
 public:
  // Every IPv4 prefix of the route table, in the order of the rows. The value is always true.
  KEL_VALUES(Ordered, Vantu::IpAddrWithMask, bool, orderedPrefix, OrderedPrefix)
  using KelOrderedPrefix = Kel::Ordered<Vantu::IpAddrWithMask, bool>;
  // Resolves the FEC of a route to its next hops.
  KEL_REFERENCE(const IpForwardFecs, forwardFecs, ForwardFecs)
  KEL_TYPE_END_DECLARE

  // Finds the next prefix that has a row, for walks over many prefixes without one. Null: a walk examines each prefix.
  const Kel::Ptr<const Quillo::Fib::FecRouteList>& fecRouteList() const { return fecRouteList_; }
  void fecRouteListIs(Kel::Ptr<const Quillo::Fib::FecRouteList> list) { fecRouteList_ = std::move(list); }

 private:
  Kel::Ptr<const Quillo::Fib::FecRouteList> fecRouteList_;
};

}  // namespace IpSnmp
