#pragma once
// The shared tables of routes and FECs of one VRF, as their readers see them.
//
// Reads see a table as it is at that moment. A lookup or a walk throws Pesk::CorruptionDetectedException for damage, which
// the caller passes to `corruptionDetected`. While a table cannot be read at all it throws StoreException: the caller then
// keeps what it has, and `onTable` is notified once the table can be read again. Notifications carry the key alone: a
// reactor looks the entry up.

#include <cstdint>
#include <functional>

#include "kel/Notifier.h"
#include "quillo/StoreException.h"
#include "quillo/tables/Fec.h"
#include "vantu/Prefix.h"
#include "vantu/RouteTypes.h"

namespace Quillo {

// A default-constructed route stands for "no such route": the routes of a table have a type.
template <class PrefixType>
struct BasicRoute {
  PrefixType prefix;
  Routing::Fib::RouteType routeType;
  Routing::RouteMetric metric;
  Routing::RoutePreference routePreference;
  Fib::FecId fecId;
  // Of static routes only, as far as the publisher knows.
  bool isPersistent = true;     // part of the saved configuration
  bool isNexthopGroup = false;  // made with a group of next hops

  const Routing::RoutePreference& preference() const { return routePreference; }
  friend bool operator==(const BasicRoute&, const BasicRoute&) = default;
};

// What every shared table of a VRF has.
class FibTable : public Kel::Notifier {
 public:
  // The first complete state of the table can be read.
  virtual bool initialized() const = 0;
  virtual void corruptionDetected(const std::string& message) const = 0;
  // Changes whenever the contents may have changed; unique within the process. While it stays the same, readers may reuse
  // what they read. 0: the table keeps no such number, look things up each time.
  virtual std::uint64_t generation() const { return 0; }
  // Every change that a lookup sees now has been notified. While this is false, what was derived from notifications may
  // contradict the table.
  virtual bool isNotified() const { return true; }
};

// The routes of one VRF and IP version, in order of the prefix.
template <class PrefixType>
class BasicRouteStatus : public FibTable {
 public:
  using Prefix = PrefixType;
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
    // Anything may have changed: compare the table with your copy. No handler is called for the single routes.
    virtual void onTable() {}
  };

  virtual Route route(const PrefixType& prefix) const = 0;

  // Visits the routes from lower_bound(from) on, in order, until `visit` returns false. `visit` must not use the table.
  // Damage is thrown after everything that could be read was visited.
  using Visit = std::function<bool(const Route&)>;
  virtual void forEachRoute(const PrefixType& from, const Visit& visit) const = 0;
};

namespace Fib {

using Route = BasicRoute<Vantu::Prefix>;
using RouteStatus = BasicRouteStatus<Vantu::Prefix>;

// The FECs that one VRF's routes resolve in, or every VRF's where there is one table for all of them.
class ForwardingStatus : public FibTable {
 public:
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
  // The same into an object of the caller's, which becomes "no such FEC" when there is none. A table may reuse the
  // object's memory: a walk over a million routes looks up as many FECs.
  virtual void readFec(const FecId& fecId, Fec& into) const { into = fec(fecId); }

  using Visit = std::function<bool(const Fec&)>;
  virtual void forEachFec(const FecId& from, const Visit& visit) const = 0;
};

}  // namespace Fib

namespace Fib6 {

using Route = BasicRoute<Vantu::Ip6Prefix>;
using RouteStatus = BasicRouteStatus<Vantu::Ip6Prefix>;

}  // namespace Fib6

}  // namespace Quillo
