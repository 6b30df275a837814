#include "quillo/tables/ArpTableMount.h"

namespace Quillo {
namespace {

Kel::TraceHandle arpTableMountTrace("QuilloArpTable");

}  // namespace

ArpTableMount::ArpTableMount(const Kel::Ptr<TableFollower>& follower)
    : arp_(follower),
      neighbor_(follower),
      watch_(follower, {.initialized = [this] { notify([](Notifiee& reactor) { reactor.handleInitialized(); }); },
                        .tables = [this] { notify([](Notifiee& reactor) { reactor.handleTable(); }); },
                        .keys = {arp_.onKey([this](const ArpKey& key) {
                                   notify([&](Notifiee& reactor) { reactor.onArpEntry(key); });
                                 }),
                                 neighbor_.onKey([this](const ArpKey& key) {
                                   notify([&](Notifiee& reactor) { reactor.onNeighborEntry(key); });
                                 })}}) {
}

void ArpTableMount::notify(const std::function<void(Notifiee&)>& call) const {
  notifyEach<Notifiee>(*this, arpTableMountTrace, call);
}

ArpTableMount::ArpEntry ArpTableMount::arpEntry(const ArpKey& key) const {
  ArpEntry entry;
  arp_.find(key, entry);
  return entry;
}

ArpTableMount::ArpEntry ArpTableMount::neighborEntry(const ArpKey& key) const {
  ArpEntry entry;
  neighbor_.find(key, entry);
  return entry;
}

}  // namespace Quillo
