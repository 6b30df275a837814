// The tables of neighbours, routes and FECs, from the publisher to what their readers keep.

#include <gmock/gmock.h>

#include <map>
#include <random>

#include "quillo/RecordReader.h"
#include "quillo/tables/ArpTableMount.h"
#include "quillo/tables/FibMount.h"
#include "quillo/tables/Records.h"
#include "quillo/testing/TestStore.h"

namespace Quillo::Test {
namespace {

using Arp::Table::ArpEntry;
using Arp::Table::ArpKey;
using Pesk::CorruptionDetectedException;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using Vrf::VrfIdMap::VrfId;

// The ids around the boundaries of their bytes; what lies between them is in nobody's range.
const VrfId vrfIds[] = {VrfId(0), VrfId(1), VrfId(255), VrfId(256), VrfId(0xffff00), VrfId(0xfffffe)};

const Vantu::IntfId eth0("eth0");

ArpEntry neighbour(std::uint32_t vrfId, std::uint32_t address, const char* mac = "02:00:00:00:00:01") {
  return {{VrfId(vrfId), Vantu::IpAddr(address), eth0}, Vantu::EthAddr::fromString(mac), {}};
}
Fib::Route route(std::uint32_t address, std::uint64_t fec) {
  return {Vantu::Prefix(Vantu::IpAddr(address), 32), Routing::Fib::RouteType(22), {}, {}, Fib::FecId(fec)};
}
Fib::Fec fecOf(std::uint64_t id, const char* intf = "e") {
  return {Fib::FecId(id), {{Vantu::IpAddr(7), Vantu::IntfId(intf)}}};
}

using Ipv4Record = ArpRecord<Vantu::ipv4_>;
using Ipv4Route = RouteRecord<Vantu::Prefix>;

// An entry as the record in the store.
using Record = Contents::value_type;
template <class R>
Record recordOf(const typename R::Key& key, const typename R::Entry& entry) {
  return {recordKey(R::table, encodeKey<R>(key)), encodeValue<R>(entry)};
}
Record recordOf(VrfId, const ArpEntry& entry) {
  return entry.addr().af() == Vantu::ipv4_ ? recordOf<Ipv4Record>(entry.key, entry)
                                           : recordOf<ArpRecord<Vantu::ipv6_>>(entry.key, entry);
}
Record recordOf(VrfId vrfId, const Fib::Fec& fec) {
  return recordOf<FecRecord>({vrfId, fec.fecId}, fec);
}
template <class P>
Record recordOf(VrfId vrfId, const BasicRoute<P>& route) {
  return recordOf<RouteRecord<P>>({vrfId, route.prefix}, route);
}
void add(Batch& batch, const Record& record) {
  batch.put(TableId(record.first[0]), record.first.substr(1), record.second);
}
void add(Batch& batch, VrfId vrfId, const auto& entry) {
  add(batch, recordOf(vrfId, entry));
}

unsigned keysNotified = 0;

// What a state machine keeps of a table: a copy, and how it came about. `Self` reads it.
template <class Self, class Status, class Key, class Entry>
struct Copy : Status::Notifiee {
  std::map<Key, Entry> entries;
  unsigned initialized = 0, anew = 0, keys = 0;

