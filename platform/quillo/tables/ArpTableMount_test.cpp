#include "quillo/tables/ArpTableMount.h"

#include <gmock/gmock.h>

#include <map>

#include "kel/System.h"
#include "quillo/tables/ArpRecord.h"
#include "quillo/tables/VrfKey.h"
#include "quillo/testing/TestNeighbours.h"
#include "quillo/testing/TestStore.h"

namespace Arp::Table::Test {

using Pesk::CorruptionDetectedException;
using Quillo::ArpTableMount;
using Quillo::encodeVrf;
using Quillo::Publisher;
using Quillo::TableId;
using Quillo::Test::damage;
using Quillo::Test::Traces;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Model = std::map<ArpKey, ArpEntry>;

// Keeps a copy of the table as a state machine does.
struct Copy : Status::Notifiee {
  Model entries;
  unsigned initialized = 0;
  unsigned anew = 0;
  unsigned keys = 0;

  void handleInitialized() override {
    ++initialized;
    readAll();
  }
  void handleTable() override {
    ++anew;
    readAll();
  }
  void onArpEntry(const ArpKey& key) override {
    read([&] { take(key, notifier()->arpEntry(key)); });
  }
  void onNeighborEntry(const ArpKey& key) override {
    read([&] { take(key, notifier()->neighborEntry(key)); });
  }

  void take(const ArpKey& key, const ArpEntry& entry) {
    ++keys;
    if (entry.exists()) {
      entries[key] = entry;
    } else {
      entries.erase(key);
    }
  }
  void readAll() {
    entries.clear();
    const auto visit = [this](const ArpEntry& entry) { entries[entry.key] = entry; };
    for (const auto& vrfId : RandomNeighbours::vrfIds()) {
      read([&] { notifier()->forEachArpEntry(vrfId, visit); });
      read([&] { notifier()->forEachNeighborEntry(vrfId, visit); });
    }
  }
  void read(const std::function<void()>& reading) const {
    try {
      reading();
    } catch (const CorruptionDetectedException& error) {
      notifier()->corruptionDetected(error);
    }
  }
};

class ArpMountTest : public Quillo::Test::TestStore {
 protected:
  void SetUp() override {
    mount_ = mount();
    table_ = Kel::makePtr<ArpTableMount>(mount_);
    copy_->notifierIs(table_);
  }
  void follow(std::size_t limit = 100) {
    mount_->refresh();
    while (table_->step(limit)) {
    }
  }
  void publish(Publisher& publisher, const std::vector<ArpEntry>& entries) {
    auto batch = publisher.begin();
    for (const auto& entry : entries) entryIs(batch, entry);
    batch.commit();
  }
  void pass(Publisher& publisher, const std::vector<ArpEntry>& entries) {
    publisher.beginFullPass({TableId::arp, TableId::neighbor});
    publish(publisher, entries);
    publisher.endFullPass();
  }
  std::vector<ArpEntry> walk(const VrfId& vrfId) const {
    std::vector<ArpEntry> found;
    const auto visit = [&](const ArpEntry& entry) { found.push_back(entry); };
    table_->forEachArpEntry(vrfId, visit);
    table_->forEachNeighborEntry(vrfId, visit);
    return found;
  }

