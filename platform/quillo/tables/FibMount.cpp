#include "quillo/tables/FibMount.h"

#include <unordered_map>
#include <vector>

#include "quillo/tables/FecRecord.h"
#include "quillo/tables/RouteRecord.h"
#include "quillo/tables/VrfKey.h"
#include "quillo/tables/VrfTableReader.h"

namespace Quillo {
namespace {

Kel::TraceHandle fibMountTrace("QuilloFib");

std::uint64_t lastGeneration = 0;

}  // namespace

// Traits of each type of record, from which its tables are made: its key and value, their encodings, and the handler
// of a change.
template <class PrefixType>
struct RouteRecord {
  static constexpr TableId table = routeTable<PrefixType>;
  using Status = BasicRouteStatus<PrefixType>;
  using Key = PrefixType;
  using Entry = BasicRoute<PrefixType>;

  static Key& keyOf(Entry& entry) { return entry.prefix; }
  static constexpr auto encodeKey = encodeRouteKey<PrefixType>;
  static constexpr auto decodeKey = decodeRouteKey<PrefixType>;
  static constexpr auto decode = decodeRoute<PrefixType>;
  static void notify(typename Status::Notifiee& reactor, const Key& key) { reactor.onRoute(key); }
};

struct FecRecord {
  static constexpr TableId table = TableId::fec;
  using Status = Fib::ForwardingStatus;
  using Key = Fib::FecId;
  using Entry = Fib::Fec;

  static Key& keyOf(Entry& entry) { return entry.fecId; }
  static constexpr auto encodeKey = encodeFecKey;
  static constexpr auto decodeKey = decodeFecKey;
  static constexpr auto decode = decodeFec;
  static void notify(Status::Notifiee& reactor, const Key& key) { reactor.onFec(key); }
};

// The table of one VRF.
template <class Record>
class FibMount::Table : public Record::Status {
 public:
  using typename Record::Status::Visit;

  Table(FibMount* mount, const VrfId& vrfId) : mount_(mount), vrfId_(vrfId) {}
  ~Table() override { removeFromMount(); }

  bool initialized() const override { return reader().follower()->initialized(); }
  void corruptionDetected(const std::string& message) const override {
    reader().follower()->corruptionDetected(message);
  }
  bool isNotified() const override { return reader().follower()->isNotified(Record::table); }
  // Changes with any change of the store, since one journal counts the changes of all tables.
  std::uint64_t generation() const override {
    try {
      const auto mark = reader().follower()->snapshot()->bookmark();
      if (mark == generationMark_) return generation_;
      generationMark_ = mark;
    } catch (const Pesk::CorruptionDetectedException&) {
      generationMark_ = {};
    } catch (const StoreException&) {
      generationMark_ = {};
    }
    return generation_ = ++lastGeneration;
  }

 protected:
  // Reads everything but the key into `found`. False when there is no such entry; `found` is then undefined.
  bool find(const typename Record::Key& key, typename Record::Entry& found) const {
    if (!isStorable(vrfId_)) return false;
    return reader().get(Record::encodeKey(vrfId_, key), [&](Bytes value) { return Record::decode(value, found); });
  }
  // Visits the entries from lower_bound(*from) on (null: all).
  void walk(const typename Record::Key* from, const Visit& visit) const {
    if (!isStorable(vrfId_)) return;
    const auto vrf = encodeVrf(vrfId_);
    typename Record::Entry found;
    reader().walk(vrf, from ? Record::encodeKey(vrfId_, *from) : vrf, [&](const Scan& scan, bool& goesOn) {
      VrfId vrfId;
      const char* what = Record::decodeKey(scan.key(), vrfId, Record::keyOf(found));
      if (!what) what = Record::decode(scan.value(), found);
      if (!what) goesOn = visit(found);
      return what;
    });
  }

 private:
  const VrfTableReader& reader() const;
  void removeFromMount();

  const Kel::Ptr<FibMount> mount_;
  const VrfId vrfId_;
  mutable Bookmark generationMark_;
  mutable std::uint64_t generation_ = 0;
};

template <class PrefixType>
class FibMount::Routes final : public FibMount::Table<RouteRecord<PrefixType>> {
  using Base = FibMount::Table<RouteRecord<PrefixType>>;

 public:
  using Base::Base;
  using typename Base::Route;
  using typename Base::Visit;

  Route route(const PrefixType& prefix) const override {
    Route found;
    if (this->find(prefix, found)) found.prefix = prefix;
    return found;
  }
  void forEachRoute(const PrefixType& from, const Visit& visit) const override { this->walk(&from, visit); }
};

class FibMount::Fecs final : public FibMount::Table<FecRecord> {
 public:
  using Table::Table;

