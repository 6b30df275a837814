#include "quillo/tables/FibMount.h"

#include <unordered_map>
#include <vector>

#include "quillo/tables/RecordTable.h"
#include "quillo/tables/Records.h"

namespace Quillo {
namespace {

Kel::TraceHandle fibMountTrace("QuilloFib");

std::uint64_t lastGeneration = 0;

}  // namespace

// The records of one type, and the existing tables of them by VRF id.
template <class StatusType, class RecordType>
struct FibTables {
  using Status = StatusType;
  using Record = RecordType;
  using VrfId = Vrf::VrfIdMap::VrfId;

  explicit FibTables(const Kel::Ptr<TableFollower>& follower) : records(follower) {}

  // For TableWatch: passes a changed key to the reactors to the table of its VRF.
  template <class Call>
  auto onKey(const Call& call) const {
    return records.onKey([this, call](const typename Record::Key& key) {
      const auto at = byVrf.find(key.vrfId.value());
      if (at == byVrf.end()) return;
      using Reactor = typename Status::Notifiee;
      notifyEach<Reactor>(*at->second, fibMountTrace, [&](Reactor& reactor) { call(reactor, key); });
    });
  }

  // The table of this VRF, which is a `Table`.
  template <class Table>
  Kel::Ptr<const Status> table(FibMount* mount, const VrfId& vrfId) {
    if (const auto at = byVrf.find(vrfId.value()); at != byVrf.end()) return at->second;
    return Kel::makePtr<Table>(mount, *this, vrfId);
  }

  const RecordTable<Record> records;
  std::unordered_map<std::uint32_t, const Status*> byVrf;
};

// The table of one VRF. It holds the mount, which owns `tables`.
template <class Tables>
class VrfFibTable : public Tables::Status {
 public:
  VrfFibTable(FibMount* mount, Tables& tables, const VrfId& vrfId)
      : vrfId_(vrfId), records_(tables.records), mount_(mount), tables_(tables) {
    tables.byVrf.emplace(vrfId.value(), this);
  }
  ~VrfFibTable() override { tables_.byVrf.erase(vrfId_.value()); }

  bool initialized() const override { return records_.follower().initialized(); }
  void corruptionDetected(const std::string& message) const override {
    records_.follower().corruptionDetected(message);
  }
  bool isNotified() const override { return records_.follower().isNotified(Tables::Record::table); }
  // Changes with any change of the store, since one journal counts the changes of all tables.
  std::uint64_t generation() const override {
    try {
      const auto mark = records_.follower().snapshot()->bookmark();
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
  const VrfId vrfId_;
  const RecordTable<typename Tables::Record>& records_;

 private:
  const Kel::Ptr<FibMount> mount_;
  Tables& tables_;
  mutable Bookmark generationMark_;
  mutable std::uint64_t generation_ = 0;
};

template <class PrefixType>
using RouteTables = FibTables<BasicRouteStatus<PrefixType>, RouteRecord<PrefixType>>;

template <class PrefixType>
class VrfRouteTable final : public VrfFibTable<RouteTables<PrefixType>> {
 public:
  using VrfFibTable<RouteTables<PrefixType>>::VrfFibTable;
  using typename BasicRouteStatus<PrefixType>::Route;
  using typename BasicRouteStatus<PrefixType>::Visit;

  Route route(const PrefixType& prefix) const override {
    Route found;
    this->records_.find({this->vrfId_, prefix}, found);
    return found;
  }
  void forEachRoute(const PrefixType& from, const Visit& visit) const override {
    this->records_.forEach({this->vrfId_, from}, visit);
  }
};

using FecTables = FibTables<Fib::ForwardingStatus, FecRecord>;

class VrfFecTable final : public VrfFibTable<FecTables> {
 public:
  using VrfFibTable::VrfFibTable;

  Fib::Fec fec(const Fib::FecId& fecId) const override {
    Fib::Fec found;
    readFec(fecId, found);
    return found;
  }
  void readFec(const Fib::FecId& fecId, Fib::Fec& into) const override {
    into.fecId = Fib::FecId();
    if (!records_.find({vrfId_, fecId}, into)) into.clear();
  }
  void forEachFec(const Fib::FecId& from, const Visit& visit) const override {
    records_.forEach({vrfId_, from}, visit);
  }
};

struct FibMount::Tables {
  explicit Tables(const Kel::Ptr<TableFollower>& follower) : routes(follower), routes6(follower), fecs(follower) {}

  RouteTables<Vantu::Prefix> routes;
  RouteTables<Vantu::Ip6Prefix> routes6;
  FecTables fecs;
};

FibMount::FibMount(const Kel::Ptr<TableFollower>& follower)
    : tables_(std::make_unique<Tables>(follower)),
      watch_(follower,
             {.initialized = [this] { forEachTable([](auto& reactor) { reactor.handleInitialized(); }); },
              .tables = [this] { forEachTable([](auto& reactor) { reactor.onTable(); }); },
              .keys = {tables_->routes.onKey([](auto& reactor, const auto& key) { reactor.onRoute(key.prefix); }),
                       tables_->routes6.onKey([](auto& reactor, const auto& key) { reactor.onRoute(key.prefix); }),
                       tables_->fecs.onKey([](auto& reactor, const auto& key) { reactor.onFec(key.fecId); })}}) {
}

FibMount::~FibMount() = default;

Kel::Ptr<const Fib::RouteStatus> FibMount::routeStatus(const VrfId& vrfId) {
  return tables_->routes.table<VrfRouteTable<Vantu::Prefix>>(this, vrfId);
}

Kel::Ptr<const Fib6::RouteStatus> FibMount::route6Status(const VrfId& vrfId) {
  return tables_->routes6.table<VrfRouteTable<Vantu::Ip6Prefix>>(this, vrfId);
}

Kel::Ptr<const Fib::ForwardingStatus> FibMount::forwardingStatus(const VrfId& vrfId) {
  return tables_->fecs.table<VrfFecTable>(this, vrfId);
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
