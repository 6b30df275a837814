#include "ctl/SwitchStore.h"

#include <fmt/format.h>

#include <utility>

#include "kel/System.h"
#include "kel/Trace.h"
#include "quillo/tables/Records.h"
#include "varnix/Document.h"
#include "varnix/TreeLoader.h"

namespace Ctl {

namespace {

using Quillo::TableId;

Kel::TraceHandle switchStoreTrace("CtlSwitch");

// Records in one commit: writing them takes some tens of milliseconds.
constexpr std::size_t recordsPerCommit = 10'000;
// A store that is lost again within this time was not mended by a new beginning.
constexpr Kel::Seconds madeAnewPause = 10;
constexpr Kel::Seconds checkPeriod = 0.9;  // less than between two calls of poll()

class SnapshotTables {
 public:
  SnapshotTables(const Quillo::Snapshot& snapshot, const std::function<void(const std::string&)>& leftOut)
      : snapshot_(snapshot), leftOut_(leftOut) {}

  // `take` returns null, or what is wrong with the record.
  template <class Take>
  void read(TableId table, const Take& take) {
    const auto name = Quillo::tableInfo(table).name;
    Quillo::scanAround(
        snapshot_, table, {},
        [&](const Quillo::Scan& scan) {
          if (const char* what = take(scan)) {
            leftOut_(
                fmt::format("table {}, key \"{}\": {}; left out", name, Quillo::printableKey(scan.key()), what));
          }
          return true;
        },
        [&](const std::string&, const Pesk::CorruptionDetectedException& damage) {
          leftOut_(fmt::format("{}; left out", damage.what()));
          return true;
        });
  }

 private:
  const Quillo::Snapshot& snapshot_;
  const std::function<void(const std::string&)>& leftOut_;
};

template <class PrefixType>
void copyRoutes(SnapshotTables& reader, SwitchState& state) {
  reader.read(Quillo::RouteRecord<PrefixType>::table, [&](const Quillo::Scan& scan) {
    using Record = Quillo::RouteRecord<PrefixType>;
    typename Record::Key key;
    typename Record::Entry route;
    const char* what = Quillo::decodeRecord<Record>(scan.key(), scan.value(), key, route);
    if (!what) state.tables[key.vrfId].template routesOf<PrefixType>().push_back(route);
    return what;
  });
}

template <Vantu::Af family>
void copyNeighbours(SnapshotTables& reader, SwitchState& state) {
  using Record = Quillo::ArpRecord<family>;
  reader.read(Record::table, [&](const Quillo::Scan& scan) {
    Arp::Table::ArpEntry entry;
    const char* what = Quillo::decodeRecord<Record>(scan.key(), scan.value(), entry.key, entry);
    if (!what) state.neighbours.push_back(std::move(entry));
    return what;
  });
}

// Writes records in commits of limited size.
class Batches {
 public:
  Batches(Quillo::Publisher& store, std::size_t records, const SwitchPublisher::Progress& progress)
      : batch_(store.begin()), records_(records), progress_(progress) {}

  Quillo::Batch& next() {
    if (++count_ % recordsPerCommit == 0) commit();
    return batch_;
  }
  void commit() {
    batch_.commit();
    if (progress_) progress_(static_cast<double>(count_) / static_cast<double>(records_ + 1));
  }

