#pragma once
// For tests: a kernel in memory. It has objects that a test changes, an rtnetlink queue of limited size, and dumps that
// it produces piece by piece while they are read. Like the real kernel, it deletes some routes without a notification.

#include <deque>
#include <functional>
#include <map>
#include <ranges>
#include <set>
#include <string>
#include <vector>

#include "kel/Errors.h"
#include "mirror/rtnetlink/RtSocket.h"
#include "mirror/testing/TestMessages.h"

namespace Mirror::Test {

// An operation ...Is() adds or changes an object, ...Del() deletes one; both send the kernel's notifications.
class FakeKernel : public RtChannel {
 public:
  static constexpr std::uint32_t port = 4711;

  // ---- the objects. Change them directly before a dump, and by the operations below afterwards.
  std::map<int, TestLink> links;       // by ifIndex
  std::vector<TestAddress> addresses;  // in the order of the kernel's lists
  std::vector<TestNeighbour> neighbours;
  std::vector<TestRoute> routes;  // those of one TestRoute::place() in the kernel's order
  std::map<std::uint32_t, TestNexthop> nexthops;

  // ---- behaviour
  std::size_t queueLimit = SIZE_MAX;            // datagrams; further ones are lost
  std::size_t objectsPerPiece = 3;              // of a dump
  std::function<bool()> isPieceLate = never;    // whether a piece is queued only after the next notification
  std::function<bool()> isInterrupted = never;  // whether a dump's last message has NLM_F_DUMP_INTR
  int dumpStatus = 0;                           // an errno with which dumps are refused; 0: they are not
  bool isDumpSilent = false;                    // dumps are never answered
  std::function<bool()> isSendRefused = never;  // whether dump() throws
  bool isReopenRefused = false;                 // whether reopen() throws
  bool keepsAddresses = false;                  // keep_addr_on_down: IPv6 addresses become tentative
  std::function<void()> beforeReceive = [] {};  // called at each receive()

  // ---- numbers of calls
  unsigned dumps = 0;
  unsigned reopened = 0;

  bool isUp(int ifIndex) const { return links.contains(ifIndex) && (links.at(ifIndex).flags & IFF_UP); }
  void linkIs(const TestLink& link) {
    const bool wasThere = links.contains(link.ifIndex), wasUp = isUp(link.ifIndex);
    links[link.ifIndex] = link;
    notify(describe(Message(RTM_NEWLINK), link));
    if (wasThere && !wasUp && isUp(link.ifIndex)) markRoutes(link.ifIndex, false);
    if (!wasUp || isUp(link.ifIndex)) return;
    for (const TestAddress& address : std::vector<TestAddress>(addresses)) {
      if (address.ifIndex != link.ifIndex || !address.isIpv6()) continue;
      if (!keepsAddresses) {
        addressDel(address);
      } else if (!(address.flags & IFA_F_NODAD)) {
        find(addresses, address)->flags |= IFA_F_TENTATIVE;
      }
    }
    markRoutes(link.ifIndex, true);
  }
  void linkDel(int ifIndex) {
    for (const auto& address : std::vector<TestAddress>(addresses)) {
      if (address.ifIndex == ifIndex) addressDel(address);
    }
    for (const auto& neighbour : std::vector<TestNeighbour>(neighbours)) {
      if (neighbour.ifIndex == ifIndex) neighbourDel(neighbour);
    }
    markRoutes(ifIndex, true);
    notify(describe(Message(RTM_DELLINK), links.extract(ifIndex).mapped()));
  }
  void addressIs(const TestAddress& address) {
    const auto present = find(addresses, address);
    *(present == addresses.end() ? addresses.insert(present, address) : present) = address;
    notify(describe(Message(RTM_NEWADDR), address));
  }
  // Deletes the routes that prefer the address as their source, without a notification.
  void addressDel(const TestAddress& address) {
    const TestAddress gone = *find(addresses, address);
    addresses.erase(find(addresses, address));
    notify(describe(Message(RTM_DELADDR), gone));
    for (const auto& other : addresses) {
      if (other.local == gone.local) return;
    }
    std::erase_if(routes, [&](const TestRoute& route) { return route.source == gone.local; });
  }
  void neighbourIs(const TestNeighbour& neighbour) {
    std::erase_if(neighbours, [&](const TestNeighbour& other) { return other.isSame(neighbour); });
    neighbours.insert(neighbours.begin(), neighbour);
    notify(describe(Message(RTM_NEWNEIGH), neighbour));
  }
  void neighbourDel(const TestNeighbour& neighbour) {
    const TestNeighbour gone = neighbour;
    neighbours.erase(find(neighbours, gone));
    notify(describe(Message(RTM_DELNEIGH), gone));
  }

