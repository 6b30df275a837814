#include "quillo/ArpTableMount.h"

#include <vector>

#include "quillo/ArpRecord.h"
#include "quillo/ScanAround.h"
#include "quillo/Tell.h"
#include "quillo/VrfKey.h"

namespace Quillo {
namespace {

using Pesk::CorruptionDetectedException;

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
    corruptionDetected(damage(table, bytes, what));
    return;
  }
  tell<Notifiee>(*this, arpTableMountTrace, [&](Notifiee& reactor) {
    table == TableId::arp ? reactor.handleArpEntry(key) : reactor.handleNeighborEntry(key);
  });
}

ArpTableMount::ArpEntry ArpTableMount::entry(TableId table, const ArpKey& key) const {
  if (Arp::Table::tableOf(key.addr) != table || !Arp::Table::isStorable(key)) return {};
  auto view = snapshot();
  if (!view) return {};
  const auto bytes = Arp::Table::encodeKey(key);
  const auto value = view->get(table, bytes);
  if (!value) return {};
  ArpEntry entry{key, {}, {}};
  if (const auto* what = Arp::Table::decodeValue(*value, entry)) throw damage(table, bytes, what);
  return entry;
}

void ArpTableMount::walk(TableId table, const VrfId& vrfId, const Visit& visit) const {
  if (!isStorable(vrfId)) return;
  const auto view = snapshot();
  if (!view) return;
  const auto vrf = encodeVrf(vrfId);
  std::vector<CorruptionDetectedException> met;
  const auto take = [&](const Scan& scan) {
    if (!scan.key().starts_with(vrf)) return false;
    ArpEntry entry;
    const auto* what = Arp::Table::decodeKey(table, scan.key(), entry.key);
    if (!what) what = Arp::Table::decodeValue(scan.value(), entry);
    if (what) {
      met.push_back(damage(table, scan.key(), what));
    } else {
      visit(entry);
    }
    return true;
  };
  scanAround(*view, table, vrf, take, [&](const std::string& key, const CorruptionDetectedException& found) {
    if (!key.starts_with(vrf)) return false;
    met.push_back(found);
    return true;
  });
  if (met.empty()) return;
  for (auto other = met.begin() + 1; other != met.end(); ++other) corruptionDetected(*other);
  throw CorruptionDetectedException(met.front());
}

std::optional<Snapshot> ArpTableMount::snapshot() const {
  const auto& mount = follower_->mount();
  if (mount->state() != Mount::State::ready) return std::nullopt;
  try {
    auto view = mount->snapshot();
    obstacle_.clear();
    return view;
  } catch (const StoreException& error) {
    if (obstacle_ != error.what()) {
      QTRACE(arpTableMountTrace, 0) << "neighbours not read: " << error.what();
    }
    obstacle_ = error.what();
    return std::nullopt;
  }
}

CorruptionDetectedException ArpTableMount::damage(TableId table, Bytes key, const char* what) const {
  return {follower_->mount()->directory(), tableInfo(table).name, printableKey(key), what};
}

}  // namespace Quillo