  void handleInitialized() override { ++initialized, readAll(); }
  void tableChanged() { ++anew, readAll(); }
  void readAll() {
    entries.clear();
    static_cast<Self*>(this)->walkAll([this](const Key& key, const Entry& entry) { entries[key] = entry; });
  }
  void keyChanged(const Key& key, const std::function<Entry()>& lookup) {
    ++keys, ++keysNotified;
    entries.erase(key);
    read([&] {
      if (const Entry entry = lookup(); entry != Entry()) entries[key] = entry;
    });
  }
  void read(const std::function<void()>& reading) const {
    try {
      reading();
    } catch (const CorruptionDetectedException& damage) {
      // One kind of table takes the exception, the other its text.
      if constexpr (std::is_same_v<Entry, ArpEntry>) {
        this->notifier()->corruptionDetected(damage);
      } else {
        this->notifier()->corruptionDetected(damage.what());
      }
    } catch (const StoreException&) {
      // The table notifies when it can be read.
    }
  }
};

struct ArpCopy final : Copy<ArpCopy, Arp::Table::Status, ArpKey, ArpEntry> {
  void onArpEntry(const ArpKey& key) override {
    keyChanged(key, [&] { return notifier()->arpEntry(key); });
  }
  void onNeighborEntry(const ArpKey& key) override {
    keyChanged(key, [&] { return notifier()->neighborEntry(key); });
  }
  void handleTable() override { tableChanged(); }
  void walkAll(const auto& take) {
    const auto visit = [&](const ArpEntry& entry) { take(entry.key, entry); };
    for (const auto& vrfId : vrfIds) {
      read([&] { notifier()->forEachArpEntry(vrfId, visit); });
      read([&] { notifier()->forEachNeighborEntry(vrfId, visit); });
    }
  }
};

template <class P>
struct RouteCopy final : Copy<RouteCopy<P>, BasicRouteStatus<P>, P, BasicRoute<P>> {
  void onRoute(const P& prefix) override {
    this->keyChanged(prefix, [&] { return this->notifier()->route(prefix); });
  }
  void onTable() override { this->tableChanged(); }
  void walkAll(const auto& take) {
    const auto visit = [&](const auto& route) { return take(route.prefix, route), true; };
    this->read([&] { this->notifier()->forEachRoute(P(), visit); });
  }
};

struct FecCopy final : Copy<FecCopy, Fib::ForwardingStatus, Fib::FecId, Fib::Fec> {
  void onFec(const Fib::FecId& fecId) override {
    keyChanged(fecId, [&] { return notifier()->fec(fecId); });
  }
  void onTable() override { tableChanged(); }
  void walkAll(const auto& take) {
    const auto visit = [&](const Fib::Fec& fec) { return take(fec.fecId, fec), true; };
    read([&] { notifier()->forEachFec(Fib::FecId(), visit); });
  }
};

struct VrfCopy {
  Kel::Ptr<RouteCopy<Vantu::Prefix>> routes = Kel::makePtr<RouteCopy<Vantu::Prefix>>();
  Kel::Ptr<RouteCopy<Vantu::Ip6Prefix>> routes6 = Kel::makePtr<RouteCopy<Vantu::Ip6Prefix>>();
  Kel::Ptr<FecCopy> fecs = Kel::makePtr<FecCopy>();
};

class TableMountsTest : public TestStore {
 protected:
  void SetUp() override {
    mount_ = mount();
    follower_ = Kel::makePtr<TableFollower>(mount_);
    arp_ = Kel::makePtr<ArpTableMount>(follower_);
    fib_ = Kel::makePtr<FibMount>(follower_);
    arpCopy_->notifierIs(arp_);
    for (const auto& vrfId : vrfIds) {
      copies_[vrfId].routes->notifierIs(fib_->routeStatus(vrfId));
      copies_[vrfId].routes6->notifierIs(fib_->route6Status(vrfId));
      copies_[vrfId].fecs->notifierIs(fib_->forwardingStatus(vrfId));
    }
  }
  void follow(std::size_t limit = 100, unsigned times = 1) {
    for (; times > 0; --times) {
      mount_->refresh();
      for (bool more = true; more;) {
        const auto before = keysNotified;
        more = follower_->step(limit);
        EXPECT_LE(keysNotified, before + limit);
      }
    }
  }
  using Fill = std::function<void(Batch&)>;
  void pass(Publisher& publisher, const Fill& fill) {
    publisher.beginFullPass({TableId::arp, TableId::neighbor, TableId::route, TableId::route6, TableId::fec});
    commit(publisher, fill);
    publisher.endFullPass();
  }
  void commit(Publisher& publisher, const Fill& fill) {
    auto batch = publisher.begin();
    fill(batch);
    batch.commit();
  }
  unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }

