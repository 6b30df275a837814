#include "quillo/tables/ArpTableMount.h"

#include "quillo/Tell.h"
#include "quillo/tables/ArpRecord.h"
#include "quillo/tables/VrfKey.h"

namespace Quillo {
namespace {

Kel::TraceHandle arpTableMountTrace("QuilloArpTable");

}  // namespace

// Pass on what the follower tells. Both are detached before their table goes.
class ArpTableMount::Following : public TableFollower::Notifiee {
  using Reactor = Arp::Table::Status::Notifiee;

 public:
  const ArpTableMount* table = nullptr;
  void handleInitialized() override {
    tell<Reactor>(*table, arpTableMountTrace, [](Reactor& reactor) { reactor.handleInitialized(); });
  }
  void handleTables() override {
    tell<Reactor>(*table, arpTableMountTrace, [](Reactor& reactor) { reactor.handleTable(); });
  }
};

class ArpTableMount::Keys : public TableKeys::Notifiee {
 public:
  const ArpTableMount* table = nullptr;
  TableId id = TableId::arp;
  void handleKey(const std::string& bytes) override { table->tellKey(id, bytes); }
};

ArpTableMount::ArpTableMount(const Kel::Ptr<Mount>& mount) : ArpTableMount(Kel::makePtr<TableFollower>(mount)) {
}

ArpTableMount::ArpTableMount(Kel::Ptr<TableFollower> follower)
    : follower_(std::move(follower)),
      arp_(follower_, TableId::arp),
      neighbor_(follower_, TableId::neighbor),
      following_(Kel::makePtr<Following>()),
      arpKeys_(Kel::makePtr<Keys>()),
      neighborKeys_(Kel::makePtr<Keys>()) {
  following_->table = this;
  following_->notifierIs(follower_);
  for (const auto& [keys, id] : {std::pair(arpKeys_, TableId::arp), std::pair(neighborKeys_, TableId::neighbor)}) {
    keys->table = this;
    keys->id = id;
    keys->notifierIs(follower_->keys(id));
  }
}

ArpTableMount::~ArpTableMount() {
  following_->notifierIs(nullptr);
  arpKeys_->notifierIs(nullptr);
  neighborKeys_->notifierIs(nullptr);
}

void ArpTableMount::tellKey(TableId table, const std::string& bytes) const {
  ArpKey key;
  if (const auto* what = Arp::Table::decodeKey(table, bytes, key)) {
    corruptionDetected(reader(table).damage(bytes, what));
    return;
  }
  tell<Notifiee>(*this, arpTableMountTrace, [&](Notifiee& reactor) {
    table == TableId::arp ? reactor.onArpEntry(key) : reactor.onNeighborEntry(key);
  });
}

ArpTableMount::ArpEntry ArpTableMount::entry(TableId table, const ArpKey& key) const {
  if (Arp::Table::tableOf(key.addr) != table || !Arp::Table::isStorable(key)) return {};
  if (!isReadable()) return {};
  ArpEntry entry{key, {}, {}};
  const bool isThere = reader(table).get(Arp::Table::encodeKey(key),
                                         [&](Bytes value) { return Arp::Table::decodeValue(value, entry); });
  return isThere ? entry : ArpEntry();
}

void ArpTableMount::walk(TableId table, const VrfId& vrfId, const Vantu::IpGenAddr& from,
                         const VisitWhile& visit) const {
  if (!isStorable(vrfId) || !isReadable()) return;
  reader(table).walk(encodeVrf(vrfId), Arp::Table::encodeAddress(vrfId, from), [&](const Scan& scan, bool& goesOn) {
    ArpEntry entry;
    const auto* what = Arp::Table::decodeKey(table, scan.key(), entry.key);
    if (!what) what = Arp::Table::decodeValue(scan.value(), entry);
    if (!what) goesOn = visit(entry);
    return what;
  });
}

}  // namespace Quillo