  Kel::Ptr<Quillo::Mount> mount_;
  Kel::Ptr<ArpTableMount> table_;
  Kel::Ptr<Copy> copy_ = Kel::makePtr<Copy>();
};

const Vantu::IntfId eth0("eth0");

ArpEntry entryOf(std::uint32_t vrfId, std::uint32_t address, const char* mac = "02:00:00:00:00:01") {
  return {{VrfId(vrfId), Vantu::IpAddr(address), eth0}, Vantu::EthAddr::fromString(mac), {}};
}

// "DAMAGE", to be found in the file.
constexpr const char* markedMac = "44:41:4d:41:47:45";

// Publishers end, are killed and begin again, stores are made anew, tombstones run out.
TEST_F(ArpMountTest, randomHistoriesReachTheReader) {
  RandomNeighbours random(17);
  Model model;
  auto settings = config();
  settings.tombstoneLimit = 10;
  auto publisher = std::make_unique<Publisher>(settings);
  pass(*publisher, {});
  const auto change = [&](Quillo::Batch& batch, Model& changed) {
    const auto known = changed.lower_bound(random.key());
    if (random.oneIn(3) && known != changed.end()) {
      entryDel(batch, known->first);
      changed.erase(known);
    } else {
      const auto entry = random.entry(random.key());
      entryIs(batch, entry);
      changed[entry.key] = entry;
    }
  };
  for (int round = 0; round < 400; ++round) {
    auto batch = publisher->begin();
    for (unsigned i = random.below(8); i > 0; --i) change(batch, model);
    batch.commit();
    if (random.oneIn(40)) {
      publisher.reset();
      const auto committed = Quillo::Test::spawn([&] {
        Publisher child(settings);
        auto first = child.begin();
        entryIs(first, entryOf(1, 77));
        first.commit();
        auto lost = child.begin();
        entryIs(lost, entryOf(1, 78));
        return raise(SIGKILL);
      });
      ASSERT_EQ(-SIGKILL, Quillo::Test::finish(committed));
      model[entryOf(1, 77).key] = entryOf(1, 77);
      settings.recreate = random.oneIn(3);
      publisher = std::make_unique<Publisher>(settings);
      settings.recreate = false;
      publisher->beginFullPass({TableId::arp, TableId::neighbor});
      if (random.oneIn(2)) follow(3);
      auto again = publisher->begin();
      for (const auto& [key, entry] : model) entryIs(again, entry);
      again.commit();
      if (random.oneIn(2)) follow(3);
      publisher->endFullPass();
    }
    if (!random.oneIn(3)) continue;
    mount_->refresh();
    if (random.oneIn(2)) table_->step(1 + random.below(5));
    if (!random.oneIn(2)) continue;
    follow(1 + random.below(9));
    ASSERT_EQ(model, copy_->entries) << "round " << round;
    for (const auto& vrfId : RandomNeighbours::vrfIds()) {
      std::vector<ArpEntry> expected;
      for (const auto& [key, entry] : model) {
        if (key.vrfId == vrfId) expected.push_back(entry);
      }
      ASSERT_EQ(expected, walk(vrfId)) << "VRF " << vrfId;  // in order, and nothing of its neighbours in number
    }
    const auto key = random.key();
    const bool isIpv4 = key.addr.af() == Vantu::ipv4_;
    const auto at = model.find(key);
    const auto expected = at == model.end() ? ArpEntry() : at->second;
    ASSERT_EQ(expected, isIpv4 ? table_->arpEntry(key) : table_->neighborEntry(key));
    ASSERT_FALSE((isIpv4 ? table_->neighborEntry(key) : table_->arpEntry(key)).exists());
    std::vector<ArpEntry> ofAddress, met;
    for (const auto& [other, entry] : model) {
      if (other.vrfId == key.vrfId && other.addr == key.addr) ofAddress.push_back(entry);
    }
    const auto meet = [&](const ArpEntry& entry) {
      if (entry.addr() == key.addr) met.push_back(entry);
      return entry.addr() == key.addr;
    };
    isIpv4 ? table_->forEachArpEntry(key.vrfId, key.addr, meet)
           : table_->forEachNeighborEntry(key.vrfId, key.addr, meet);
    ASSERT_EQ(ofAddress, met);
  }
  EXPECT_EQ(1U, copy_->initialized);
  EXPECT_GT(copy_->anew, 2U);
  EXPECT_GT(copy_->keys, 100U);
  EXPECT_GT(model.size(), 100U);
}

TEST_F(ArpMountTest, withoutAStoreThereAreNoEntries) {
  const auto entry = entryOf(0, 1);
  EXPECT_FALSE(table_->step(10));
  EXPECT_FALSE(table_->arpEntry(entry.key).exists());
  EXPECT_THAT(walk(VrfId(0)), IsEmpty());

  auto publisher = std::make_unique<Publisher>(config());
  publish(*publisher, {entry});
  follow();
  EXPECT_FALSE(table_->initialized());
  EXPECT_EQ(0U, copy_->initialized + copy_->keys);
  EXPECT_EQ(entry, table_->arpEntry(entry.key));
  pass(*publisher, {entry});
  follow();
  EXPECT_TRUE(table_->initialized());
  EXPECT_EQ(1U, copy_->initialized);
  // Keys that nobody can have put.
  EXPECT_FALSE(table_->arpEntry({VrfId(), entry.addr(), eth0}).exists());
  EXPECT_FALSE(table_->arpEntry({VrfId(0x1000000), entry.addr(), eth0}).exists());
  EXPECT_FALSE(table_->arpEntry({VrfId(0), {}, eth0}).exists());
  EXPECT_FALSE(table_->arpEntry({VrfId(0), entry.addr(), {}}).exists());
  EXPECT_THAT(walk(VrfId()), IsEmpty());

  publisher.reset();
  std::filesystem::remove_all(directory_);
  follow();
  EXPECT_TRUE(table_->initialized());
  EXPECT_FALSE(table_->arpEntry(entry.key).exists());
  EXPECT_EQ(0U, copy_->anew);
  EXPECT_EQ(1U, copy_->entries.size());
}

TEST_F(ArpMountTest, damagedRecordsAreReportedOnceAndTheOthersServed) {
  auto publisher = std::make_unique<Publisher>(config());
  const std::vector<ArpEntry> entries{
      entryOf(0, 9), entryOf(1, 1),           entryOf(1, 2, markedMac), entryOf(1, 3), entryOf(1, 4, markedMac),
      entryOf(1, 5), entryOf(2, 1, markedMac)};
  pass(*publisher, entries);
  follow();
  ASSERT_GT(damage(dataFile(), "DAMAGE"), 0U);
  Traces traces;
  const auto walked = [&](std::uint32_t vrfId) -> std::string {
    std::string found;
    try {
      table_->forEachArpEntry(VrfId(vrfId),
                              [&](const ArpEntry& entry) { found += entry.addr().stringValue() + " "; });
    } catch (const CorruptionDetectedException& error) {
      EXPECT_THAT(error.what(), HasSubstr("checksum mismatch"));
      table_->corruptionDetected(error);
      found += "damage";
    }
    return found;
  };
  // The first record of the next VRF is none of its business.
  EXPECT_EQ("0.0.0.9 ", walked(0));
  EXPECT_EQ("0.0.0.1 0.0.0.3 0.0.0.5 damage", walked(1));
  EXPECT_EQ("damage", walked(2));
  EXPECT_EQ(entries[1], table_->arpEntry(entries[1].key));
  EXPECT_EQ(0U, mount_->corruptionCount());
  follow();
  EXPECT_EQ(3U, mount_->corruptionCount());
  EXPECT_EQ(3U, traces.take().size());
  // Opened again, they are damaged still: reported no more, and the rest goes on being served.
  for (int i = 0; i < 3; ++i) {
    follow();
    EXPECT_EQ("0.0.0.1 0.0.0.3 0.0.0.5 damage", walked(1));
    EXPECT_THROW(table_->arpEntry(entries[2].key), CorruptionDetectedException);
  }
  EXPECT_EQ(1U, copy_->anew);
  EXPECT_EQ(4U, copy_->entries.size());
  EXPECT_EQ(3U, mount_->corruptionCount());
  EXPECT_THAT(traces.take(), IsEmpty());

  // A new store is another matter.
  auto anew = config();
  anew.recreate = true;
  publisher.reset();
  publisher = std::make_unique<Publisher>(anew);
  pass(*publisher, {entryOf(1, 1), entryOf(1, 2, markedMac)});
  follow();
  EXPECT_EQ("0.0.0.1 0.0.0.2 ", walked(1));
  ASSERT_GT(damage(dataFile(), "DAMAGE"), 0U);
  EXPECT_EQ("0.0.0.1 damage", walked(1));
  follow();
  EXPECT_EQ(4U, mount_->corruptionCount());
}

// Records that no publisher of ours writes: their checksums are right.
TEST_F(ArpMountTest, malformedRecordsAreDamage) {
  Publisher publisher(config());
  pass(publisher, {entryOf(1, 1), entryOf(1, 3)});
  follow();
  Traces traces;
  auto batch = publisher.begin();
  batch.put(TableId::arp, encodeVrf(VrfId(1)) + "x", "");
  batch.put(TableId::arp, encodeKey(entryOf(1, 2).key), "short");
  batch.commit();
  for (int i = 0; i < 4; ++i) follow();
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("key too short"), HasSubstr("value of a wrong length")));
  EXPECT_EQ(2U, mount_->corruptionCount());
  EXPECT_EQ(1U, copy_->anew);
  EXPECT_EQ(2U, copy_->entries.size());
}

