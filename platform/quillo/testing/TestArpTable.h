#pragma once
// For tests: a table of neighbours in memory, whose reads can be made to fail.

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "quillo/StoreException.h"
#include "quillo/tables/ArpTable.h"

namespace Arp::Table {

class TestStatus : public Status {
 public:
  using VrfId = Vrf::VrfIdMap::VrfId;

  bool initialized() const override { return isInitialized; }
  ArpEntry arpEntry(const ArpKey& key) const override { return entry(Vantu::ipv4_, key); }
  ArpEntry neighborEntry(const ArpKey& key) const override { return entry(Vantu::ipv6_, key); }
  void forEachArpEntry(const VrfId& vrfId, const Vantu::IpGenAddr& from, const VisitWhile& visit) const override {
    forEach(Vantu::ipv4_, vrfId, from, visit);
  }
  void forEachNeighborEntry(const VrfId& vrfId, const Vantu::IpGenAddr& from,
                            const VisitWhile& visit) const override {
    forEach(Vantu::ipv6_, vrfId, from, visit);
  }
  void corruptionDetected(const Pesk::CorruptionDetectedException& error) const override {
    reports.emplace_back(error.what());
  }

  // Add, change and delete entries, and notify the reactors.
  void entryIs(const ArpEntry& entry) {
    map_[entry.key] = entry;
    notify(entry.key);
  }
  void entryDel(const ArpKey& key) {
    if (map_.erase(key) > 0) notify(key);
  }
  void initializedIs() {
    isInitialized = true;
    kelNotify<Notifiee>([](Notifiee& reactor) { reactor.handleInitialized(); });
  }
  // Replaces all entries, with one notification.
  void tableIs(const std::vector<ArpEntry>& entries) {
    map_.clear();
    for (const auto& entry : entries) map_[entry.key] = entry;
    kelNotify<Notifiee>([](Notifiee& reactor) { reactor.handleTable(); });
  }

  std::function<void(const VrfId&)> walkBegins = [](const auto&) {};  // may throw
  bool isInitialized = true;
  bool isReadable = true;
  std::optional<std::string> damage;  // every read throws CorruptionDetectedException with this text
  std::optional<ArpKey> damagedKey;   // with `damage`: lookups of other keys do not throw
  mutable std::vector<std::string> reports;

 private:
  void notify(const ArpKey& key) const {
    kelNotify<Notifiee>([&](Notifiee& reactor) {
      key.addr.af() == Vantu::ipv4_ ? reactor.onArpEntry(key) : reactor.onNeighborEntry(key);
    });
  }
  void check() const {
    if (damage) throw Pesk::CorruptionDetectedException("test", "arp", "key", *damage);
  }
  void expectReadable() const {
    if (!isReadable) throw Quillo::StoreException(Quillo::StoreException::Kind::notReady, "test");
  }
  ArpEntry entry(Vantu::Af family, const ArpKey& key) const {
    expectReadable();
    if (!damagedKey || *damagedKey == key) check();
    const auto at = map_.find(key);
    return at == map_.end() || key.addr.af() != family ? ArpEntry() : at->second;
  }
  void forEach(Vantu::Af family, const VrfId& vrfId, const Vantu::IpGenAddr& from, const VisitWhile& visit) const {
    expectReadable();
    walkBegins(vrfId);
    for (auto at = map_.lower_bound({vrfId, from, {}}); at != map_.end() && at->first.vrfId == vrfId; ++at) {
      if (at->first.addr.af() == family && !visit(at->second)) return;
    }
    check();
  }

  std::map<ArpKey, ArpEntry> map_;
};

}  // namespace Arp::Table
