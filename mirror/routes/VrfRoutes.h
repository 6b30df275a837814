#pragma once
// The routes of one kernel routing table, both IP versions, and their FECs. They are published once their VRF is known.

#include <optional>

#include "mirror/routes/PublishedRoutes.h"
#include "mirror/routes/RouteFamily.h"

namespace Mirror {

class VrfRoutes {
 public:
  // Lifetime: `published` must outlive this object.
  VrfRoutes(PublishedRoutes& published, RouteContents::Resolve resolve)
      : published_(published), contents_(std::move(resolve)) {}
  ~VrfRoutes() { vrfIdIs({}); }
  VrfRoutes(const VrfRoutes&) = delete;
  VrfRoutes& operator=(const VrfRoutes&) = delete;

  // Sets the VRF to publish the routes under; none: not published. The store loses those of the previous VRF.
  void vrfIdIs(std::optional<Vrf::VrfIdMap::VrfId> vrfId);
  const std::optional<Vrf::VrfIdMap::VrfId>& vrfId() const { return vrfId_; }

  // Pass a message to the routes of its IP version; the dump and its results are those of RouteFamily.
  void notified(const RouteMessage& message);
  void dumped(const RouteMessage& message);
  // Begins a dump of both IP versions. Requires: `stamp` is above that of the last dump.
  void beginDump(DumpStamp stamp);
  // Deletes routes that the dump did not have; visits about `limit` routes. Returns whether the sweep is complete.
  bool sweep(Vantu::Af af, std::size_t limit);
  void endDump();
  // Return whether a notification contradicted the known routes, or a dump found a change that was not notified, and
  // reset that.
  bool takeDoubt();
  bool takeFound();

  // Computes the vias of the contents that satisfy the condition again, and makes the prefixes of those whose vias
  // changed pending.
  void reassess(const RouteContents::Condition& condition) { move(contents_.outdated(condition)); }
  // The same for the contents with one of the next-hop objects.
  void reassess(const RouteContents::NexthopIds& ids) { move(contents_.outdated(ids)); }
  const RouteContents& contents() const { return contents_; }
  std::size_t size() const { return ipv4_.size() + ipv6_.size(); }
  // The gateways of all default routes that can forward; an address and interface may occur several times.
  std::vector<Quillo::Fib::Via> gateways() const {
    std::vector<Quillo::Fib::Via> gateways;
    ipv4_.addGateways(gateways);
    ipv6_.addGateways(gateways);
    return gateways;
  }

  // ---- for PublishedRoutes
  std::size_t pending() const { return ipv4_.pending() + ipv6_.pending(); }
  void allPending();
  // Adds at most `limit` prefixes; returns how many.
  std::size_t addTo(Quillo::Batch& batch, std::size_t limit);
  void written();

 private:
  template <class Use>
  auto withFamily(Vantu::Af af, const Use& use);
  void move(const std::unordered_set<RouteContents::Slot>& outdated);
  void unplan();

  PublishedRoutes& published_;
  RouteContents contents_;
  RouteFamily<Vantu::Prefix> ipv4_{contents_};
  RouteFamily<Vantu::Ip6Prefix> ipv6_{contents_};
  std::optional<Vrf::VrfIdMap::VrfId> vrfId_;
  std::vector<RouteContents::Fec*> planned_;  // FECs of the open batch, each once
};

}  // namespace Mirror
