#pragma once
// The contents of a VRF's routes, each kept once however many routes share it, and the FECs that they resolve to.
//
// A FEC's id is a hash of its vias, so a restarted mirror assigns the same ids. Contents with equal vias (of different
// origins, for example) share a FEC. A FEC lives while a content resolves to it or a route in the store names it.

#include <boost/container_hash/hash.hpp>
#include <cstdint>
#include <deque>
#include <functional>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "mirror/rtnetlink/RtMessage.h"
#include "quillo/tables/Fec.h"
#include "vantu/RouteTypes.h"

namespace Mirror {

// ---- the attributes of a route in the store

// The type number in the store, which follows from the route's protocol and IP version (docs/mirror.md).
Routing::Fib::RouteType routeTypeOf(const RouteContent& content);
// The administrative distance that routers commonly give to the protocol.
Routing::RoutePreference preferenceOf(const RouteContent& content);
inline constexpr std::uint8_t staticDistance = 1;  // of static routes
// Whether a route is static and was added without a protocol (RTPROT_BOOT).
bool isNotPersistent(const RouteContent& content);
// Whether a route is static and uses a next-hop object. False for FRR's static routes: FRR makes a next-hop object for
// nearly every route, so the object does not show how the route was configured.
bool isNexthopGroup(const RouteContent& content);
// What the route does with packets. `vias`: those that the content resolves to.
Routing::Fib::RouteAction actionOf(const RouteContent& content, const std::vector<Quillo::Fib::Via>& vias);

// ---- the contents of a table

class RouteContents {
 public:
  using Slot = std::uint32_t;  // identifies a content while it is referred to

  struct Fec {
    Quillo::Fib::Fec fec;
    std::uint32_t contents = 0;  // contents that resolve to it, and other uses of take()
    std::uint32_t stored = 0;    // routes in the store that name it
    std::int32_t planned = 0;    // the change of `stored` by the open batch
  };

  // The vias of a content, sorted and unique, at most Quillo::Fib::Fec::maxVias; empty when it cannot forward (if all
  // hops are dead, for example).
  using Resolve = std::function<std::vector<Quillo::Fib::Via>(const RouteContent&)>;
  explicit RouteContents(Resolve resolve) : resolve_(std::move(resolve)) {}
  RouteContents(const RouteContents&) = delete;
  RouteContents& operator=(const RouteContents&) = delete;

  // Adds a reference, and the content with the first one.
  Slot refer(const RouteContent& content);
  // Removes a reference, and the content with the last one.
  void release(Slot slot);

  const RouteContent& content(Slot slot) const { return *nodes_[slot].content; }
  // Null when the content cannot forward.
  Fec* fec(Slot slot) const { return nodes_[slot].fec; }
  std::size_t contentCount() const { return slots_.size(); }
  std::size_t fecCount() const { return fecs_.size(); }

  // Searching by condition visits all contents; searching by next-hop objects visits only those that use one.
  using Condition = std::function<bool(const RouteContent&)>;
  using NexthopIds = std::set<std::uint32_t>;
  bool any(const Condition& condition) const;
  bool any(const NexthopIds& ids) const { return !having(ids).empty(); }
  // The matching contents that now resolve to another FEC than they have.
  std::unordered_set<Slot> outdated(const Condition& condition) const;
  std::unordered_set<Slot> outdated(const NexthopIds& ids) const;
  // Resolves the contents again. Callers that need the old FECs read them first.
  void resolveAgain(const std::unordered_set<Slot>& slots);

  // The FEC with these vias, for as long as the caller holds it; release it with drop(). Null without vias.
  // Requires: `vias` are sorted and unique.
  Fec* take(const std::vector<Quillo::Fib::Via>& vias);
  void drop(Fec& fec);

  // Call it for a FEC whose counts went down.
  void dropIfUnused(Fec& fec);
  // The FECs that are in the store.
  std::vector<Quillo::Fib::FecId> storedIds() const;
  // Records that no FEC is in the store.
  void forgetStored();

 private:
  struct Node {
    const RouteContent* content = nullptr;
    std::uint32_t references = 0;
    Fec* fec = nullptr;
  };
  struct Hash {
    std::size_t operator()(const RouteContent& content) const;
  };

  std::vector<Slot> having(const NexthopIds& ids) const;
  bool isOutdated(Slot slot) const;
  void fecDetached(Node& node);

  Resolve resolve_;
  std::unordered_map<RouteContent, Slot, Hash> slots_;
  std::deque<Node> nodes_;  // by slot
  std::vector<Slot> free_;
  std::set<std::pair<std::uint32_t, Slot>> byNexthop_;  // the few contents with a next-hop object
  std::unordered_map<std::uint64_t, Fec> fecs_;
};

}  // namespace Mirror
