#include "quillo/tables/FibMount.h"

#include <gmock/gmock.h>

#include <random>

#include "kel/System.h"
#include "quillo/View.h"
#include "quillo/tables/FecRecord.h"
#include "quillo/tables/RouteRecord.h"
#include "quillo/tables/VrfKey.h"
#include "quillo/testing/TestStore.h"

namespace Quillo::Test {
namespace {

using Pesk::CorruptionDetectedException;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Vrf::VrfIdMap::VrfId;

constexpr unsigned vrfs = 3;
const std::vector<TableId> fibTables{TableId::route, TableId::route6, TableId::fec};

// Keeps a copy of a VRF's table as a state machine does.
template <class Status, class Entries>
struct FibCopy : Status::Notifiee {
  Entries entries;
  unsigned anew = 0;
  unsigned keys = 0;

  void handleInitialized() override { readAll(); }
  void onTable() override {
    ++anew;
    readAll();
  }
  template <class Key, class Entry>
  void take(const Key& key, const Entry& entry) {
    ++keys;
    if (entry == Entry()) {
      entries.erase(key);
    } else {
      entries[key] = entry;
    }
  }
  void guarded(const std::function<void()>& reading) const {
    try {
      reading();
    } catch (const CorruptionDetectedException& damage) {
      this->notifier()->corruptionDetected(damage.what());
    }
  }
  virtual void readAll() = 0;
};

template <class P>
struct RouteCopy final : FibCopy<BasicRouteStatus<P>, std::map<P, BasicRoute<P>>> {
  void onRoute(const P& prefix) override {
    this->guarded([&] { this->take(prefix, this->notifier()->route(prefix)); });
  }
  void readAll() override {
    this->entries.clear();
    this->guarded([&] {
      this->notifier()->forEachRoute(P(), [&](const auto& route) {
        this->entries[route.prefix] = route;
        return true;
      });
    });
  }
};

struct FecCopy final : FibCopy<Fib::ForwardingStatus, std::map<Fib::FecId, Fib::Fec>> {
  void onFec(const Fib::FecId& fecId) override {
    guarded([&] { take(fecId, notifier()->fec(fecId)); });
  }
  void readAll() override {
    entries.clear();
    guarded([&] {
      notifier()->forEachFec(Fib::FecId(), [&](const Fib::Fec& fec) {
        entries[fec.fecId] = fec;
        return true;
      });
    });
  }
};

struct VrfCopy {
  Kel::Ptr<RouteCopy<Vantu::Prefix>> routes = Kel::makePtr<RouteCopy<Vantu::Prefix>>();
  Kel::Ptr<RouteCopy<Vantu::Ip6Prefix>> routes6 = Kel::makePtr<RouteCopy<Vantu::Ip6Prefix>>();
  Kel::Ptr<FecCopy> fecs = Kel::makePtr<FecCopy>();
};

struct VrfModel {
  std::map<Vantu::Prefix, Fib::Route> routes;
  std::map<Vantu::Ip6Prefix, Fib6::Route> routes6;
  std::map<Fib::FecId, Fib::Fec> fecs;
};

Fib::Route fibRoute(std::uint32_t address, std::uint64_t fec, std::uint32_t metric = 1) {
  return {Vantu::Prefix(Vantu::IpAddr(address), 32), Routing::Fib::RouteType(22), Routing::RouteMetric(metric),
          Routing::RoutePreference(200), Fib::FecId(fec)};
}

class FibMountTest : public TestStore {
 protected:
  void SetUp() override {
    mount_ = mount();
    follower_ = Kel::makePtr<TableFollower>(mount_);
    fib_ = Kel::makePtr<FibMount>(follower_);
    for (unsigned id = 0; id < vrfs; ++id) {
      copies_[id].routes->notifierIs(fib_->routeStatus(VrfId(id)));
      copies_[id].routes6->notifierIs(fib_->route6Status(VrfId(id)));
      copies_[id].fecs->notifierIs(fib_->forwardingStatus(VrfId(id)));
    }
  }
  void follow(std::size_t limit = 100) {
    mount_->refresh();
    while (follower_->step(limit)) {
    }
  }
  void pass(Publisher& publisher, const std::function<void(Batch&)>& fill) {
    publisher.beginFullPass(fibTables);
    auto batch = publisher.begin();
    fill(batch);
    batch.commit();
    publisher.endFullPass();
  }
  unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }

  // One change of one VRF, in the batch and in the model.
  template <class Entries, class Key, class Entry>
  void change(Batch& batch, unsigned id, Entries& entries, const Key& key, const Entry& entry) {
    if (below(3) == 0) {
      remove(batch, VrfId(id), key);
      entries.erase(key);
    } else {
      add(batch, VrfId(id), entry);
      entries[key] = entry;
    }
  }
  static void add(Batch& batch, VrfId id, const Fib::Fec& fec) { fecIs(batch, id, fec); }
  template <class P>
  static void add(Batch& batch, VrfId id, const BasicRoute<P>& route) {
    routeIs(batch, id, route);
  }
  static void remove(Batch& batch, VrfId id, const Fib::FecId& fecId) { fecDel(batch, id, fecId); }
  template <class P>
  static void remove(Batch& batch, VrfId id, const P& prefix) {
    routeDel(batch, id, prefix);
  }
  void changeAny(Batch& batch) {
    const auto id = below(vrfs);
    auto& model = model_[id];
    const auto metric = below(3);
    if (const auto kind = below(3); kind == 0) {
      const auto route = fibRoute(below(40), 1 + below(3), metric);
      change(batch, id, model.routes, route.prefix, route);
    } else if (kind == 1) {
      Vantu::Ip6Addr::Bytes bytes{0x20, static_cast<std::uint8_t>(below(40))};
      const Vantu::Ip6Prefix prefix(Vantu::Ip6Addr(bytes), 16 + below(3));
      const Fib6::Route route{prefix, Routing::Fib::RouteType(9), Routing::RouteMetric(metric), {}, Fib::FecId(1)};
      change(batch, id, model.routes6, prefix, route);
    } else {
      Fib::Fec fec{Fib::FecId(1 + below(20)), {}};
      for (unsigned i = below(4); i > 0; --i) fec.via.push_back({Vantu::IpAddr(metric + i), Vantu::IntfId("e")});
      change(batch, id, model.fecs, fec.fecId, fec);
    }
  }
  void expectModel(const char* when) {
    for (unsigned id = 0; id < vrfs; ++id) {
      EXPECT_TRUE(model_[id].routes == copies_[id].routes->entries) << when << ", VRF " << id;
      EXPECT_TRUE(model_[id].routes6 == copies_[id].routes6->entries) << when << ", VRF " << id;
      EXPECT_TRUE(model_[id].fecs == copies_[id].fecs->entries) << when << ", VRF " << id;
    }
  }