  // `flags` of the request beside NLM_F_CREATE: NLM_F_EXCL (add), NLM_F_APPEND, NLM_F_REPLACE or none (prepend).
  void routeIs(const TestRoute& route, std::uint16_t flags = NLM_F_EXCL) {
    const auto isThere = [&](const TestRoute& other) { return other.place() == route.place(); };
    auto at = std::find_if(routes.begin(), routes.end(), isThere);
    const bool isAlone = at == routes.end();
    if ((!isAlone && (flags & NLM_F_EXCL)) || find(routes, route) != routes.end()) return;
    const std::uint16_t told = isAlone ? NLM_F_EXCL : flags;
    const auto sibling = std::find_if(at, routes.end(), [&](const auto& other) {
      return isThere(other) && other.isMultipath() == route.isMultipath();
    });
    const bool hasSibling = route.isIpv6() && sibling != routes.end();
    if (!isAlone && (flags & NLM_F_REPLACE)) {
      *(hasSibling ? sibling : at) = route;
      return notify(describe(Message(RTM_NEWROUTE, NLM_F_REPLACE), route));
    }
    if (hasSibling && route.isMultipath()) {
      for (const auto& hop : route.hops) {
        auto& known = sibling->hops;
        if (std::find(known.begin(), known.end(), hop) == known.end()) known.push_back(hop);
      }
      return notify(describe(Message(RTM_NEWROUTE, NLM_F_CREATE | told), *sibling));
    }
    if (route.isIpv6() || (flags & NLM_F_APPEND)) {
      while (at != routes.end() && isThere(*at)) ++at;
    }
    routes.insert(at, route);
    notify(describe(Message(RTM_NEWROUTE, NLM_F_CREATE | told), route));
  }
  void routeDel(std::size_t index) {
    const TestRoute gone = routes[index];
    routes.erase(routes.begin() + static_cast<std::ptrdiff_t>(index));
    notify(describe(Message(RTM_DELROUTE), gone));
  }
  // Deletes the last hop of an IPv6 multipath route.
  void hopDel(std::size_t index) {
    TestRoute gone = routes[index];
    routes[index].hops.pop_back();
    gone.hops.erase(gone.hops.begin(), std::prev(gone.hops.end()));
    notify(describe(Message(RTM_DELROUTE), gone));
  }
  void nexthopIs(const TestNexthop& nexthop) {
    nexthops[nexthop.id] = nexthop;
    notify(describe(Message(RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_REPLACE), nexthop));
  }
  void nexthopDel(std::uint32_t id) {
    notify(describe(Message(RTM_DELNEXTHOP), nexthops.at(id)));
    dropNexthop(id, true);
  }

  void notify(const Message& message) { put(message.bytes()); }
  void put(const Bytes& datagram) {
    if (isCongested_ || queue_.size() >= queueLimit) {
      isCongested_ = isOverrunUntold_ = true;
    } else {
      queue_.push_back(datagram);
    }
    releaseLatePiece();
  }

  // ---- the channel
  void dump(RtDump what, std::uint32_t sequence, std::uint32_t table = 0) override {
    ++dumps;
    if (isSendRefused()) throw Kel::Exception("no buffer space");
    if (dumpStatus != 0) {
      queue_.push_back(Message(NLMSG_ERROR, 0, sequence, port).fixed(nlmsgerr{-dumpStatus, {}}).bytes());
    } else if (!isDumpSilent) {
      dumped_ = {what, sequence, table, 0, true};
      dumpedState_.reset();
      producePiece();
    }
  }
  Outcome receive(std::span<const std::uint8_t>& datagram) override {
    beforeReceive();
    if (std::exchange(isOverrunUntold_, false)) return Outcome::overrun;
    if (queue_.empty()) releaseLatePiece();
    if (queue_.empty()) return Outcome::empty;
    latest_ = std::move(queue_.front());
    queue_.pop_front();
    if (queue_.empty()) isCongested_ = false;
    if (dumped_.isRunning && latePiece_.empty()) producePiece();
    datagram = latest_;
    return Outcome::datagram;
  }
  std::uint32_t portId() const override { return port; }
  void reopen() override {
    if (isReopenRefused) throw Kel::Exception("no socket");
    ++reopened;
    queue_.clear();
    latePiece_.clear();
    dumped_ = {};
    isCongested_ = isOverrunUntold_ = false;
  }

 private:
  struct Dump {
    RtDump what = RtDump::links;
    std::uint32_t sequence = 0;
    std::uint32_t table = 0;
    std::size_t next = 0;
    bool isRunning = false;
  };

  static bool never() { return false; }

  template <class Object>
  static typename std::vector<Object>::iterator find(std::vector<Object>& all, const Object& wanted) {
    return std::find_if(all.begin(), all.end(), [&](const Object& other) { return other.isSame(wanted); });
  }

