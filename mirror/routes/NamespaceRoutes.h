#pragma once
// The routes of one network namespace: the routing tables of its VRFs, the next-hop objects, and when to dump again.
//
// The kernel deletes some routes without a notification:
// - when a link is set down, is deleted, loses its carrier or moves to another namespace;
// - when the preferred source address of the routes is deleted;
// - when their next-hop object is deleted
// (net/ipv4/fib_semantics.c fib_sync_down_dev(), fib_sync_down_addr(); net/ipv4/nexthop.c). It notifies of the event
// itself, sometimes before it deletes the routes. So each event that concerns a route makes a dump due: shortly after,
// and again a second later. A dump that found differences is followed by another one. The pause after a dump is twice
// its duration, with a limit, so that deleted routes are not published for long.
//
// settle() evaluates the events of a whole turn at once: there may be thousands, and each could mean a search through
// all routes.
//
// A dump is a list of steps. For each one the caller asks the kernel for step(), passes the replies to dumped(), calls
// endStep() at the end, and then work() until it returns true.

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "kel/System.h"
#include "mirror/kernel/Nexthops.h"
#include "mirror/routes/VrfRoutes.h"
#include "mirror/rtnetlink/RtSocket.h"
#include "varnix/Values.h"

namespace Mirror {

class NamespaceRoutes {
 public:
  // The id of an interface; invalid without such an interface.
  using IntfIdOf = std::function<Vantu::IntfId(std::uint32_t ifIndex)>;
  using VrfId = Vrf::VrfIdMap::VrfId;
  // A kernel routing table, for one of the VRFs that use it: VRF devices may share a table.
  struct TableUse {
    std::uint32_t table = 0;
    std::uint32_t device = 0;  // ifIndex of the VRF device; 0: the namespace's main table
    friend auto operator<=>(const TableUse&, const TableUse&) = default;
  };
  using Tables = std::map<TableUse, std::optional<VrfId>>;

  NamespaceRoutes(PublishedRoutes& published, IntfIdOf intfIdOf);

  // The kernel's tables to follow, each with the VRF to publish it under (none: not published yet). A new entry makes a
  // dump due. The routes of a shared table are kept once for each entry.
  void updateTables(const Tables& tables);

  void notified(const RouteMessage& message);
  void notified(const NexthopMessage& message);  // takes effect with settle(), like the next two
  // The interface went up or down, changed its carrier, or was deleted.
  void noteLinkChange(std::uint32_t ifIndex) { events_.links.insert(ifIndex); }
  void noteAddressDeletion(const Vantu::IpGenAddr& address) { events_.addresses.insert(address); }
  // Evaluates the events since the last call: makes a dump due, and computes next hops again. Call it before each
  // publication.
  void settle();
  // Compute the next hops of routes again, because the ids of these interfaces, or of any interface, may have changed.
  void renamed(const std::set<std::uint32_t>& ifIndexes);
  void resolveAll();

  // The gateways of the default routes of a VRF. When a router advertisement extends the lifetime of such a route, the
  // kernel does not notify. So a dump once a minute reads the lifetimes, while there are routes of advertisements.
  using DefaultRouters = std::map<Routing::DefaultRouterKey, Routing::DefaultRouterFacts>;
  // Calls `use` for each VRF if they may have changed since the last call.
  void takeDefaultRouters(const std::function<void(const VrfId&, const DefaultRouters&)>& use);

  // ---- dump
  struct Step {
    RtDump what = RtDump::nexthops;
    std::uint32_t table = 0;
    std::uint32_t device = 0;
  };
  // When to begin the next dump; none: no dump is due.
  std::optional<Kel::Seconds> due() const;
  // Call it when a dump is due. Returns false, and cancels the dump, if notifications have meanwhile deleted the routes
  // that it was for.
  bool confirmDump();
  // Begins a dump: next-hop objects first, then the IPv4 and the IPv6 routes of each table.
  void beginDump();
  // The step to request from the kernel; null when all steps are done.
  const Step* step() const { return next_ < steps_.size() ? &steps_[next_] : nullptr; }
  void dumped(const RouteMessage& message);
  void dumped(const NexthopMessage& message) { nexthops_.dumped(message); }
  // `mayLack`: the kernel may have skipped objects. `pieces` is the number of datagrams of the dump.
  void endStep(bool mayLack, unsigned pieces);
  // Does the next part of the work after a step. True when it is done; step() is then the next step, or null.
  bool work();
  // Ends the dump. Makes another one due if this one may lack routes or found differences.
  void endDump();
  std::uint64_t listings() const { return listings_; }  // dumps that have ended

  std::size_t routes() const;  // of all tables
  // The routes for the first VRF that uses the table; null if none does.
  const VrfRoutes* table(std::uint32_t table) const;

 private:
  std::vector<Quillo::Fib::Via> resolve(const RouteContent& content);
  void noteDefaultRoute(const RouteMessage& message);
  DefaultRouters advertisedRouters() const;
  // The events since the last settle().
  struct Events {
    std::set<std::uint32_t> nexthops;      // added, changed or deleted
    std::set<std::uint32_t> goneNexthops;  // deleted, perhaps added again
    std::set<std::uint32_t> links;
    std::set<Vantu::IpGenAddr> addresses;
  };
  RouteContents::Condition forwardsOn(const std::set<std::uint32_t>& ifIndexes) const;
  static RouteContents::Condition prefersOneOf(const std::set<Vantu::IpGenAddr>& addresses);
  template <class Which>
  bool any(const Which& which) const;
  template <class Which>
  void reassess(const Which& which);
  void addressesGone(const std::set<Vantu::IpGenAddr>& addresses);
  void requestDump();

  PublishedRoutes& published_;
  IntfIdOf intfIdOf_;
  Nexthops nexthops_;
  using KnownTables = std::map<TableUse, std::unique_ptr<VrfRoutes>>;
  KnownTables::iterator firstUse(std::uint32_t table) { return tables_.lower_bound({table, 0}); }

  KnownTables tables_;

  // Routers of advertisements, by address and interface.
  struct Advertised {
    Kel::Seconds expires = 0;  // 0: not known yet
    std::int32_t preference = 0;
  };
  std::map<std::pair<Vantu::IpGenAddr, std::uint32_t>, Advertised> advertised_;
  std::optional<Kel::Seconds> refresh_;  // when to dump to learn their lifetimes
  bool mayDefaultsDiffer_ = true;        // since takeDefaultRouters()

  Events events_;
  std::vector<Step> steps_;  // of the dump under way
  std::size_t next_ = 0;
  DumpStamp stamp_ = 0;
  bool isSweeping_ = false;
  bool areIpv6RoutesMoving_ = false;  // an IPv6 route was notified during this step
  bool mayLack_ = false;              // a step of this dump may lack routes
  std::uint64_t listings_ = 0;

  std::optional<Kel::Seconds> soon_;   // when to dump shortly after an event
  std::optional<Kel::Seconds> later_;  // when to dump again
  std::set<Vantu::IpGenAddr> goneAddresses_;
  bool isOnlyForAddresses_ = false;  // soon_ has no other cause than goneAddresses_
  Kel::Seconds notBefore_ = 0;       // end of the pause after the last dump
  Kel::Seconds begun_ = 0;
  Kel::Seconds interval_ = 0;  // between dumps that may lack routes
  bool isCutTold_ = false;
};

}  // namespace Mirror