// A fault of the mapping is over only when the store is opened again, however often it is met.
TEST_F(ArpMountTest, damageOfTheWholeStoreIsAlwaysReported) {
  {
    Publisher publisher(config());
    std::vector<ArpEntry> entries;
    for (std::uint32_t i = 0; i < 5000; ++i) entries.push_back(entryOf(1, i));
    pass(publisher, entries);
  }
  follow();
  EXPECT_EQ(5000U, walk(VrfId(1)).size());
  Traces traces;
  std::filesystem::resize_file(dataFile(), 8192);
  const auto now = Kel::System::currentTime();
  for (unsigned i = 1; i <= 3; ++i) {
    try {
      walk(VrfId(1));
    } catch (const CorruptionDetectedException& error) {
      table_->corruptionDetected(error);
    }
    EXPECT_EQ(Quillo::Mount::State::damaged, mount_->state());
    EXPECT_THAT(walk(VrfId(1)), IsEmpty());
    Kel::System::clockIs([now, i] { return now + 60 * i; });
    follow();
  }
  Kel::System::clockIs({});
  EXPECT_GE(mount_->corruptionCount(), 3U);
  EXPECT_TRUE(table_->initialized());
}

TEST_F(ArpMountTest, goesWhileOthersGoOnFollowing) {
  Publisher publisher(config());
  pass(publisher, {});
  const auto follower = Kel::makePtr<Quillo::TableFollower>(mount_);
  auto first = Kel::makePtr<ArpTableMount>(follower);
  const auto second = Kel::makePtr<ArpTableMount>(follower);
  copy_->notifierIs(first);
  const auto other = Kel::makePtr<Copy>();
  other->notifierIs(second);
  mount_->refresh();
  second->step(10);
  EXPECT_EQ(2U, copy_->initialized + other->initialized);
  copy_->notifierIs(nullptr);
  first = nullptr;
  publish(publisher, {entryOf(1, 1)});
  mount_->refresh();
  second->step(10);
  EXPECT_EQ(1U, other->keys);
}

}  // namespace Arp::Table::Test