  // Marks the hops on a link as dead or alive. If it is down, deletes its next-hop objects, and the routes whose hops
  // are all dead, without a notification.
  void markRoutes(int ifIndex, bool isDown) {
    std::vector<std::uint32_t> gone;
    for (const auto& [id, nexthop] : nexthops) {
      if (isDown && nexthop.members.empty() && nexthop.hop.ifIndex == ifIndex) gone.push_back(id);
    }
    for (const auto id : gone) dropNexthop(id, false);
    std::erase_if(routes, [&](TestRoute& route) {
      for (auto& hop : route.hops) {
        if (hop.ifIndex == ifIndex) hop.isDead = isDown;
      }
      return !route.hops.empty() &&
             std::all_of(route.hops.begin(), route.hops.end(), [](const TestHop& hop) { return hop.isDead; });
    });
  }
  // Deletes a next-hop object, the routes that refer to it (without a notification), and groups without another member.
  // `isTold`: changes of groups are notified.
  void dropNexthop(std::uint32_t id, bool isTold) {
    nexthops.erase(id);
    std::erase_if(routes, [&](const TestRoute& route) { return route.nexthopId == id; });
    std::set<std::uint32_t> empty;
    for (auto& [other, group] : nexthops) {
      if (std::erase(group.members, id) == 0) continue;
      if (group.members.empty()) empty.insert(other);
      if (!group.members.empty() && isTold) notify(describe(Message(RTM_NEWNEXTHOP), group));
    }
    for (const auto other : empty) {
      if (isTold) notify(describe(Message(RTM_DELNEXTHOP), TestNexthop{other, {"10.0.0.1"}}));
      dropNexthop(other, isTold);
    }
  }

  std::vector<Bytes> objects() const {
    std::vector<Bytes> all;
    const auto addAll = [&](std::uint16_t type, auto&& list) {
      for (const auto& object : list) {
        all.push_back(describe(Message(type, NLM_F_MULTI, dumped_.sequence, port), object).bytes());
      }
    };
    const auto what = dumped_.what;
    if (what == RtDump::links) addAll(RTM_NEWLINK, std::views::values(links));
    if (what == RtDump::nexthops) addAll(RTM_NEWNEXTHOP, std::views::values(nexthops));
    for (const bool isIpv6 : {false, true}) {
      const auto ofFamily = std::views::filter([isIpv6](const auto& object) { return object.isIpv6() == isIpv6; });
      if (what == (isIpv6 ? RtDump::ipv6Addresses : RtDump::ipv4Addresses)) {
        addAll(RTM_NEWADDR, addresses | ofFamily);
      } else if (what == (isIpv6 ? RtDump::ipv6Neighbours : RtDump::ipv4Neighbours)) {
        addAll(RTM_NEWNEIGH, neighbours | ofFamily);
      } else if (what == (isIpv6 ? RtDump::ipv6Routes : RtDump::ipv4Routes)) {
        const auto isOfTable = [&](const TestRoute& route) { return route.table == dumped_.table; };
        addAll(RTM_NEWROUTE, routes | ofFamily | std::views::filter(isOfTable));
      }
    }
    return all;
  }

  // Produces the next objects by their number in the list. So it skips an object if one before it was deleted.
  void producePiece() {
    const auto all = objects();
    Bytes piece;
    // The kernel continues a dump of IPv4 routes after the last prefix, so it skips none.
    const std::size_t limit = dumped_.what == RtDump::ipv4Routes ? SIZE_MAX : objectsPerPiece;
    for (std::size_t count = 0; count < limit && dumped_.next < all.size(); ++count, ++dumped_.next) {
      append(piece, all[dumped_.next]);
    }
    if (!dumpedState_) dumpedState_ = all;
    if (dumped_.next >= all.size()) {
      // The kernel detects changes during a dump by a counter, except those of neighbours and routes.
      const bool isCounted = dumped_.what <= RtDump::ipv6Addresses || dumped_.what == RtDump::nexthops;
      const bool hasChanged = *dumpedState_ != all && isCounted;
      const std::uint16_t flags = hasChanged || isInterrupted() ? NLM_F_DUMP_INTR : 0;
      append(piece, Message(NLMSG_DONE, NLM_F_MULTI | flags, dumped_.sequence, port).fixed(0).bytes());
      dumped_.isRunning = false;
    }
    latePiece_ = std::move(piece);
    if (!isPieceLate()) releaseLatePiece();
  }

  void releaseLatePiece() {
    if (!latePiece_.empty()) queue_.push_back(std::exchange(latePiece_, {}));
  }

  std::deque<Bytes> queue_;
  Bytes latest_;
  Bytes latePiece_;
  Dump dumped_;
  std::optional<std::vector<Bytes>> dumpedState_;
  bool isCongested_ = false;
  bool isOverrunUntold_ = false;
};

}  // namespace Mirror::Test
