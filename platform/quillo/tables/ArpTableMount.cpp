#include "quillo/tables/ArpTableMount.h"

#include "quillo/tables/ArpRecord.h"
#include "quillo/tables/VrfKey.h"

namespace Quillo {
namespace {

Kel::TraceHandle arpTableMountTrace("QuilloArpTable");

}  // namespace

ArpTableMount::ArpTableMount(Kel::Ptr<TableFollower> follower)
    : follower_(std::move(follower)),
      arp_(follower_, TableId::arp),
      neighbor_(follower_, TableId::neighbor),
      watch_(follower_,
             {.initialized =
                  [this] {
                    notifyEach<Notifiee>(*this, arpTableMountTrace,
                                         [](Notifiee& reactor) { reactor.handleInitialized(); });
                  },
              .tables =
                  [this] {
                    notifyEach<Notifiee>(*this, arpTableMountTrace,
                                         [](Notifiee& reactor) { reactor.handleTable(); });
                  },
              .keys = {{TableId::arp, [this](const auto& bytes) { notifyKey(TableId::arp, bytes); }},
                       {TableId::neighbor, [this](const auto& bytes) { notifyKey(TableId::neighbor, bytes); }}}}) {
}

void ArpTableMount::notifyKey(TableId table, const std::string& bytes) const {
  ArpKey key;
  if (const auto* what = Arp::Table::decodeKey(table, bytes, key)) {
    corruptionDetected(reader(table).damage(bytes, what));
    return;
  }
  notifyEach<Notifiee>(*this, arpTableMountTrace, [&](Notifiee& reactor) {
    table == TableId::arp ? reactor.onArpEntry(key) : reactor.onNeighborEntry(key);
  });
}

ArpTableMount::ArpEntry ArpTableMount::entry(TableId table, const ArpKey& key) const {
  if (Arp::Table::tableOf(key.addr) != table || !Arp::Table::isStorable(key)) return {};
  ArpEntry entry{key, {}, {}};
  const bool isThere = reader(table).get(Arp::Table::encodeKey(key),
                                         [&](Bytes value) { return Arp::Table::decodeValue(value, entry); });
  return isThere ? entry : ArpEntry();
}

void ArpTableMount::walk(TableId table, const VrfId& vrfId, const Vantu::IpGenAddr& from,
                         const VisitWhile& visit) const {
  if (!isStorable(vrfId)) return;
  reader(table).walk(encodeVrf(vrfId), Arp::Table::encodeAddress(vrfId, from), [&](const Scan& scan, bool& goesOn) {
    ArpEntry entry;
    const auto* what = Arp::Table::decodeKey(table, scan.key(), entry.key);
    if (!what) what = Arp::Table::decodeValue(scan.value(), entry);
    if (!what) goesOn = visit(entry);
    return what;
  });
}

}  // namespace Quillo
