#pragma once
// The readers' interfaces to the shared tables of routes and FECs of one VRF.
//
// Each read returns the current contents. A notification carries the key alone: a reactor looks the entry up.
// A lookup or a walk throws Pesk::CorruptionDetectedException for damage, which the caller passes to
// `corruptionDetected`. It throws StoreException while the table cannot be read at all: the caller then keeps its
// data, and `onTable` is notified once the table can be read again.

#include <cstdint>
#include <functional>

#include "kel/Notifier.h"
#include "quillo/StoreException.h"
#include "quillo/tables/Fec.h"
#include "vantu/Prefix.h"
#include "vantu/RouteTypes.h"

namespace Quillo {

// A default-constructed route (type 0) means "no such route".
template <class PrefixType>
struct BasicRoute {
  PrefixType prefix;
  Routing::Fib::RouteType routeType;
  Routing::RouteMetric metric;
  Routing::RoutePreference routePreference;
  Fib::FecId fecId;
  // For static routes, as far as the publisher knows.
  bool isPersistent = true;     // part of the saved configuration
  bool isNexthopGroup = false;  // configured with a group of next hops
  Routing::Fib::RouteAction action = Routing::Fib::RouteAction::forward;

  const Routing::RoutePreference& preference() const { return routePreference; }
  friend bool operator==(const BasicRoute&, const BasicRoute&) = default;
};

// The common part of the shared tables of a VRF.
class FibTable : public Kel::Notifier {
 public:
  // Whether the first complete contents of the table can be read.
  virtual bool initialized() const = 0;
  virtual void corruptionDetected(const std::string& message) const = 0;
  // Changes whenever the contents may have changed; unique within the process. While it stays the same, readers may
  // reuse what they read. 0 means unknown: look entries up each time.
  virtual std::uint64_t generation() const { return 0; }
  // Whether every change that a lookup sees now has been notified. While it is false, data derived from notifications
  // may contradict the table.
  virtual bool isNotified() const { return true; }
};

// The routes of one VRF and IP version, in order of the prefix.
template <class PrefixType>
class BasicRouteStatus : public FibTable {
 public:
  using Key = PrefixType;
  using Route = BasicRoute<PrefixType>;

  class Notifiee : public Kel::Notifier::Notifiee {
   public:
    void notifierIs(const Kel::Ptr<const BasicRouteStatus>& notifier) { kelAttach(notifier); }
    Kel::Ptr<const BasicRouteStatus> notifier() const {
      return boost::static_pointer_cast<const BasicRouteStatus>(kelNotifier());
    }
    virtual void handleInitialized() {}
    // A route was added, deleted or changed.
    virtual void onRoute(const PrefixType&) {}
    // Any route may have changed: compare the table with your copy. No handler is called for single routes.
    virtual void onTable() {}
  };

  virtual Route route(const PrefixType& prefix) const = 0;

  // Visits the routes from lower_bound(from) on, in order, until `visit` returns false. Throws for damage after it has
  // visited all readable routes. Requires: `visit` does not use the table.
  using Visit = std::function<bool(const Route&)>;
  virtual void forEachRoute(const PrefixType& from, const Visit& visit) const = 0;
  void forEachKey(const PrefixType& from, const auto& visit) const {
    forEachRoute(from, [&](const Route& route) { return visit(route.prefix); });
  }
};

namespace Fib {

using Route = BasicRoute<Vantu::Prefix>;
using RouteStatus = BasicRouteStatus<Vantu::Prefix>;

// The FECs to which the routes of one VRF refer, or those of all VRFs in unified mode.
class ForwardingStatus : public FibTable {
 public:
  using Key = FecId;

  class Notifiee : public Kel::Notifier::Notifiee {
   public:
    void notifierIs(const Kel::Ptr<const ForwardingStatus>& notifier) { kelAttach(notifier); }
    Kel::Ptr<const ForwardingStatus> notifier() const {
      return boost::static_pointer_cast<const ForwardingStatus>(kelNotifier());
    }
    virtual void handleInitialized() {}
    virtual void onFec(const FecId&) {}
    virtual void onTable() {}
  };

  virtual Fec fec(const FecId& fecId) const = 0;
  // Reads the FEC into `into`, or sets that to "no such FEC". Reuses the memory of `into`, since a walk over a million
  // routes looks up as many FECs.
  virtual void readFec(const FecId& fecId, Fec& into) const { into = fec(fecId); }

  using Visit = std::function<bool(const Fec&)>;
  virtual void forEachFec(const FecId& from, const Visit& visit) const = 0;
  void forEachKey(const FecId& from, const auto& visit) const {
    forEachFec(from, [&](const Fec& fec) { return visit(fec.fecId); });
  }
};

}  // namespace Fib

namespace Fib6 {

using Route = BasicRoute<Vantu::Ip6Prefix>;
using RouteStatus = BasicRouteStatus<Vantu::Ip6Prefix>;

}  // namespace Fib6

}  // namespace Quillo
