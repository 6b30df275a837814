#pragma once
// The reactors of FibStatsMachine. Not for its users. They belong to it and must not outlive it.

#include "fibstats/agent/FibStatsMachine.h"

namespace FibStatsSnmp {

template <class Family>
class FibStatsMachine<Family>::KelRouteStatus : public RouteStatus::Notifiee {
 public:
  explicit KelRouteStatus(FibStatsMachine* owner) : owner_(owner) {}
  void handleInitialized() override { owner_->handleRoute(); }
  void onRoute(const Prefix& prefix) override { owner_->handleRoute(prefix); }
  void onTable() override { owner_->handleRoute(); }

 private:
  FibStatsMachine* const owner_;
};

template <class Family>
class FibStatsMachine<Family>::KelArpQuillo : public Arp::Table::Status::Notifiee {
 public:
  explicit KelArpQuillo(FibStatsMachine* owner) : owner_(owner) {}
  void handleInitialized() override { owner_->handleNeighbour(); }
  void onArpEntry(const ArpKey& key) override {
    if (Family::version == Ip::ipVersion4) owner_->onNeighbour(key);
  }
  void onNeighborEntry(const ArpKey& key) override {
    if (Family::version == Ip::ipVersion6) owner_->onNeighbour(key);
  }
  void handleTable() override { owner_->handleNeighbour(); }

 private:
  FibStatsMachine* const owner_;
};

}  // namespace FibStatsSnmp