 private:
  Quillo::Batch batch_;
  std::size_t records_;
  std::size_t count_ = 0;
  const SwitchPublisher::Progress& progress_;
};

}  // namespace

SwitchState switchFromStore(Quillo::Mount& mount, const std::function<void(const std::string&)>& leftOut) {
  SwitchState state;
  const auto snapshot = mount.snapshot();
  SnapshotTables reader(snapshot, leftOut);
  Varnix::TreeLoader loader(state.tree.root, state.tree.openDirs());
  reader.read(TableId::varnix, [&](const Quillo::Scan& scan) -> const char* {
    loader.loadDocument(std::string(scan.key()), scan.value());
    return nullptr;
  });
  while (loader.settle(1000)) {
  }
  loader.reportUnplaced();
  copyNeighbours<Vantu::ipv4_>(reader, state);
  copyNeighbours<Vantu::ipv6_>(reader, state);
  copyRoutes<Vantu::Prefix>(reader, state);
  copyRoutes<Vantu::Ip6Prefix>(reader, state);
  reader.read(TableId::fec, [&](const Quillo::Scan& scan) {
    Quillo::FecRecord::Key key;
    Quillo::Fib::Fec fec;
    const char* what = Quillo::decodeRecord<Quillo::FecRecord>(scan.key(), scan.value(), key, fec);
    if (!what) state.tables[key.vrfId].fecs.emplace(key.fecId, std::move(fec.via));
    return what;
  });
  return state;
}

SwitchPublisher::SwitchPublisher(const Quillo::PublisherConfig& config) : store_(config) {
}

void SwitchPublisher::publish(std::shared_ptr<const SwitchState> state, const Progress& progress) {
  documents_ = nullptr;
  state_ = std::move(state);
  begun_ = Kel::System::currentTime();
  documents_ = std::make_unique<Varnix::DocumentPublisher>(state_->tree, store_);
  writeAll(progress);
}

// Routes come first, so that readers find them once their VRF exists; of these, each FEC before its routes.
void SwitchPublisher::writeAll(const Progress& progress) {
  store_.beginFullPass(
      {TableId::varnix, TableId::arp, TableId::neighbor, TableId::route, TableId::route6, TableId::fec});
  std::size_t records = state_->routes() + state_->neighbours.size();
  for (const auto& [vrfId, tables] : state_->tables) records += tables.fecs.size();
  Batches batches(store_, records, progress);
  for (const auto& [vrfId, tables] : state_->tables) {
    for (const auto& [fecId, vias] : tables.fecs) Quillo::fecIs(batches.next(), vrfId, {fecId, vias});
  }
  for (const auto& [vrfId, tables] : state_->tables) {
    for (const auto& route : tables.routes) Quillo::routeIs(batches.next(), vrfId, route);
    for (const auto& route : tables.routes6) Quillo::routeIs(batches.next(), vrfId, route);
  }
  batches.commit();
  documents_->rewriteAll();
  for (const auto& entry : state_->neighbours) Arp::Table::entryIs(batches.next(), entry);
  batches.commit();
  store_.endFullPass();
}

void SwitchPublisher::check() {
  const Kel::Seconds now = Kel::System::currentTime();
  if (now - lastCheck_ < checkPeriod) return;
  lastCheck_ = now;
  store_.check(!isFull_);
}

void SwitchPublisher::poll() {
  using Kind = Quillo::StoreException::Kind;
  std::string lost;
  try {
    check();
    const Kel::Seconds now = Kel::System::currentTime();
    for (const auto& moving : state_->moving) moving.set(now - begun_);
    if (store_.fullPassActive()) {
      writeAll({});
    } else {
      documents_->publish();
    }
    if (std::exchange(isFull_, false)) {
      QTRACE(switchStoreTrace, 0) << "the store is written again";
    }
    return;
  } catch (const Quillo::StoreException& error) {
    if (error.kind() == Kind::full) {
      if (!std::exchange(isFull_, true)) {
        QTRACE(switchStoreTrace, 0) << error.what() << "; trying again every second";
      }
      return;
    }
    if (error.kind() != Kind::gone) throw;
    lost = error.what();
  } catch (const Pesk::CorruptionDetectedException& damage) {
    lost = damage.what();
  }
  const Kel::Seconds now = Kel::System::currentTime();
  if (madeAnew_ > 0 && now - madeAnew_ < madeAnewPause) {
    throw Quillo::StoreException(Kind::damaged, lost +
                                                    "; this recurs, so look for a program that removes or writes "
                                                    "files of the store");
  }
  madeAnew_ = now;
  QTRACE(switchStoreTrace, 0) << lost;
  store_.makeAnew();
  documents_ = std::make_unique<Varnix::DocumentPublisher>(state_->tree, store_);
  writeAll({});
}

}  // namespace Ctl
