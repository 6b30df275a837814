#pragma once
// For tests: a table of neighbours in memory, which can be told to be damaged.

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "quillo/tables/ArpTable.h"

namespace Arp::Table {

class TestStatus : public Status {
 public:
  using VrfId = Vrf::VrfIdMap::VrfId;

  bool initialized() const override { return isInitialized; }
  ArpEntry arpEntry(const ArpKey& key) const override { return entry(arp_, key); }
  ArpEntry neighborEntry(const ArpKey& key) const override { return entry(neighbor_, key); }
  void forEachArpEntry(const VrfId& vrfId, const Vantu::IpGenAddr& from, const VisitWhile& visit) const override {
    forEach(arp_, vrfId, from, visit);
  }
  void forEachNeighborEntry(const VrfId& vrfId, const Vantu::IpGenAddr& from,
                            const VisitWhile& visit) const override {
    forEach(neighbor_, vrfId, from, visit);
  }
  void corruptionDetected(const Pesk::CorruptionDetectedException& error) const override {
    reports.emplace_back(error.what());
  }

  // Each tells the reactors.
  void entryIs(const ArpEntry& entry) {
    mapOf(entry.key)[entry.key] = entry;
    notify(entry.key);
  }
  void entryDel(const ArpKey& key) {
    if (mapOf(key).erase(key) > 0) notify(key);
  }
  void initializedIs() {
    isInitialized = true;
    kelNotify<Notifiee>([](Notifiee& reactor) { reactor.handleInitialized(); });
  }
  // In the place of everything that is there; told as one change.
  void tableIs(const std::vector<ArpEntry>& entries) {
    arp_.clear();
    neighbor_.clear();
    for (const auto& entry : entries) mapOf(entry.key)[entry.key] = entry;
    kelNotify<Notifiee>([](Notifiee& reactor) { reactor.handleTable(); });
  }

  std::function<void(const VrfId&)> walkBegins = [](const auto&) {};  // may throw
  bool isInitialized = true;
  std::optional<std::string> damage;  // what every read then throws
  std::optional<ArpKey> damagedKey;   // with damage: lookups of other keys throw nothing
  mutable std::vector<std::string> reports;

 private:
  using Map = std::map<ArpKey, ArpEntry>;

  Map& mapOf(const ArpKey& key) { return key.addr.af() == Vantu::ipv4_ ? arp_ : neighbor_; }
  void notify(const ArpKey& key) const {
    kelNotify<Notifiee>([&](Notifiee& reactor) {
      key.addr.af() == Vantu::ipv4_ ? reactor.onArpEntry(key) : reactor.onNeighborEntry(key);
    });
  }
  void check() const {
    if (damage) throw Pesk::CorruptionDetectedException("test", "arp", "key", *damage);
  }
  ArpEntry entry(const Map& map, const ArpKey& key) const {
    if (!damagedKey || *damagedKey == key) check();
    const auto at = map.find(key);
    return at == map.end() ? ArpEntry() : at->second;
  }
  void forEach(const Map& map, const VrfId& vrfId, const Vantu::IpGenAddr& from, const VisitWhile& visit) const {
    walkBegins(vrfId);
    for (auto at = map.lower_bound({vrfId, from, {}}); at != map.end() && at->first.vrfId == vrfId; ++at) {
      if (!visit(at->second)) return;
    }
    check();
  }

  Map arp_;
  Map neighbor_;
};

}  // namespace Arp::Table