  Record randomRecord() {
    const auto vrfId = vrfIds[below(std::size(vrfIds))];
    const auto byte = static_cast<std::uint8_t>(below(40) * 6);
    const Vantu::IpAddr address4(std::uint32_t{byte} << 24);
    const Vantu::Ip6Addr address6(Vantu::Ip6Addr::Bytes{byte});
    const auto anyAddress = [&] { return below(2) ? Vantu::IpGenAddr(address4) : Vantu::IpGenAddr(address6); };
    const Vantu::IntfId names[] = {eth0, Vantu::IntfId("a/b"), Vantu::IntfId(std::string(255, '\xff'))};
    const auto route = [&](auto made, const auto& prefix) {
      made.prefix = prefix;
      made.routeType = Routing::Fib::RouteType(static_cast<std::uint8_t>(1 + below(255)));
      made.metric = Routing::RouteMetric(static_cast<std::uint32_t>(random_()));
      made.routePreference = Routing::RoutePreference(byte);
      made.fecId = Fib::FecId(random_() * std::uint64_t{0x100000001});
      made.isPersistent = below(2);
      made.isNexthopGroup = below(2);
      made.action = Routing::Fib::RouteAction(below(4));
      return recordOf(vrfId, made);
    };
    switch (below(4)) {
      case 0:
        return recordOf(vrfId,
                        ArpEntry{{vrfId, anyAddress(), names[below(3)]},
                                 Vantu::EthAddr::fromString(below(2) ? "02:00:00:00:00:01" : "ff:00:00:00:00:fe"),
                                 {below(2) == 0}});
      case 1:
        return route(Fib::Route(), Vantu::Prefix(address4, below(33)));
      case 2:
        return route(Fib6::Route(), Vantu::Ip6Prefix(address6, below(129)));
      default:
        Fib::Fec fec{Fib::FecId(std::uint64_t{byte} << 50 | 1), {}};
        for (auto i = below(50) ? below(4) : 512; i > 0; --i) {
          fec.via.push_back({anyAddress(), below(3) ? names[below(3)] : Vantu::IntfId()});
        }
        return recordOf(vrfId, fec);
    }
  }
  // One random change, in the batch and in the model. True when it makes a difference.
  bool change(Batch& batch) {
    const auto record = randomRecord();
    if (below(3) == 0) {
      const auto known = model_.lower_bound(record.first);
      const auto key = known == model_.end() || below(9) == 0 ? record.first : known->first;
      batch.del(TableId(key[0]), key.substr(1));
      return model_.erase(key) > 0;
    }
    add(batch, record);
    return std::exchange(model_[record.first], record.second) != record.second;
  }
  // What was followed, and what walks from anywhere find.
  void expectModel() {
    Contents found;
    const auto take = [&](VrfId vrfId, const auto& copy) {
      for (const auto& entry : copy.entries) found.insert(recordOf(vrfId, entry.second));
    };
    take({}, *arpCopy_);
    for (const auto& [vrfId, copy] : copies_) {
      take(vrfId, *copy.routes), take(vrfId, *copy.routes6), take(vrfId, *copy.fecs);
      const auto expectWalk = [&, id = vrfId](const std::string& from, const auto& walk) {
        auto expected = model_.lower_bound(from);
        auto left = 1 + below(20);
        walk([&](const auto& entry) {
          EXPECT_TRUE(expected != model_.end() && recordOf(id, entry) == *expected++) << id;
          return --left > 0;
        });
        const auto range = from.substr(0, 1 + vrfKeyBytes);
        EXPECT_TRUE(left == 0 || expected == model_.end() || !expected->first.starts_with(range)) << id;
      };
      const Vantu::IpAddr from(below(240) << 24);
      const Vantu::Prefix prefix(from, 8);
      expectWalk(recordKey(TableId::route, encodeKey<Ipv4Route>({vrfId, prefix})),
                 [&, id = vrfId](auto visit) { fib_->routeStatus(id)->forEachRoute(prefix, visit); });
      const Fib::FecId fecId(std::uint64_t{below(240)} << 50 | 1);
      expectWalk(recordKey(TableId::fec, encodeKey<FecRecord>({vrfId, fecId})),
                 [&, id = vrfId](auto visit) { fib_->forwardingStatus(id)->forEachFec(fecId, visit); });
      expectWalk(recordKey(TableId::arp, encodeKey<Ipv4Record>({vrfId, from, eth0}).substr(0, vrfKeyBytes + 4)),
                 [&, id = vrfId](auto visit) { arp_->forEachArpEntry(id, from, visit); });
    }
    EXPECT_TRUE(found == model_);
  }