  Fib::Fec fec(const Fib::FecId& fecId) const override {
    Fib::Fec found;
    readFec(fecId, found);
    return found;
  }
  void readFec(const Fib::FecId& fecId, Fib::Fec& into) const override {
    into.fecId = Fib::FecId();
    if (fecId != Fib::FecId() && find(fecId, into)) {
      into.fecId = fecId;
    } else {
      into.clear();
    }
  }
  void forEachFec(const Fib::FecId& from, const Visit& visit) const override {
    walk(from == Fib::FecId() ? nullptr : &from, visit);
  }
};

// The tables of all VRFs. All tables of a kind share one reader.
struct FibMount::Tables {
  template <class Record, class T>
  struct Kind {
    VrfTableReader reader;
    std::unordered_map<std::uint32_t, T*> byVrf;  // the existing tables, by VRF id

    explicit Kind(const Kel::Ptr<TableFollower>& follower) : reader(follower, Record::table) {}

    Kel::Ptr<const typename Record::Status> table(FibMount* mount, const VrfId& vrfId) {
      if (const auto at = byVrf.find(vrfId.value()); at != byVrf.end()) return at->second;
      const auto made = Kel::makePtr<T>(mount, vrfId);
      byVrf.emplace(vrfId.value(), made.get());
      return made;
    }
    void notifyKey(const std::string& bytes) const {
      VrfId vrfId;
      typename Record::Key key;
      if (const char* what = Record::decodeKey(bytes, vrfId, key)) {
        return reader.follower()->corruptionDetected(reader.damage(bytes, what));
      }
      const auto at = byVrf.find(vrfId.value());
      if (at == byVrf.end()) return;
      using Reactor = typename Record::Status::Notifiee;
      notifyEach<Reactor>(*at->second, fibMountTrace, [&](Reactor& reactor) { Record::notify(reactor, key); });
    }
  };

  explicit Tables(const Kel::Ptr<TableFollower>& follower) : routes(follower), routes6(follower), fecs(follower) {}

  template <class Record>
  auto& kind() {
    if constexpr (Record::table == TableId::route) {
      return routes;
    } else if constexpr (Record::table == TableId::route6) {
      return routes6;
    } else {
      return fecs;
    }
  }

  Kind<RouteRecord<Vantu::Prefix>, Routes<Vantu::Prefix>> routes;
  Kind<RouteRecord<Vantu::Ip6Prefix>, Routes<Vantu::Ip6Prefix>> routes6;
  Kind<FecRecord, Fecs> fecs;
};

template <class Record>
void FibMount::Table<Record>::removeFromMount() {
  mount_->tables_->template kind<Record>().byVrf.erase(vrfId_.value());
}

template <class Record>
const VrfTableReader& FibMount::Table<Record>::reader() const {
  return mount_->tables_->template kind<Record>().reader;
}

FibMount::FibMount(Kel::Ptr<TableFollower> follower)
    : tables_(std::make_unique<Tables>(follower)),
      watch_(follower, {.initialized = [this] { forEachTable([](auto& reactor) { reactor.handleInitialized(); }); },
                        .tables = [this] { forEachTable([](auto& reactor) { reactor.onTable(); }); },
                        .keys = {{TableId::route, [this](const auto& key) { tables_->routes.notifyKey(key); }},
                                 {TableId::route6, [this](const auto& key) { tables_->routes6.notifyKey(key); }},
                                 {TableId::fec, [this](const auto& key) { tables_->fecs.notifyKey(key); }}}}) {
}

FibMount::~FibMount() = default;

Kel::Ptr<const Fib::RouteStatus> FibMount::routeStatus(const VrfId& vrfId) {
  return tables_->routes.table(this, vrfId);
}

Kel::Ptr<const Fib6::RouteStatus> FibMount::route6Status(const VrfId& vrfId) {
  return tables_->routes6.table(this, vrfId);
}

Kel::Ptr<const Fib::ForwardingStatus> FibMount::forwardingStatus(const VrfId& vrfId) {
  return tables_->fecs.table(this, vrfId);
}

// FECs before routes, so that a reactor to a route finds its next hops. The handles in `held` keep tables that reactors
// release meanwhile.
template <class Call>
void FibMount::forEachTable(const Call& call) {
  const Kel::Ptr<FibMount> self(this);
  const auto each = [&](const auto& tables) {
    std::vector<Kel::Ptr<const FibTable>> held;
    held.reserve(tables.size());
    for (const auto& [vrfId, table] : tables) held.emplace_back(table);
    using Reactor = typename std::remove_pointer_t<decltype(tables.begin()->second)>::Notifiee;
    for (const auto& table : held) {
      notifyEach<Reactor>(*table, fibMountTrace, [&](Reactor& reactor) { call(reactor); });
    }
  };
  each(tables_->fecs.byVrf);
  each(tables_->routes.byVrf);
  each(tables_->routes6.byVrf);
}

}  // namespace Quillo
