#include "quillo/Publisher.h"

#include <gmock/gmock.h>
#include <lmdb.h>
#include <sched.h>
#include <sys/mount.h>

#include <random>

#include "quillo/Record.h"
#include "quillo/testing/TestStore.h"

namespace Quillo::Test {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using Kind = StoreException::Kind;

class PublisherTest : public TestStore {
 protected:
  StoreException openRefused() {
    return refusal([this] { Publisher publisher(config()); });
  }
  // Changes a store, or begins another program's, behind the back of our code.
  template <class Change>
  void tamper(const char* index, const Change& change) {
    MDB_env* env = nullptr;
    MDB_txn* txn = nullptr;
    MDB_dbi dbi = 0;
    mdb_env_create(&env);
    mdb_env_set_maxdbs(env, 4);
    ASSERT_EQ(0, mdb_env_open(env, directory_.c_str(), 0, 0644));
    ASSERT_EQ(0, mdb_txn_begin(env, nullptr, 0, &txn));
    ASSERT_EQ(0, mdb_dbi_open(txn, index, MDB_CREATE, &dbi));
    change(txn, dbi);
    ASSERT_EQ(0, mdb_txn_commit(txn));
    mdb_env_close(env);
  }
  // Puts raw bytes into an index.
  void tamperPut(const char* index, std::string key, std::string value) {
    tamper(index, [&](MDB_txn* txn, MDB_dbi dbi) {
      MDB_val keyVal{key.size(), key.data()};
      MDB_val valueVal{value.size(), value.data()};
      ASSERT_EQ(0, mdb_put(txn, dbi, &keyVal, &valueVal, 0));
    });
  }
};

// A reader that follows in pieces of random size, with random pauses, always arrives at what the publisher holds, and
// is told of each key once. Only real differences are counted.
TEST_F(PublisherTest, RandomHistoriesReachTheReader) {
  for (unsigned seed = 1; seed <= 8; ++seed) {
    std::mt19937 random(seed);
    auto below = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
    PublisherConfig settings = recreating();
    settings.tombstoneLimit = below(12);
    auto publisher = std::make_unique<Publisher>(settings);
    const auto generation = publisher->generation();
    settings.recreate = false;
    auto reader = mount();
    Contents model, mirror;
    Bookmark mark;
    unsigned rebuilds = 0;
    for (int round = 0; round < 300; ++round) {
      Batch batch = publisher->begin(), abandoned = publisher->begin();
      abandoned.put(TableId::varnix, "key1", "abandoned");
      std::uint64_t differences = 0;
      for (unsigned i = below(6); i > 0; --i) {
        std::string key("key\0", below(2) + 3);
        key += static_cast<char>(below(13) * 21);
        const auto before = model.find(key);
        if (below(3) == 0) {
          batch.del(TableId::varnix, key);
          differences += model.erase(key);
        } else {
          const std::string value(below(3), 'v');
          batch.put(TableId::varnix, key, value);
          differences += before == model.end() || before->second != value ? 1U : 0U;
          model[key] = value;
        }
      }
      ASSERT_EQ(differences, batch.commit().changes);
      if (below(40) == 0) {
        publisher.reset();
        publisher = std::make_unique<Publisher>(settings);
        ASSERT_EQ(generation, publisher->generation());
      }
      if (below(4) != 0) continue;
      std::map<std::string, unsigned> told;
      for (bool more = true; more;) {
        Snapshot snapshot = reader->snapshot();
        const auto limit = 1 + below(5);
        Changes changes = snapshot.changesSince(mark, limit);
        ASSERT_LE(changes.changes.size(), limit);
        if (changes.tooOld) {
          mirror = contents(snapshot);
          ++rebuilds;
        }
        for (const Change& change : changes.changes) {
          ASSERT_EQ(1U, ++told[change.key]);
          if (change.kind == Change::Kind::deletion) {
            mirror.erase(change.key);
          } else {
            mirror[change.key] = snapshot.get(change.table, change.key).value();
          }
        }
        mark = changes.next;
        more = changes.more;
      }
      ASSERT_EQ(model, mirror) << "seed " << seed << " round " << round;
      const auto from = std::string("key") + static_cast<char>(below(256));
      ASSERT_EQ(Contents(model.lower_bound(from), model.end()), contents(reader->snapshot(), from));
      ASSERT_EQ(model.size(), reader->snapshot().tableState(TableId::varnix).count);
    }
    EXPECT_GE(rebuilds, 1U);
  }
}

TEST_F(PublisherTest, LongKeysAreRefusedWholeAndTheRestOfTheBatchStays) {
  Publisher publisher(config());
  Batch batch = publisher.begin();
  const std::string longest(maxKeyBytes, 'k');
  batch.put(TableId::varnix, longest, "2");
  EXPECT_THROW(batch.put(TableId::varnix, longest + "k", "3"), Kel::RangeException);
  EXPECT_THROW(batch.del(TableId::varnix, ""), Kel::RangeException);
  EXPECT_EQ(1U, batch.commit().changes);
  auto reader = mount();
  EXPECT_EQ("2", reader->snapshot().get(TableId::varnix, longest));
  EXPECT_EQ(std::nullopt, reader->snapshot().get(TableId::varnix, longest + "k"));
  EXPECT_FALSE(reader->snapshot().scan(TableId::varnix, longest + std::string(500, 'k')).valid());
}

// Whatever the umask is. What was removed comes again as soon as it can.
TEST_F(PublisherTest, ReadersUnderOtherUsersCanReadEveryFile) {
  namespace fs = std::filesystem;
  directory_ += "/deeper";
  const mode_t usual = umask(077);
  Publisher publisher(config());
  const fs::path bell = directory_ + "/doorbell";
  fs::remove(bell);
  fs::create_directory(bell);
  put(publisher, {{"a", "1"}});
  fs::remove(bell);
  put(publisher, {{"a", "2"}});
  umask(usual);
  const auto modeOf = [](const fs::path& path) { return static_cast<unsigned>(fs::status(path).permissions()); };
  EXPECT_EQ(0755U, modeOf(directory_));
  for (const char* name : {"data.mdb", "doorbell", "publisher.lock"}) {
    EXPECT_EQ(0644U, modeOf(directory_ + "/" + name)) << name;
  }
  EXPECT_EQ(0664U, modeOf(directory_ + "/lock.mdb"));
}

// What is refused stays byte for byte as it is until it is recreated; a file that is none of ours is kept even then.
TEST_F(PublisherTest, StoresThatAreRefused) {
  struct Case {
    std::function<void()> prepare;
    Kind kind;
    std::string text;
    Mount::State reader = Mount::State::refused;
  };
  const auto make = [this] {
    Publisher publisher(config());
    put(publisher, {{"a", std::string(20'000, 'a')}, {"b", std::string(20'000, 'b')}});
  };
  const Case cases[] = {
      {[&] { writeFile(dataFile(), std::string(10'000, 'x')); }, Kind::foreign, " is not a store"},
      {[&] { tamperPut("theirs", "x", "x"); }, Kind::foreign, "is a database of another program"},
      {[&] {
         make();
         std::string identity("QUORINST\7");
         tamperPut("quorin.records", std::string("\0store", 6), identity + std::string(31, '\0'));
       },
       Kind::version, "has format version 7, this program knows version 1"},
      {[&] {
         make();
         tamper("quorin.records", [](MDB_txn* txn, MDB_dbi dbi) {
           char name[] = "\1a";
           MDB_val key{2, name};
           ASSERT_EQ(0, mdb_del(txn, dbi, &key, nullptr));
         });
       },
       Kind::damaged, "table varnix, key \"\": 1 records with digest", Mount::State::ready},
      {[&] {
         make();
         std::filesystem::resize_file(dataFile(), std::filesystem::file_size(dataFile()) / 8192 * 4096);
       },
       Kind::damaged, "begin a new one with quorin-mirrord --recreate", Mount::State::damaged},
  };
  for (const auto& [prepare, kind, text, state] : cases) {
    SCOPED_TRACE(text);
    std::filesystem::remove_all(directory_);
    std::filesystem::create_directory(directory_);
    prepare();
    const auto before = readFile(dataFile());
    StoreException e = openRefused();
    EXPECT_EQ(kind, e.kind());
    EXPECT_THAT(e.what(), HasSubstr(text));
    EXPECT_THAT(e.what(), HasSubstr("--recreate"));
    EXPECT_EQ(before, readFile(dataFile()));
    Traces traces;
    auto reader = mount();
    EXPECT_EQ(state, reader->state());
    EXPECT_TRUE(state != Mount::State::refused || reader->stateText() == e.what()) << reader->stateText();
    EXPECT_EQ(std::nullopt, Publisher(recreating()).get(TableId::varnix, "a"));
    EXPECT_EQ(kind == Kind::foreign ? before : "", readFile(dataFile() + ".foreign"));
    EXPECT_TRUE(reader->refresh());
    EXPECT_EQ(Mount::State::ready, reader->state());
  }
}

// One line that names the table, rather than one for each of its records.
TEST_F(PublisherTest, RecordsInAnotherLayout) {
  put(*std::make_unique<Publisher>(config()), {{"a", "1"}});
  const auto layoutIs = [this](std::uint16_t layout) {
    std::string record;
    recordEncode(record, Place::records, "\1a", 1, layout, "1");
    tamperPut("quorin.records", "\1a", record);
  };
  layoutIs(9);
  auto reader = mount();
  EXPECT_EQ(Mount::State::refused, reader->state());
  EXPECT_THAT(reader->stateText(),
              HasSubstr("has records of table varnix in layout 9, this program knows layout 1"));
  EXPECT_FALSE(reader->refresh()) << "no news";
  EXPECT_EQ(0U, reader->corruptionCount());
  layoutIs(1);
  EXPECT_TRUE(reader->refresh());
  EXPECT_EQ((Contents{{"a", "1"}}), contents(reader->snapshot()));
}

// Killed at random moments, also while it makes the store or starts: whoever starts next finds the store whole, every
// batch there or not there, and journals nothing but real differences.
TEST_F(PublisherTest, KilledInMidWrite) {
  constexpr int pairs = 60;
  std::mt19937 random(42);
  int roundsWithCommits = 0;
  std::uint64_t lastSeq = 0;
  for (int round = 0; round < 60 || roundsWithCommits < 10; ++round) {
    ASSERT_LT(round, 1000) << "hardly any child gets to its work before it is killed";
    if (round % 20 == 0) {
      std::filesystem::remove_all(directory_);
      lastSeq = 0;
    }
    pid_t child = spawn([this, round] {
      Publisher publisher(config());
      std::mt19937 values(static_cast<unsigned>(round));
      for (;;) {
        Batch batch = publisher.begin();
        for (int i = 0; i < pairs; ++i) {
          std::string value(values() % 3000, static_cast<char>('a' + values() % 26));
          for (const char* side : {"left", "right"}) {
            const auto key = side + std::to_string(i);
            value.size() % 5 == 0 ? batch.del(TableId::varnix, key) : batch.put(TableId::varnix, key, value);
          }
        }
        batch.commit();
      }
      return 0;
    });
    usleep(static_cast<useconds_t>(random() % 25'000));
    kill(child, SIGKILL);
    ASSERT_EQ(-SIGKILL, finish(child));

    Publisher next(config());
    const auto found = contents(mount()->snapshot());
    auto now = found;
    for (int i = 0; i < pairs; ++i) {
      const auto n = std::to_string(i);
      ASSERT_EQ(found.count("left" + n), found.count("right" + n)) << "round " << round;
      ASSERT_EQ(now["left" + n], now["right" + n]) << "round " << round;
    }
    const auto before = next.seq();
    roundsWithCommits += before > lastSeq ? 1 : 0;
    next.beginFullPass({TableId::varnix});
    put(next, found);
    put(next, {{"new in round " + std::to_string(round), "1"}});
    put(next, {{"left0", "withdrawn"}, {"right0", "withdrawn"}});
    del(next, "left0");
    del(next, "right0");
    ASSERT_EQ(0U, next.endFullPass().changes);
    ASSERT_EQ(before + 5, next.seq());
    // What is not put again is swept.
    next.beginFullPass({TableId::varnix});
    put(next, {{"kept", "1"}});
    ASSERT_EQ(found.size() + 1 - found.count("left0") - found.count("right0") - found.count("kept"),
              next.endFullPass().changes);
    const auto reader = mount();
    ASSERT_EQ((Contents{{"kept", "1"}}), contents(reader->snapshot()));
    ASSERT_EQ(next.seq(), reader->snapshot().completePass().value().seq);
    lastSeq = next.seq();
  }
}

TEST_F(PublisherTest, FullFileSystem) {
  pid_t child = spawn([this] {
    std::filesystem::create_directory(directory_);
    if (unshare(CLONE_NEWNS) != 0 || ::mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", directory_.c_str(), "tmpfs", 0, "size=2m") != 0) {
      return 77;
    }
    // A store that cannot even begin leaves nothing half made behind.
    std::string filler = directory_ + "/filler";
    writeFile(filler, std::string(3'000'000, 'x'));
    StoreException atStart = openRefused();
    EXPECT_EQ(Kind::full, atStart.kind()) << atStart.what();
    EXPECT_FALSE(std::filesystem::exists(dataFile()));
    std::filesystem::resize_file(filler, 500'000);

    Publisher publisher(config());
    const std::string value(50'000, 'v');
    std::size_t committed = 0;
    StoreException full = refusal([&] {
      for (; committed < 100; ++committed) put(publisher, {{std::to_string(committed), value}});
    });
    EXPECT_EQ(Kind::full, full.kind());
    EXPECT_THAT(full.what(), HasSubstr("No space left on device; make room on its file system"));
    EXPECT_GT(committed, 5U);
    EXPECT_LT(committed, 40U);
    auto reader = mount();
    EXPECT_EQ(committed, contents(reader->snapshot()).size());
    // The batch that failed is kept and goes in when there is room.
    Batch batch = publisher.begin();
    batch.put(TableId::varnix, "last", value);
    EXPECT_EQ(Kind::full, refusal([&] { batch.commit(); }).kind());
    std::filesystem::remove(filler);
    EXPECT_EQ(1U, batch.commit().changes);
    EXPECT_EQ(committed + 1, contents(reader->snapshot()).size());
    return HasFailure() ? 1 : 0;
  });
  const int status = finish(child);
  if (status == 77) GTEST_SKIP() << "needs the right to mount a tmpfs";
  EXPECT_EQ(0, status);
}

}  // namespace Quillo::Test