  std::mt19937 random_{11};
  Kel::Ptr<Mount> mount_;
  Kel::Ptr<TableFollower> follower_;
  Kel::Ptr<FibMount> fib_;
  VrfCopy copies_[vrfs];
  VrfModel model_[vrfs];
};

TEST_F(FibMountTest, randomHistoriesReachTheirVrf) {
  auto settings = config();
  settings.tombstoneLimit = 20;
  settings.mapBytes = std::size_t{1} << 20;  // outgrown on the way
  auto publisher = std::make_unique<Publisher>(settings);
  pass(*publisher, [](Batch&) {});
  for (int round = 0; round < 300; ++round) {
    auto batch = publisher->begin();
    for (unsigned i = below(10); i > 0; --i) changeAny(batch);
    if (round == 150) {
      for (std::uint32_t i = 1000; i < 21000; ++i) add(batch, VrfId(9), fibRoute(i, 1));
    }
    batch.commit();
    if (below(50) == 0) {
      publisher.reset();
      settings.recreate = below(2) == 0;
      publisher = std::make_unique<Publisher>(settings);
      settings.recreate = false;
      pass(*publisher, [&](Batch& again) {
        for (unsigned id = 0; id < vrfs; ++id) {
          for (const auto& [key, route] : model_[id].routes) add(again, VrfId(id), route);
          for (const auto& [key, route] : model_[id].routes6) add(again, VrfId(id), route);
          for (const auto& [key, fec] : model_[id].fecs) add(again, VrfId(id), fec);
        }
      });
    }
    if (below(3) != 0) continue;
    follow(1 + below(9));
    expectModel("followed");
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
  EXPECT_GT(copies_[1].routes->anew, 1U);
  EXPECT_GT(copies_[1].routes->keys, 50U);
  EXPECT_GT(model_[1].routes6.size() + model_[1].fecs.size(), 10U);
}

TEST_F(FibMountTest, walksBeginAndEndWhereTheyShould) {
  Publisher publisher(config());
  pass(publisher, [](Batch& batch) {
    for (std::uint32_t i = 1; i <= 5; ++i) {
      add(batch, VrfId(1), fibRoute(i * 10, i));
      add(batch, VrfId(1), {Fib::FecId(i), {}});
    }
    add(batch, VrfId(2), fibRoute(20, 1));
  });
  follow();
  const auto routes = fib_->routeStatus(VrfId(1));
  std::vector<std::uint32_t> seen;
  routes->forEachRoute(fibRoute(15, 1).prefix, [&](const Fib::Route& route) {
    seen.push_back(route.prefix.address().value());
    return seen.size() < 2;
  });
  EXPECT_THAT(seen, ElementsAre(20, 30));
  std::vector<std::uint64_t> fecs;
  fib_->forwardingStatus(VrfId(1))->forEachFec(Fib::FecId(4), [&](const Fib::Fec& fec) {
    fecs.push_back(fec.fecId.value());
    return true;
  });
  EXPECT_THAT(fecs, ElementsAre(4, 5));
  EXPECT_EQ(routes, fib_->routeStatus(VrfId(1)));
  // No publisher can have written what is asked for.
  EXPECT_EQ(Fib::Route(), fib_->routeStatus(VrfId())->route(fibRoute(10, 1).prefix));
  EXPECT_FALSE(fib_->forwardingStatus(VrfId(1))->fec(Fib::FecId()).exists());
}

TEST_F(FibMountTest, damagedRecordsAreReportedAndTheOthersServed) {
  Publisher publisher(config());
  pass(publisher, [](Batch& batch) {
    for (std::uint32_t i = 1; i <= 3; ++i) {
      add(batch, VrfId(1), fibRoute(i, i == 2 ? 0x4547414d4144 : 7));  // "DAMAGE"
      add(batch, VrfId(1), Fib::Fec{Fib::FecId(i), {{Vantu::IpAddr(i), Vantu::IntfId(i == 2 ? "MARKED" : "e")}}});
    }
    add(batch, VrfId(2), fibRoute(2, 7));
  });
  follow();
  ASSERT_EQ(3U, copies_[1].routes->entries.size());
  ASSERT_GT(damage(dataFile(), "DAMAGE"), 0U);
  ASSERT_GT(damage(dataFile(), "MARKED"), 0U);
  Traces traces;
  const auto routes = fib_->routeStatus(VrfId(1));
  EXPECT_THROW(routes->route(fibRoute(2, 1).prefix), CorruptionDetectedException);
  EXPECT_THROW(fib_->forwardingStatus(VrfId(1))->fec(Fib::FecId(2)), CorruptionDetectedException);
  EXPECT_EQ(fibRoute(3, 7), routes->route(fibRoute(3, 1).prefix));
  EXPECT_EQ(fibRoute(2, 7), fib_->routeStatus(VrfId(2))->route(fibRoute(2, 1).prefix));
  copies_[1].routes->readAll();
  copies_[1].fecs->readAll();
  for (int i = 0; i < 4; ++i) follow();
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("table route"), HasSubstr("table fec")));
  EXPECT_EQ(1U, copies_[1].routes->anew);
  EXPECT_EQ(2U, copies_[1].routes->entries.size());
  EXPECT_EQ(2U, copies_[1].fecs->entries.size());

  // Records that no publisher of ours writes: their checksums are right.
  auto batch = publisher.begin();
  batch.put(TableId::route, encodeVrf(VrfId(1)) + "x", "");
  batch.put(TableId::fec, encodeFecKey(VrfId(1), Fib::FecId(9)), "x");
  batch.commit();
  for (int i = 0; i < 4; ++i) follow();
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("key of a wrong length"), HasSubstr("value too short")));
  EXPECT_EQ(2U, copies_[1].routes->entries.size());
}

