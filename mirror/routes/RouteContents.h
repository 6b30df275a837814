#pragma once
// What the routes of one VRF say, each content once however many routes say it, and the FECs that follow from it.
//
// A FEC's id is a hash of its vias, so a mirror that is started again gives the same ids. Two contents with equal
// vias (they may differ in who made the route) share a FEC. FECs live as long as a content resolves to them, or a
// route in the store names them.

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

// ---- how a content is recorded in the store

// By the route's protocol (docs/mirror.md).
Routing::Fib::RouteType routeTypeOf(const RouteContent& content);
// The administrative distance that routers commonly give the protocol.
inline constexpr std::uint8_t staticDistance = 1;
Routing::RoutePreference preferenceOf(const RouteContent& content);
// Kinds of static routes: made at the prompt (RTPROT_BOOT), and made through a next-hop object. False of other routes,
// and the second one of FRR's static routes, too: FRR makes a next-hop object for nearly every route.
bool isNotPersistent(const RouteContent& content);
bool isNexthopGroup(const RouteContent& content);

// ---- the contents of a table

class RouteContents {
 public:
  using Slot = std::uint32_t;  // stands for a content as long as it is referred to

  struct Fec {
    Quillo::Fib::Fec fec;
    std::uint32_t contents = 0;  // that resolve to it
    std::uint32_t stored = 0;    // routes in the store that name it
    std::int32_t planned = 0;    // how the batch under way changes that
  };

  // The vias of a content, sorted, each once; empty when nothing can be forwarded (all hops are dead, say).
  using Resolve = std::function<std::vector<Quillo::Fib::Via>(const RouteContent&)>;
  explicit RouteContents(Resolve resolve) : resolve_(std::move(resolve)) {}
  RouteContents(const RouteContents&) = delete;
  RouteContents& operator=(const RouteContents&) = delete;

  // Each counts one reference more.
  Slot refer(const RouteContent& content);
  // One less; with the last one the content goes.
  void release(Slot slot);

  const RouteContent& content(Slot slot) const { return *nodes_[slot].content; }
  // Null when nothing can be forwarded.
  Fec* fec(Slot slot) const { return nodes_[slot].fec; }
  std::size_t contentCount() const { return slots_.size(); }
  std::size_t fecCount() const { return fecs_.size(); }

  // What asks for a condition looks through all contents; what asks for next-hop objects looks at those that have one.
  using Condition = std::function<bool(const RouteContent&)>;
  using NexthopIds = std::set<std::uint32_t>;
  bool any(const Condition& condition) const;
  bool any(const NexthopIds& ids) const { return !having(ids).empty(); }
  // Those of which the condition holds and which resolve to another FEC than they did.
  std::unordered_set<Slot> outdated(const Condition& condition) const;
  std::unordered_set<Slot> outdated(const NexthopIds& ids) const;
  // Gives those their new FECs. Whoever wants to know the old ones asks before.
  void resolveAgain(const std::unordered_set<Slot>& slots);

  // To be called for a FEC whose counts went down.
  void dropIfUnused(Fec& fec);
  // FECs that are in the store.
  std::vector<Quillo::Fib::FecId> storedIds() const;
  // No FEC is in the store.
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
  Fec* fecOf(const RouteContent& content);
  void fecDetached(Node& node);

  Resolve resolve_;
  std::unordered_map<RouteContent, Slot, Hash> slots_;
  std::deque<Node> nodes_;  // by slot
  std::vector<Slot> free_;
  std::set<std::pair<std::uint32_t, Slot>> byNexthop_;  // those with a next-hop object, of which there are few
  std::unordered_map<std::uint64_t, Fec> fecs_;
};

}  // namespace Mirror
