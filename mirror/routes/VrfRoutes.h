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

  void notified(const RouteMessage& message);
  void dumped(const RouteMessage& message);
  void listingIs(DumpStamp stamp);
  bool sweep(Vantu::Af af, std::size_t limit);
  void endDump();
  bool takeDoubt();
  bool takeFound();

  // Resolves the contents that satisfy the condition again, and makes the prefixes of those with new vias pending.
  void reassess(const RouteContents::Condition& condition) { move(contents_.outdated(condition)); }
  // The same for the contents with one of the next-hop objects.
  void reassess(const RouteContents::NexthopIds& ids) { move(contents_.outdated(ids)); }
  const RouteContents& contents() const { return contents_; }
  std::size_t size() const { return ipv4_.size() + ipv6_.size(); }

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