  std::mt19937 random_{11};
  Kel::Ptr<Mount> mount_;
  Kel::Ptr<TableFollower> follower_;
  Kel::Ptr<ArpTableMount> arp_;
  Kel::Ptr<FibMount> fib_;
  Kel::Ptr<ArpCopy> arpCopy_ = Kel::makePtr<ArpCopy>();
  std::map<VrfId, VrfCopy> copies_;
  Contents model_;
  Traces traces_;
};

// Publishers end, are killed and begin again, stores are made anew, tombstones run out, the map is outgrown.
TEST_F(TableMountsTest, randomHistoriesReachTheirReaders) {
  auto settings = config();
  settings.tombstoneLimit = 20;
  settings.mapBytes = std::size_t{1} << 20;
  auto publisher = std::make_unique<Publisher>(settings);
  pass(*publisher, [](Batch&) {});
  for (int round = 0; round < 400; ++round) {
    auto batch = publisher->begin();
    std::size_t differences = 0;
    for (unsigned i = below(16); i > 0; --i) differences += change(batch);
    EXPECT_EQ(differences, batch.commit().changes);
    for (std::uint32_t i = 0; round == 200 && i < 20'000; ++i) add(batch, VrfId(9), route(i, 1));
    batch.commit();
    if (below(40) == 0) {
      publisher.reset();
      ASSERT_EQ(-SIGKILL, finish(spawn([&] {
        Publisher child(settings);
        commit(child, [](Batch& whole) { add(whole, VrfId(1), route(5, 77)); });
        auto lost = child.begin();
        add(lost, VrfId(1), route(5, 78));
        return raise(SIGKILL);
      })));
      const auto last = recordOf(VrfId(1), route(5, 77));
      model_[last.first] = last.second;
      const bool isRecreated = settings.recreate = below(3) == 0;
      publisher = std::make_unique<Publisher>(settings);
      settings.recreate = false;
      // A store that is made anew replaces nothing before its first pass is complete.
      const auto before = arpCopy_->anew;
      pass(*publisher, [&](Batch& all) {
        for (const auto& record : model_) add(all, record);
        if (below(2) == 0) follow(3);
        EXPECT_TRUE(!isRecreated || arpCopy_->anew == before);
      });
    }
    if (below(3) != 0) continue;
    // Other readers of the same follower come and go.
    Kel::makePtr<ArpTableMount>(follower_), Kel::makePtr<FibMount>(follower_);
    mount_->refresh();
    if (below(2) == 0) follower_->step(1 + below(5));
    if (below(2) == 0) continue;
    follow(1 + below(9));
    expectModel();
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
  EXPECT_EQ(1U, arpCopy_->initialized);
  EXPECT_GT(arpCopy_->anew, 2U);
  EXPECT_GT(copies_[VrfId(1)].routes->keys, 30U);
}

TEST_F(TableMountsTest, keysThatNobodyCanHavePutHaveNoEntry) {
  Publisher publisher(config());
  const auto entry = neighbour(0, 1);
  pass(publisher, [&](Batch& batch) { add(batch, VrfId(0), entry); });
  follow();
  EXPECT_EQ(entry, arp_->arpEntry(entry.key));
  EXPECT_FALSE(arp_->neighborEntry(entry.key).exists());
  for (const ArpKey& key : {ArpKey{VrfId(), entry.addr(), eth0}, ArpKey{VrfId(0x1000000), entry.addr(), eth0},
                            ArpKey{VrfId(0), {}, eth0}, ArpKey{VrfId(0), entry.addr(), {}}}) {
    EXPECT_FALSE(arp_->arpEntry(key).exists()) << key;
  }
  arp_->forEachArpEntry(VrfId(), [](const ArpEntry&) { FAIL(); });
  EXPECT_EQ(Fib::Route(), fib_->routeStatus(VrfId())->route(route(10, 1).prefix));
  EXPECT_FALSE(fib_->forwardingStatus(VrfId(1))->fec(Fib::FecId()).exists());
}

// The first record of the next VRF, or of the next table, is none of a walk's business.
TEST_F(TableMountsTest, damagedRecordsAreReportedOnceAndTheOthersServed) {
  constexpr const char* markedMac = "44:41:4d:41:47:45";  // "DAMAGE" in the file
  constexpr std::uint64_t markedFec = 0x4547414d4144;     // the same
  const auto fill = [&](Batch& batch) {
    add(batch, VrfId(0), neighbour(0, 9));
    for (std::uint32_t i = 1; i <= 5; ++i) {
      const bool isMarked = i % 2 == 0;
      add(batch, VrfId(1), isMarked ? neighbour(1, i, markedMac) : neighbour(1, i));
      add(batch, VrfId(1), route(i, isMarked ? markedFec : 7));
      add(batch, VrfId(1), fecOf(i, isMarked ? "DAMAGE" : "e"));
    }
    add(batch, VrfId(255), neighbour(255, 1, markedMac));
    add(batch, VrfId(0), route(1, markedFec));
    // Records that no publisher of ours writes are damage as well: their checksums are right.
    const auto vrf = encodeKey<Ipv4Record>(neighbour(1, 6).key).substr(0, vrfKeyBytes);
    batch.put(TableId::arp, vrf + "x", encodeValue<Ipv4Record>(neighbour(1, 6)));
    batch.put(TableId::arp, encodeKey<Ipv4Record>(neighbour(1, 6).key), "short");
    batch.put(TableId::route, vrf + "x", encodeValue<Ipv4Route>(route(6, 7)));
    batch.put(TableId::fec, encodeKey<FecRecord>({VrfId(1), Fib::FecId(9)}), "x");
  };
  stopClock();
  auto publisher = std::make_unique<Publisher>(config());
  pass(*publisher, fill);
  follow(100, 4);
  EXPECT_THAT(traces_.take(), SizeIs(4));
  EXPECT_EQ(7U, arpCopy_->entries.size());
  now_ += 3600;
  ASSERT_GE(damage(dataFile(), "DAMAGE"), 9U);
  const auto& copy = copies_[VrfId(1)];
  const auto ignore = [](const ArpEntry&) {};
  arp_->forEachArpEntry(VrfId(0), ignore);
  arp_->forEachNeighborEntry(VrfId(255), ignore);
  EXPECT_THROW(arp_->forEachArpEntry(VrfId(255), ignore), CorruptionDetectedException);
  EXPECT_THROW(arp_->arpEntry(neighbour(1, 2).key), CorruptionDetectedException);
  EXPECT_THROW(fib_->routeStatus(VrfId(1))->route(route(2, 1).prefix), CorruptionDetectedException);
  EXPECT_THROW(fib_->forwardingStatus(VrfId(1))->fec(Fib::FecId(2)), CorruptionDetectedException);
  // The first of a walk is thrown, the others were reported; they are passed on at the end of the next step.
  EXPECT_EQ(4U, mount_->corruptionCount());
  arpCopy_->readAll();
  copy.routes->readAll();
  copies_[VrfId(0)].routes->readAll();
  copy.fecs->readAll();
  follow(100, 4);
  // Opened again, they are damaged still: reported no more, and the rest goes on being served.
  EXPECT_EQ(12U, mount_->corruptionCount());
  EXPECT_THAT(traces_.take(), SizeIs(8));
  EXPECT_EQ(4U, arpCopy_->entries.size());
  EXPECT_EQ(3U, copy.routes->entries.size());
  EXPECT_EQ(3U, copy.fecs->entries.size());

  // In a new store, what is damaged is another matter.
  now_ += 3600;
  publisher.reset();
  publisher = std::make_unique<Publisher>(recreating());
  pass(*publisher, fill);
  follow(100, 4);
  EXPECT_THAT(traces_.take(), SizeIs(4));
  EXPECT_EQ(7U, arpCopy_->entries.size());
  commit(*publisher, [](Batch& batch) { batch.put(TableId::neighbor, "x", ""); });
  follow();
  EXPECT_THAT(traces_.take(), ElementsAre(AllOf(HasSubstr("table neighbor"), HasSubstr("key too short"))));
}

// What lies behind them is read when the store has changed: it may have been mended.
TEST_F(TableMountsTest, walkThatEndedForItsDamageIsMadeGood) {
  constexpr std::uint32_t damaged = 1000;
  const auto& entries = copies_[VrfId(1)].routes->entries;
  Publisher publisher(config());
  pass(publisher, [](Batch& batch) {
    for (std::uint32_t i = 1; i <= damaged; ++i) {
      batch.put(TableId::route, encodeKey<Ipv4Route>({VrfId(1), route(i, 7).prefix}), "malformed");
    }
    add(batch, VrfId(1), route(damaged + 1, 7));
  });
  follow(100, 4);
  EXPECT_EQ(0U, entries.size());
  EXPECT_EQ(damaged + 1, traces_.take().size()) << "each, and that there may be more";
  commit(publisher, [](Batch& batch) {
    for (std::uint32_t i = 1; i <= damaged; ++i) add(batch, VrfId(1), route(i, 7));
  });
  stopClock();
  now_ += 60;
  follow(100, 2);
  EXPECT_EQ(damaged + 1, entries.size());
}

// A fault of the mapping is over only when the store is opened again, however often it is met.
TEST_F(TableMountsTest, fileThatIsCutShort) {
  pass(*std::make_unique<Publisher>(config()), [](Batch& batch) {
    for (std::uint32_t i = 0; i < 5000; ++i) add(batch, VrfId(1), neighbour(1, i));
  });
  follow();
  EXPECT_EQ(5000U, arpCopy_->entries.size());
  std::filesystem::resize_file(dataFile(), 8192);
  stopClock();
  // What stays broken is tried again after growing pauses, not with every refresh.
  for (int i = 0; i < 600; ++i, now_ += 0.2) {
    arpCopy_->readAll();
    EXPECT_EQ(Mount::State::damaged, mount_->state());
    follow();
  }
  EXPECT_GE(mount_->corruptionCount(), 4U);
  EXPECT_LE(mount_->corruptionCount(), 20U);
  EXPECT_THAT(traces_.take(), Contains(HasSubstr("fault in the mapping of data.mdb")));
  // The operator begins a new store; the reader comes back by itself once its pause is over.
  Publisher publisher(recreating());
  pass(publisher, [](Batch& batch) { add(batch, VrfId(1), neighbour(1, 1)); });
  now_ += 60;
  follow();
  EXPECT_EQ(1U, arpCopy_->entries.size());
}

// What cannot be read is not what is not there.
TEST_F(TableMountsTest, unreadableStoreIsNoEmptyTable) {
  const auto routes = fib_->routeStatus(VrfId(1));
  const auto& copy = *copies_[VrfId(1)].routes;
  const auto prefix = route(5, 1).prefix;
  follow();
  EXPECT_FALSE(routes->initialized());
  EXPECT_THROW(routes->route(prefix), StoreException);
  EXPECT_THROW(arp_->arpEntry(neighbour(1, 1).key), StoreException);
  EXPECT_THROW(arp_->forEachArpEntry(VrfId(1), [](const auto&) {}), StoreException);
  {
    Publisher publisher(config());
    commit(publisher, [](Batch& batch) { add(batch, VrfId(1), route(5, 1)); });
    follow();
    EXPECT_FALSE(routes->initialized());
    EXPECT_EQ(0U, copy.initialized + copy.keys);
    EXPECT_EQ(route(5, 1), routes->route(prefix));
    pass(publisher, [](Batch& batch) { add(batch, VrfId(1), route(5, 1)); });
  }
  follow();
  EXPECT_TRUE(routes->initialized());
  const auto before = routes->generation();
  EXPECT_EQ(before, routes->generation());
  EXPECT_NE(0U, before);

  // As many readers as the store takes.
  const auto other = std::make_shared<Environment>(directory_, Environment::Access::read, 0);
  std::vector<std::unique_ptr<View>> readers;
  refusal([&] {
    for (;;) readers.push_back(std::make_unique<View>(other, 0));
  });
  EXPECT_EQ(StoreException::Kind::full, refusal([&] { routes->route(prefix); }).kind());
  EXPECT_NE(before, routes->generation());
  EXPECT_EQ(0U, copy.anew);
  readers.clear();
  follow();
  EXPECT_EQ(1U, copy.anew);  // what was not read may have been what changed
  EXPECT_EQ(1U, copy.entries.size());

  std::filesystem::remove_all(directory_);
  follow();
  EXPECT_TRUE(routes->initialized());
  EXPECT_THROW(routes->route(prefix), StoreException);
  EXPECT_EQ(1U, copy.entries.size());
}

TEST_F(TableMountsTest, lookupsOfOneTurnShareOneSnapshot) {
  unsigned turns = 0;
  mount_->setTurnHandler([&] { ++turns; });
  Publisher publisher(config());
  pass(publisher, [](Batch& batch) { add(batch, VrfId(1), route(5, 1)); });
  follow();
  mount_->turnEnds();
  turns = 0;
  const auto other = fib_->routeStatus(VrfId(255));
  EXPECT_EQ(other, fib_->routeStatus(VrfId(255)));
  EXPECT_EQ(route(5, 1), fib_->routeStatus(VrfId(1))->route(route(5, 1).prefix));
  const auto before = other->generation();
  EXPECT_EQ(1U, turns);
  mount_->turnEnds();
  commit(publisher, [](Batch& batch) { add(batch, VrfId(255), route(6, 1)); });
  EXPECT_EQ(route(6, 1), other->route(route(6, 1).prefix));
  EXPECT_NE(before, other->generation());
  EXPECT_FALSE(other->isNotified());
  EXPECT_TRUE(fib_->forwardingStatus(VrfId(255))->isNotified()) << "no FEC has changed";
  EXPECT_EQ(2U, turns);
  follow();  // asserts that nothing is held
  EXPECT_TRUE(other->isNotified());
  EXPECT_EQ(1U, copies_[VrfId(255)].routes->keys);
  EXPECT_EQ(0U, copies_[VrfId(1)].routes->keys);
}

}  // namespace
}  // namespace Quillo::Test
