#pragma once
// The routes of one of the kernel's routing tables, both IP versions, and the FECs that they make: those of a VRF, as
// soon as it is known which.

#include <optional>

#include "mirror/routes/PublishedRoutes.h"
#include "mirror/routes/RouteFamily.h"

namespace Mirror {

class VrfRoutes {
 public:
  // `published` must outlive this object.
  VrfRoutes(PublishedRoutes& published, RouteContents::Resolve resolve)
      : published_(published), contents_(std::move(resolve)) {}
  ~VrfRoutes() { vrfIdIs({}); }
  VrfRoutes(const VrfRoutes&) = delete;
  VrfRoutes& operator=(const VrfRoutes&) = delete;

  // The VRF in whose name the routes are published; none: they are not. They go from the store with the name.
  void vrfIdIs(std::optional<Vrf::VrfIdMap::VrfId> vrfId);
  const std::optional<Vrf::VrfIdMap::VrfId>& vrfId() const { return vrfId_; }

  void notified(const RouteMessage& message);
  void dumped(const RouteMessage& message);
  void listingIs(std::uint8_t stamp);
  bool sweep(Vantu::Af af, std::size_t limit);
  void listingEnds();
  bool takeDoubt();
  bool takeFound();

  // Those contents of which the condition holds may resolve to other vias than before.
  void reassess(const RouteContents::Condition& condition) { move(contents_.outdated(condition)); }
  // Those with one of the next-hop objects.
  void reassess(const RouteContents::NexthopIds& ids) { move(contents_.outdated(ids)); }
  const RouteContents& contents() const { return contents_; }
  std::size_t size() const { return ipv4_.size() + ipv6_.size(); }

  // For PublishedRoutes.
  std::size_t pending() const { return ipv4_.pending() + ipv6_.pending(); }
  void allPending();
  // Returns how many prefixes that were.
  std::size_t addTo(Quillo::Batch& batch, std::size_t limit);
  void written();

 private:
  void move(const std::unordered_set<RouteContents::Slot>& outdated);
  void unplan();

  PublishedRoutes& published_;
  RouteContents contents_;
  RouteFamily<Vantu::Prefix> ipv4_{contents_};
  RouteFamily<Vantu::Ip6Prefix> ipv6_{contents_};
  std::optional<Vrf::VrfIdMap::VrfId> vrfId_;
  std::vector<RouteContents::Fec*> planned_;  // FECs of the batch under way, each once
};

}  // namespace Mirror
