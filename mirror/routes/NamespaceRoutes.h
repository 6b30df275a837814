#pragma once
// The routes of one network namespace: the tables that are some VRF's, the next-hop objects, and when the kernel has
// to be asked again.
//
// The kernel takes routes away without telling of each: when a link goes down or is deleted, loses its carrier, or
// moves to another namespace, when an address goes that routes prefer as their source, and when a next-hop object goes
// (net/ipv4/fib_semantics.c fib_sync_down_dev(), fib_sync_down_addr(); net/ipv4/nexthop.c). It tells of the event
// itself, and partly before it acts on it. So each of them, if a route has to do with it, makes a listing due: shortly
// after, and again a second later. Listings that find something are followed by another one. Between two of them there
// is a pause of twice the time that the last one took, but not so long that what is gone would be served for long.
//
// What events mean for the routes is worked out in settle(), for all of a turn at once: to find the routes concerned
// may mean to look through all routes, and there may be thousands of events.
//
// A listing is a list of steps for the caller, who asks the kernel for what step() says, passes on what comes with
// dumped(), tells the end of each list with stepEnded(), and then calls work() until that is true.

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "kel/System.h"
#include "mirror/kernel/Nexthops.h"
#include "mirror/routes/VrfRoutes.h"
#include "mirror/rtnetlink/RtSocket.h"

namespace Mirror {

class NamespaceRoutes {
 public:
  using IntfIdOf =
      std::function<Vantu::IntfId(std::uint32_t ifIndex)>;  // not valid when there is no such interface
  using VrfId = Vrf::VrfIdMap::VrfId;
  // A routing table of the kernel, for one of those who use it: VRF devices may share a table.
  struct TableUse {
    std::uint32_t table = 0;
    std::uint32_t device = 0;  // ifIndex of the VRF device; 0: the namespace itself
    friend auto operator<=>(const TableUse&, const TableUse&) = default;
  };
  using Tables = std::map<TableUse, std::optional<VrfId>>;

  NamespaceRoutes(PublishedRoutes& published, IntfIdOf intfIdOf);

  // The kernel's tables that are followed, and the VRFs in whose names they are published; none: not yet. A use that
  // is new makes a listing due. The routes of a shared table are kept once for each use.
  void tablesAre(const Tables& tables);

  void notified(const RouteMessage& message);
  void notified(const NexthopMessage& message);  // takes effect with settle(), like the next two
  // The interface went up or down, or is gone.
  void linkMoved(std::uint32_t ifIndex) { events_.links.insert(ifIndex); }
  void addressGone(const Vantu::IpGenAddr& address) { events_.addresses.insert(address); }
  // To be called before what has changed is published.
  void settle();
  // The interfaces may have other ids than before.
  void renamed(const std::set<std::uint32_t>& ifIndexes);
  void allRenamed();

  // ---- listing
  struct Step {
    RtDump what = RtDump::nexthops;
    std::uint32_t table = 0;
    std::uint32_t device = 0;
  };
  // When the next one is to begin; none: there is no need.
  std::optional<Kel::Seconds> due() const;
  // When it is due: false, and it is no more, when the routes that it would be for have gone by themselves.
  bool isListingNeeded();
  void listingIs();
  const Step* step() const { return next_ < steps_.size() ? &steps_[next_] : nullptr; }
  void dumped(const RouteMessage& message);
  void dumped(const NexthopMessage& message) { nexthops_.dumped(message); }
  // `mayLack`: the kernel may have passed over something. `pieces` is the number of pieces that the list came in.
  void stepEnded(bool mayLack, unsigned pieces);
  // What there is to do after a step, bit by bit; true when it is done and step() is the next one, or null.
  bool work();
  void listingEnds();
  std::uint64_t listings() const { return listings_; }

  std::size_t routes() const;
  // Of the first one who uses it; null when nobody does.
  const VrfRoutes* table(std::uint32_t table) const;

 private:
  std::vector<Quillo::Fib::Via> resolve(const RouteContent& content);
  // Since the last settle().
  struct Events {
    std::set<std::uint32_t> nexthops;      // came, changed or went
    std::set<std::uint32_t> goneNexthops;  // some may be there again
    std::set<std::uint32_t> links;
    std::set<Vantu::IpGenAddr> addresses;
  };
  RouteContents::Condition forwardsOn(const std::set<std::uint32_t>& ifIndexes) const;
  template <class Which>
  bool any(const Which& which) const;
  template <class Which>
  void reassess(const Which& which);
  void addressesGone(const std::set<Vantu::IpGenAddr>& addresses);
  void wantListing();

  PublishedRoutes& published_;
  IntfIdOf intfIdOf_;
  Nexthops nexthops_;
  using KnownTables = std::map<TableUse, std::unique_ptr<VrfRoutes>>;
  KnownTables::iterator firstUse(std::uint32_t table) { return tables_.lower_bound({table, 0}); }

  KnownTables tables_;

  Events events_;
  std::vector<Step> steps_;  // of the listing under way
  std::size_t next_ = 0;
  std::uint8_t stamp_ = 0;
  bool isSweeping_ = false;
  bool areIpv6RoutesMoving_ = false;  // some were notified during this step
  bool mayLack_ = false;              // this listing
  std::uint64_t listings_ = 0;

  std::optional<Kel::Seconds> soon_;
  std::optional<Kel::Seconds> later_;
  std::set<Vantu::IpGenAddr> goneAddresses_;  // when nothing else makes the listing due
  bool isOnlyForAddresses_ = false;
  Kel::Seconds notBefore_ = 0;
  Kel::Seconds begun_ = 0;
  Kel::Seconds interval_ = 0;  // of listings that may lack something
  bool isCutTold_ = false;
};

}  // namespace Mirror
