#pragma once
// The cache of one context's interface tables: ifTable with the tables that extend it (RFC 2863, RFC 3635), and
// ifStackTable. IfTableSm (ipsnmp/agent/interface) keeps it current.

#include <absl/container/btree_set.h>

#include <map>
#include <tuple>
#include <vector>

#include "kel/Entity.h"
#include "kel/System.h"
#include "kel/ValueType.h"
#include "varnix/Interface.h"

namespace IpSnmp {

// ifOperStatus of an interface: the state of its record; if that is unknown, the administrative state. (Drivers of
// virtual interfaces often do not report a state.)
Interface::OperStatus ifOperStatus(const Interface::IntfStatus& status);

// One interface: a row of ifTable, ifXTable and dot3StatsTable. Most columns are read from the records of the state
// database at each request. The caches of several contexts may share a row.
class IfEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::IfEntry", IfEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(IfEntry, ((std::uint32_t, ifIndex))((Kel::Ptr<const Interface::IntfStatus>, status)))
  KEL_REFERENCE(const Interface::IntfCounters, counters, Counters)  // null: none known
  // Received packets minus received multicast packets. The kernel does not update both at the same time; this value
  // does not decrease because of that.
  KEL_STORED(std::uint64_t, inUcastPkts, InUcastPkts, 0)
  // Times, in seconds of the framework's clock (Kel::System); 0: never, or before the agent was ready.
  KEL_STORED(double, lastChange, LastChange, 0.0)                // of the operational state
  KEL_STORED(double, discontinuityTime, DiscontinuityTime, 0.0)  // when a counter decreased or the row was made

  Kel::String name() const { return Kel::String(status()->intfId().localName()); }
  Interface::OperStatus operStatus() const { return ifOperStatus(*status()); }
  KEL_COMPUTED(name)
  KEL_COMPUTED(operStatus)
  KEL_TYPE_END_DECLARE
};

// The index of ifStackTable: the interface with ifIndex `higher` runs over that with ifIndex `lower`. 0: none.
class IfStackKey {
  KEL_VALUE_TYPE("IpSnmp::IfStackKey", IfStackKey, ((std::uint32_t, higher))((std::uint32_t, lower)))
};

class IfStackEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::IfStackEntry", IfStackEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(IfStackEntry, ((IpSnmp::IfStackKey, index)))
  KEL_TYPE_END_DECLARE
};

// The default context's cache is named "iftables"; every other cache has its VRF's name.
class IfTables : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IfTables", IfTables, Kel::Entity)
 public:
  KEL_NAMED(IfTables, Kel::Entity)
  KEL_MEMBERS(Ordered, std::uint32_t, IfEntry, ifTable, IfTable)
  // A row for each pair of interfaces in this cache of which one runs over the other. Also a row (0, i) for each
  // interface i below no other one, and (i, 0) for each interface i above no other one.
  KEL_MEMBERS(Ordered, IfStackKey, IfStackEntry, ifStackTable, IfStackTable)
  // When a row was last added or deleted, in seconds of the framework's clock; 0: before the agent was ready.
  KEL_STORED(double, ifTableLastChange, IfTableLastChange, 0.0)
  KEL_STORED(double, ifStackLastChange, IfStackLastChange, 0.0)
  std::int32_t ifNumber() const { return static_cast<std::int32_t>(ifTable().size()); }
  KEL_COMPUTED(ifNumber)
  KEL_TYPE_END_DECLARE

 public:
  // Adds the interface, or replaces another one that has its ifIndex. Makes its rows of ifStackTable agree with
  // lowerIfIndex and upperIfIndex of its status record. A table that changes gets `now` as the time of its last change;
  // 0 leaves these times. Call it again whenever the record changes.
  void enter(const Kel::Ptr<IfEntry>& entry, Kel::Seconds now);
  // Removes the interface and its rows of ifStackTable. No-op if another row has its ifIndex. `now` as for enter().
  void remove(const Kel::Ptr<IfEntry>& entry, Kel::Seconds now);

 private:
  using Pair = std::pair<std::uint32_t, std::uint32_t>;  // higher, lower
  using Pairs = std::vector<Pair>;

  void setPairs(std::uint32_t ifIndex, const Pairs& pairs);
  template <class Visit>
  void forEachPair(std::uint32_t ifIndex, const Visit& visit) const;
  void connect(const Pair& pair);
  void disconnect(const Pair& pair);
  void rowIs(std::uint32_t higher, std::uint32_t lower);
  void rowDel(std::uint32_t higher, std::uint32_t lower);

  std::map<std::uint32_t, Pairs> pairs_;  // by interface: the pairs that its record states
  // Each of these pairs twice, by either end: (end, interface whose record states it, pair). An end may be an interface
  // that is not in the cache.
  absl::btree_set<std::tuple<std::uint32_t, std::uint32_t, Pair>> ends_;
  absl::btree_set<Pair> uppers_;  // the pairs with a row, as (lower, higher)
  bool hasStackChanged_ = false;
};

}  // namespace IpSnmp
