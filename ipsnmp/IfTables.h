#pragma once
// The interface tables of one context: ifTable and what extends it (RFC 2863, RFC 3635), and ifStackTable.
// IfTableSm (ipsnmp/agent/interface) keeps them.

#include <absl/container/btree_set.h>

#include <map>
#include <tuple>
#include <vector>

#include "kel/Entity.h"
#include "kel/System.h"
#include "kel/ValueType.h"
#include "varnix/Interface.h"

namespace IpSnmp {

// One interface. Its values are those of the state database at the time of a request. A row may be in several caches.
class IfEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::IfEntry", IfEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(IfEntry, ((std::uint32_t, ifIndex))((Kel::Ptr<const Interface::IntfStatus>, status)))
  KEL_REFERENCE(const Interface::IntfCounters, counters, Counters)  // null: none known
  // Received packets less those to groups. The two are counted one after the other; this value does not fall for that.
  KEL_STORED(std::uint64_t, inUcastPkts, InUcastPkts, 0)
  // Times of the framework's clock. 0: before the agent was ready, or never.
  KEL_STORED(double, lastChange, LastChange, 0.0)                // of the operational state
  KEL_STORED(double, discontinuityTime, DiscontinuityTime, 0.0)  // a counter fell

  Kel::String name() const { return Kel::String(status()->intfId().localName()); }
  // An interface whose driver does not know its state is up while it is enabled.
  Interface::OperStatus operStatus() const;
  KEL_COMPUTED(name)
  KEL_COMPUTED(operStatus)
  KEL_TYPE_END_DECLARE
};

// The index of ifStackTable: `higher` runs over `lower`. 0: there is none.
class IfStackKey {
  KEL_VALUE_TYPE("IpSnmp::IfStackKey", IfStackKey, ((std::uint32_t, higher))((std::uint32_t, lower)))
};

class IfStackEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::IfStackEntry", IfStackEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(IfStackEntry, ((IpSnmp::IfStackKey, index)))
  KEL_TYPE_END_DECLARE
};

// The default context's cache is named "iftables", that of a VRF for the VRF.
class IfTables : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IfTables", IfTables, Kel::Entity)
 public:
  KEL_NAMED(IfTables, Kel::Entity)
  KEL_MEMBERS(Ordered, std::uint32_t, IfEntry, ifTable, IfTable)
  // A row for each pair of interfaces of this cache of which one runs over the other; a row (0, i) for each interface
  // with none above it, and (i, 0) for each with none below.
  KEL_MEMBERS(Ordered, IfStackKey, IfStackEntry, ifStackTable, IfStackTable)
  // When a row was added or deleted last. 0: before the agent was ready.
  KEL_STORED(double, ifTableLastChange, IfTableLastChange, 0.0)
  KEL_STORED(double, ifStackLastChange, IfStackLastChange, 0.0)
  std::int32_t ifNumber() const { return static_cast<std::int32_t>(ifTable().size()); }
  KEL_COMPUTED(ifNumber)
  KEL_TYPE_END_DECLARE

 public:
  // Enters the interface, in place of another one of its ifIndex, and its place in the stack as its record has it now.
  // `now` becomes the time of what changes; 0 leaves the times.
  void enter(const Kel::Ptr<IfEntry>& entry, Kel::Seconds now);
  // Removes the interface. No-op if another row has its ifIndex.
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

  std::map<std::uint32_t, Pairs> pairs_;  // as the record of each interface has them
  // Each of those by both of its ends: (end, interface whose record has it, pair). An end need not be in the cache.
  absl::btree_set<std::tuple<std::uint32_t, std::uint32_t, Pair>> ends_;
  absl::btree_set<Pair> uppers_;  // the pairs with a row, as (lower, higher)
  bool hasStackChanged_ = false;
};

}  // namespace IpSnmp