// What lies behind them is read when the store has changed: it may have been mended.
TEST_F(FibMountTest, walkThatEndedForItsDamageIsMadeGood) {
  constexpr std::uint32_t damaged = 1000;
  Traces traces;
  Publisher publisher(config());
  pass(publisher, [](Batch& batch) {
    for (std::uint32_t i = 1; i <= damaged; ++i) {
      batch.put(TableId::route, encodeRouteKey(VrfId(1), fibRoute(i, 7).prefix), "malformed");
    }
    add(batch, VrfId(1), fibRoute(damaged + 1, 7));
  });
  for (int i = 0; i < 4; ++i) follow();
  EXPECT_EQ(0U, copies_[1].routes->entries.size());
  EXPECT_EQ(damaged + 1, traces.take().size()) << "each, and that there may be more";
  auto batch = publisher.begin();
  for (std::uint32_t i = 1; i <= damaged; ++i) add(batch, VrfId(1), fibRoute(i, 7));
  batch.commit();
  const double now = Kel::System::currentTime() + 60;
  Kel::System::clockIs([now] { return now; });
  for (int i = 0; i < 2; ++i) follow();
  Kel::System::clockIs({});
  EXPECT_EQ(damaged + 1, copies_[1].routes->entries.size());
}

// What cannot be read is not what is not there.
TEST_F(FibMountTest, unreadableStoreIsNoEmptyTable) {
  const auto routes = fib_->routeStatus(VrfId(1));
  const auto prefix = fibRoute(5, 1).prefix;
  EXPECT_FALSE(routes->initialized());
  EXPECT_THROW(routes->route(prefix), StoreException);
  {
    Publisher publisher(config());
    pass(publisher, [](Batch& batch) { add(batch, VrfId(1), fibRoute(5, 1)); });
  }
  follow();
  EXPECT_TRUE(routes->initialized());
  EXPECT_EQ(fibRoute(5, 1), routes->route(prefix));
  const auto before = routes->generation();
  EXPECT_EQ(before, routes->generation());
  EXPECT_NE(0U, before);

  // As many readers as the store takes.
  const auto same = std::make_shared<Environment>(directory_, Environment::Access::read, 0);
  std::vector<std::unique_ptr<View>> others;
  refusal([&] {
    std::optional<View::KnownHead> known;
    while (others.size() < 10'000) others.push_back(std::make_unique<View>(same, 1, known));
  });
  EXPECT_EQ(StoreException::Kind::full, refusal([&] { routes->route(prefix); }).kind());
  EXPECT_NE(before, routes->generation());
  EXPECT_EQ(0U, copies_[1].routes->anew);
  others.clear();
  follow();
  EXPECT_EQ(1U, copies_[1].routes->anew);  // what was not read may have been what changed
  EXPECT_EQ(1U, copies_[1].routes->entries.size());
}

TEST_F(FibMountTest, lookupsOfOneTurnShareOneSnapshot) {
  unsigned turns = 0;
  mount_->turnBeginsIs([&] { ++turns; });
  Publisher publisher(config());
  pass(publisher, [](Batch& batch) { add(batch, VrfId(1), fibRoute(5, 1)); });
  follow();
  mount_->turnEnds();
  turns = 0;
  const auto routes = fib_->routeStatus(VrfId(1));
  const auto other = fib_->routeStatus(VrfId(2));
  EXPECT_TRUE(routes->route(fibRoute(5, 1).prefix) == fibRoute(5, 1));
  const auto before = other->generation();
  EXPECT_EQ(1U, turns);
  mount_->turnEnds();
  auto batch = publisher.begin();
  add(batch, VrfId(2), fibRoute(6, 1));
  batch.commit();
  EXPECT_TRUE(other->route(fibRoute(6, 1).prefix) == fibRoute(6, 1));
  EXPECT_NE(before, other->generation());
  EXPECT_FALSE(other->isNotified());
  EXPECT_TRUE(fib_->forwardingStatus(VrfId(2))->isNotified()) << "no FEC has changed";
  EXPECT_EQ(2U, turns);
  follow();  // asserts that nothing is held
  EXPECT_TRUE(other->isNotified());
  EXPECT_EQ(1U, copies_[2].routes->keys);
  EXPECT_THAT(copies_[1].routes->keys, 0U);
}

}  // namespace
}  // namespace Quillo::Test
