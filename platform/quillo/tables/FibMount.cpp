#include "quillo/tables/FibMount.h"

#include <vector>

#include "quillo/Tell.h"
#include "quillo/tables/FecRecord.h"
#include "quillo/tables/RouteRecord.h"
#include "quillo/tables/VrfKey.h"
#include "quillo/tables/VrfTableReader.h"

namespace Quillo {
namespace {

Kel::TraceHandle fibMountTrace("QuilloFib");

std::uint64_t lastGeneration = 0;

}  // namespace

// The store behind all tables.
class FibMount::Source : public Kel::PtrInterface {
 public:
  explicit Source(Kel::Ptr<TableFollower> follower)
      : routes(follower, TableId::route), routes6(follower, TableId::route6), fecs(follower, TableId::fec) {}

  const Kel::Ptr<TableFollower>& follower() const { return routes.follower(); }

  const VrfTableReader routes;
  const VrfTableReader routes6;
  const VrfTableReader fecs;
};

// What the tables do alike.
template <class Base>
class FibMount::Table : public Base {
 public:
  Table(FibMount* mount, const VrfId& vrfId) : mount_(mount), vrfId_(vrfId) {}

  bool initialized() const override { return source().follower()->initialized(); }
  void corruptionDetected(const std::string& message) const override {
    source().follower()->corruptionDetected(message);
  }
  // Of the whole store, since one journal counts all changes.
  std::uint64_t generation() const override {
    try {
      const auto mark = source().follower()->snapshot()->bookmark();
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
  Source& source() const { return *mount_->source_; }
  FibMount& mount() const { return *mount_; }
  const VrfId& vrfId() const { return vrfId_; }
  bool isEmpty() const { return !isStorable(vrfId_); }

 private:
  const Kel::Ptr<FibMount> mount_;
  const VrfId vrfId_;
  mutable Bookmark generationMark_;
  mutable std::uint64_t generation_ = 0;
};

template <class PrefixType>
class FibMount::Routes final : public FibMount::Table<BasicRouteStatus<PrefixType>> {
  using Base = BasicRouteStatus<PrefixType>;
  using Base_ = FibMount::Table<Base>;

 public:
  using Base_::Base_;
  using typename Base::Route;
  using typename Base::Visit;
  ~Routes() override { tables().erase(this->vrfId().value()); }

  Route route(const PrefixType& prefix) const override {
    Route found;
    if (this->isEmpty()) return found;
    const auto take = [&](Bytes value) { return decodeRoute(value, found); };
    if (reader().get(encodeRouteKey(this->vrfId(), prefix), take)) found.prefix = prefix;
    return found;
  }

  void forEachRoute(const PrefixType& from, const Visit& visit) const override {
    if (this->isEmpty()) return;
    reader().walk(encodeVrf(this->vrfId()), encodeRouteKey(this->vrfId(), from),
                  [&](const Scan& scan, bool& goesOn) {
                    Route found;
                    VrfId vrfId;
                    const char* what = decodeRouteKey(scan.key(), vrfId, found.prefix);
                    if (!what) what = decodeRoute(scan.value(), found);
                    if (!what) goesOn = visit(found);
                    return what;
                  });
  }

  bool isNotified() const override { return this->source().follower()->isNotified(reader().table()); }

  static constexpr bool isIpv4 = std::is_same_v<PrefixType, Vantu::Prefix>;

 private:
  const VrfTableReader& reader() const {
    if constexpr (isIpv4) {
      return this->source().routes;
    } else {
      return this->source().routes6;
    }
  }
  Tables<Routes>& tables() const {
    if constexpr (isIpv4) {
      return this->mount().routes_;
    } else {
      return this->mount().routes6_;
    }
  }
};

class FibMount::Fecs final : public FibMount::Table<Fib::ForwardingStatus> {
 public:
  using Table::Table;
  ~Fecs() override { mount().fecs_.erase(vrfId().value()); }

  Fib::Fec fec(const Fib::FecId& fecId) const override {
    Fib::Fec found;
    readFec(fecId, found);
    return found;
  }

  void readFec(const Fib::FecId& fecId, Fib::Fec& into) const override {
    into.fecId = Fib::FecId();
    const auto take = [&](Bytes value) { return decodeFec(value, into); };
    if (!isEmpty() && fecId != Fib::FecId() && source().fecs.get(encodeFecKey(vrfId(), fecId), take)) {
      into.fecId = fecId;
    } else {
      into.clear();
    }
  }

  bool isNotified() const override { return source().follower()->isNotified(source().fecs.table()); }

  void forEachFec(const Fib::FecId& from, const Visit& visit) const override {
    if (isEmpty()) return;
    const auto vrf = encodeVrf(vrfId());
    Fib::Fec found;
    source().fecs.walk(vrf, from == Fib::FecId() ? vrf : encodeFecKey(vrfId(), from),
                       [&](const Scan& scan, bool& goesOn) {
                         VrfId id;
                         const char* what = decodeFecKey(scan.key(), id, found.fecId);
                         if (!what) what = decodeFec(scan.value(), found);
                         if (!what) goesOn = visit(found);
                         return what;
                       });
  }
};

// Pass on what the follower tells. They are detached before the mount goes.
class FibMount::Following : public TableFollower::Notifiee {
 public:
  explicit Following(FibMount* mount) : mount_(mount) {}
  void handleInitialized() override { mount_->tellInitialized(); }
  void handleTables() override { mount_->tellTables(); }

 private:
  FibMount* const mount_;
};

class FibMount::RouteKeys : public TableKeys::Notifiee {
 public:
  explicit RouteKeys(FibMount* mount) : mount_(mount) {}
  void handleKey(const std::string& key) override { mount_->tellRoute(mount_->routes_, key); }

 private:
  FibMount* const mount_;
};

class FibMount::Route6Keys : public TableKeys::Notifiee {
 public:
  explicit Route6Keys(FibMount* mount) : mount_(mount) {}
  void handleKey(const std::string& key) override { mount_->tellRoute(mount_->routes6_, key); }

 private:
  FibMount* const mount_;
};

class FibMount::FecKeys : public TableKeys::Notifiee {
 public:
  explicit FecKeys(FibMount* mount) : mount_(mount) {}
  void handleKey(const std::string& key) override { mount_->tellFec(key); }

 private:
  FibMount* const mount_;
};

FibMount::FibMount(Kel::Ptr<TableFollower> follower)
    : source_(Kel::makePtr<Source>(follower)),
      following_(Kel::makePtr<Following>(this)),
      routeKeys_(Kel::makePtr<RouteKeys>(this)),
      route6Keys_(Kel::makePtr<Route6Keys>(this)),
      fecKeys_(Kel::makePtr<FecKeys>(this)) {
  following_->notifierIs(follower);
  routeKeys_->notifierIs(follower->keys(TableId::route));
  route6Keys_->notifierIs(follower->keys(TableId::route6));
  fecKeys_->notifierIs(follower->keys(TableId::fec));
}

FibMount::~FibMount() {
  following_->notifierIs(nullptr);
  routeKeys_->notifierIs(nullptr);
  route6Keys_->notifierIs(nullptr);
  fecKeys_->notifierIs(nullptr);
}

template <class T, class Base>
Kel::Ptr<const Base> FibMount::table(Tables<T>& tables, const VrfId& vrfId) {
  if (const auto at = tables.find(vrfId.value()); at != tables.end()) return Kel::Ptr<const Base>(at->second);
  const auto made = Kel::makePtr<T>(this, vrfId);
  tables.emplace(vrfId.value(), made.get());
  return made;
}

Kel::Ptr<const Fib::RouteStatus> FibMount::routeStatus(const VrfId& vrfId) {
  return table<Routes<Vantu::Prefix>, Fib::RouteStatus>(routes_, vrfId);
}

Kel::Ptr<const Fib6::RouteStatus> FibMount::route6Status(const VrfId& vrfId) {
  return table<Routes<Vantu::Ip6Prefix>, Fib6::RouteStatus>(routes6_, vrfId);
}

Kel::Ptr<const Fib::ForwardingStatus> FibMount::forwardingStatus(const VrfId& vrfId) {
  return table<Fecs, Fib::ForwardingStatus>(fecs_, vrfId);
}

// FECs before routes: who comes to a route finds its next hops. Reactors may let go of tables meanwhile.
template <class Call>
void FibMount::forEachTable(const Call& call) {
  const Kel::Ptr<FibMount> self(this);
  const auto each = [&](const auto& tables) {
    std::vector<Kel::Ptr<const FibTable>> held;
    held.reserve(tables.size());
    for (const auto& [vrfId, table] : tables) held.emplace_back(table);
    using Reactor = typename std::remove_pointer_t<decltype(tables.begin()->second)>::Notifiee;
    for (const auto& table : held) {
      tell<Reactor>(*table, fibMountTrace, [&](Reactor& reactor) { call(reactor); });
    }
  };
  each(fecs_);
  each(routes_);
  each(routes6_);
}

void FibMount::tellInitialized() {
  forEachTable([](auto& reactor) { reactor.handleInitialized(); });
}

void FibMount::tellTables() {
  forEachTable([](auto& reactor) { reactor.onTable(); });
}

template <class PrefixType>
void FibMount::tellRoute(const Tables<Routes<PrefixType>>& tables, const std::string& key) {
  VrfId vrfId;
  PrefixType prefix;
  if (const char* what = decodeRouteKey(key, vrfId, prefix)) {
    const auto& reader = Routes<PrefixType>::isIpv4 ? source_->routes : source_->routes6;
    source_->follower()->corruptionDetected(reader.damage(key, what));
    return;
  }
  const auto at = tables.find(vrfId.value());
  if (at == tables.end()) return;
  using Reactor = typename BasicRouteStatus<PrefixType>::Notifiee;
  tell<Reactor>(*at->second, fibMountTrace, [&](Reactor& reactor) { reactor.onRoute(prefix); });
}

void FibMount::tellFec(const std::string& key) {
  VrfId vrfId;
  Fib::FecId fecId;
  if (const char* what = decodeFecKey(key, vrfId, fecId)) {
    source_->follower()->corruptionDetected(source_->fecs.damage(key, what));
    return;
  }
  const auto at = fecs_.find(vrfId.value());
  if (at == fecs_.end()) return;
  using Reactor = Fib::ForwardingStatus::Notifiee;
  tell<Reactor>(*at->second, fibMountTrace, [&](Reactor& reactor) { reactor.onFec(fecId); });
}

}  // namespace Quillo
