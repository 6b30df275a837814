#include "quillo/Publisher.h"

#include <gmock/gmock.h>
#include <lmdb.h>
#include <sched.h>
#include <sys/mount.h>

#include <random>

#include "quillo/Record.h"
#include "quillo/testing/TestStore.h"

namespace Quillo::Test {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using Kind = StoreException::Kind;

class PublisherTest : public TestStore {
 protected:
  StoreException openRefused() {
    return refusal([this] { Publisher publisher(config()); });
  }
  Publisher recreated() {
    PublisherConfig anew = config();
    anew.recreate = true;
    return Publisher(anew);
  }
  // Changes a store behind the back of our code.
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
};

TEST_F(PublisherTest, MakesTheDirectoryAndKeepsTheStoreOverRestarts) {
  directory_ += "/deeper";
  std::uint64_t generation = 0;
  {
    Publisher publisher(config());
    generation = publisher.generation();
    put(publisher, "a", "1");
  }
  Publisher publisher(config());
  EXPECT_EQ(generation, publisher.generation());
  EXPECT_EQ("1", publisher.get(TableId::varnix, "a"));
  EXPECT_EQ(1U, publisher.seq());
}

// Whatever the umask is. What was removed comes again as soon as it can.
TEST_F(PublisherTest, ReadersUnderOtherUsersCanReadEveryFile) {
  namespace fs = std::filesystem;
  const mode_t usual = umask(077);
  Publisher publisher(config());
  const fs::path bell = directory_ + "/doorbell";
  fs::remove(bell);
  fs::create_directory(bell);
  put(publisher, "a", "1");
  fs::remove(bell);
  put(publisher, "a", "2");
  umask(usual);
  const auto modeOf = [](const fs::path& path) { return static_cast<unsigned>(fs::status(path).permissions()); };
  EXPECT_EQ(0755U, modeOf(directory_));
  for (const char* name : {"data.mdb", "doorbell", "publisher.lock"}) {
    EXPECT_EQ(0644U, modeOf(directory_ + "/" + name)) << name;
  }
  EXPECT_EQ(0664U, modeOf(directory_ + "/lock.mdb"));
}

TEST_F(PublisherTest, SecondPublisherIsToldWhoHoldsTheStore) {
  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  pid_t child = spawn([&] {
    PublisherConfig first = config();
    first.name = "first";
    Publisher publisher(first);
    put(publisher, "a", "1");
    EXPECT_EQ(1, write(ready[1], "x", 1));
    pause();
    return 0;
  });
  char byte;
  ASSERT_EQ(1, read(ready[0], &byte, 1));
  StoreException e = openRefused();
  EXPECT_EQ(Kind::owned, e.kind());
  EXPECT_EQ("store " + directory_ + " is published by first (pid " + std::to_string(child) +
                ") already; stop that one, or choose another directory with --store",
            e.what());
  // Not even --recreate touches a store that somebody publishes.
  EXPECT_EQ(Kind::owned, refusal([this] { recreated(); }).kind());
  EXPECT_EQ("1", mount()->snapshot().get(TableId::varnix, "a"));
  kill(child, SIGKILL);
  finish(child);
  EXPECT_EQ("1", Publisher(config()).get(TableId::varnix, "a"));
}

TEST_F(PublisherTest, DirectoryThatCannotBeMade) {
  writeFile(directory_, "a file");
  StoreException e = openRefused();
  EXPECT_EQ(Kind::directory, e.kind());
  EXPECT_THAT(e.what(), HasSubstr(directory_));
  EXPECT_THAT(e.what(), EndsWith("or choose another one with --store"));
}

TEST_F(PublisherTest, DirectoryThatCannotBeWritten) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root to become another user";
  }
  std::filesystem::create_directory(directory_);
  pid_t child = spawn([this] {
    if (setuid(65534) != 0) {
      return 2;
    }
    return openRefused().kind() == Kind::permission ? 0 : 1;
  });
  EXPECT_EQ(0, finish(child));
  EXPECT_TRUE(std::filesystem::is_empty(directory_));
}

TEST_F(PublisherTest, ForeignFilesStayAsTheyAreUntilSetAside) {
  std::filesystem::create_directory(directory_);
  std::string text(10'000, 'x');
  writeFile(dataFile(), text);
  StoreException e = openRefused();
  EXPECT_EQ(Kind::foreign, e.kind());
  EXPECT_THAT(e.what(), HasSubstr(dataFile() + " is not a store"));
  EXPECT_EQ(text, readFile(dataFile()));
  EXPECT_EQ(Mount::State::refused, mount()->state());
  recreated();
  EXPECT_EQ(text, readFile(dataFile() + ".foreign"));
  EXPECT_EQ(Mount::State::ready, mount()->state());
}

TEST_F(PublisherTest, DatabaseOfAnotherProgram) {
  std::filesystem::create_directory(directory_);
  tamper("theirs", [](MDB_txn* txn, MDB_dbi dbi) {
    char bytes[] = "x";
    MDB_val val{1, bytes};
    ASSERT_EQ(0, mdb_put(txn, dbi, &val, &val, 0));
  });
  std::string before = readFile(dataFile());
  StoreException e = openRefused();
  EXPECT_EQ(Kind::foreign, e.kind());
  EXPECT_THAT(e.what(), HasSubstr("is a database of another program"));
  EXPECT_EQ(before, readFile(dataFile()));
  auto reader = mount();
  EXPECT_EQ(Mount::State::refused, reader->state());
  EXPECT_EQ(e.what(), reader->stateText());
  recreated();
  EXPECT_EQ(before, readFile(dataFile() + ".foreign"));
}

TEST_F(PublisherTest, AnotherFormatVersion) {
  {
    Publisher publisher(config());
    put(publisher, "a", "1");
  }
  tamper("quorin.records", [](MDB_txn* txn, MDB_dbi dbi) {
    char name[] = "\0store";
    MDB_val key{6, name};
    MDB_val value;
    ASSERT_EQ(0, mdb_get(txn, dbi, &key, &value));
    std::string identity(static_cast<char*>(value.mv_data), value.mv_size);
    ASSERT_EQ("QUORINST", identity.substr(0, 8));
    identity[8] = 7;
    value.mv_data = identity.data();
    ASSERT_EQ(0, mdb_put(txn, dbi, &key, &value, 0));
  });
  std::string before = readFile(dataFile());
  StoreException e = openRefused();
  EXPECT_EQ(Kind::version, e.kind());
  EXPECT_THAT(e.what(), HasSubstr("has format version 7, this program knows version 1"));
  EXPECT_EQ(before, readFile(dataFile()));
  auto reader = mount();
  EXPECT_EQ(Mount::State::refused, reader->state());
  EXPECT_EQ(e.what(), reader->stateText());
  EXPECT_EQ(std::nullopt, recreated().get(TableId::varnix, "a"));
  EXPECT_TRUE(reader->refresh());
  EXPECT_EQ(Mount::State::ready, reader->state());
}

// One line that names the table, rather than one for each of its records.
TEST_F(PublisherTest, RecordsInAnotherLayout) {
  {
    Publisher publisher(config());
    put(publisher, "a", "1");
  }
  const auto layoutIs = [this](std::uint16_t layout) {
    tamper("quorin.records", [layout](MDB_txn* txn, MDB_dbi dbi) {
      std::string name("\1a");
      std::string record;
      recordEncode(record, Place::records, name, 1, layout, "1");
      MDB_val key{name.size(), name.data()};
      MDB_val value{record.size(), record.data()};
      ASSERT_EQ(0, mdb_put(txn, dbi, &key, &value, 0));
    });
  };
  layoutIs(9);
  auto reader = mount();
  EXPECT_EQ(Mount::State::refused, reader->state());
  EXPECT_EQ("store " + directory_ +
                " has records of table varnix in layout 9, this program knows layout 1; run "
                "publisher and readers of the same version",
            reader->stateText());
  EXPECT_FALSE(reader->refresh()) << "no news";
  EXPECT_EQ(0U, reader->corruptionCount());
  layoutIs(1);
  EXPECT_TRUE(reader->refresh());
  EXPECT_EQ((Contents{{"a", "1"}}), contents(reader->snapshot()));
}

TEST_F(PublisherTest, RecordThatVanishedIsFoundAtStart) {
  {
    Publisher publisher(config());
    put(publisher, "a", "1");
    put(publisher, "b", "1");
  }
  tamper("quorin.records", [](MDB_txn* txn, MDB_dbi dbi) {
    char name[] = "\1a";
    MDB_val key{2, name};
    ASSERT_EQ(0, mdb_del(txn, dbi, &key, nullptr));
  });
  StoreException e = openRefused();
  EXPECT_EQ(Kind::damaged, e.kind());
  EXPECT_THAT(e.what(), HasSubstr("table varnix, key \"\": 1 records with digest"));
  EXPECT_THAT(e.what(), EndsWith("begin a new one with quorin-mirrord --recreate"));
}

// Killed at random moments, also while it makes the store or starts: whoever starts next finds the store whole,
// every batch there or not there, and journals nothing but real differences.
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
            if (value.size() % 5 == 0) {
              batch.del(TableId::varnix, side + std::to_string(i));
            } else {
              batch.put(TableId::varnix, side + std::to_string(i), value);
            }
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
    Contents now = contents(mount()->snapshot());
    for (int i = 0; i < pairs; ++i) {
      std::string n = std::to_string(i);
      ASSERT_EQ(now.count("left" + n), now.count("right" + n)) << "round " << round;
      ASSERT_EQ(now["left" + n], now["right" + n]) << "round " << round;
    }
    now = contents(mount()->snapshot());
    std::uint64_t before = next.seq();
    roundsWithCommits += before > lastSeq ? 1 : 0;
    next.beginFullPass({TableId::varnix});
    Batch batch = next.begin();
    std::uint64_t differences = 0;
    for (const auto& [key, value] : now) {
      if (key.starts_with("new")) {
        ++differences;
      } else {
        batch.put(TableId::varnix, key, value);
      }
    }
    batch.put(TableId::varnix, "new in round " + std::to_string(round), "1");
    ++differences;
    batch.commit();
    next.endFullPass();
    ASSERT_EQ(before + differences, next.seq());
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
    auto key = [](int i) { return "key" + std::to_string(i); };
    std::string value(50'000, 'v');
    int committed = 0;
    StoreException full = refusal([&] {
      for (; committed < 100; ++committed) {
        put(publisher, key(committed), value);
      }
    });
    EXPECT_EQ(Kind::full, full.kind());
    EXPECT_THAT(full.what(), HasSubstr("No space left on device; make room on its file system"));
    EXPECT_GT(committed, 5);
    EXPECT_LT(committed, 40);
    auto reader = mount();
    Contents now = contents(reader->snapshot());
    EXPECT_EQ(static_cast<std::size_t>(committed), now.size());
    // The batch that failed is kept and goes in when there is room.
    Batch batch = publisher.begin();
    batch.put(TableId::varnix, key(committed), value);
    EXPECT_EQ(Kind::full, refusal([&] { batch.commit(); }).kind());
    std::filesystem::remove(filler);
    EXPECT_EQ(1U, batch.commit().changes);
    EXPECT_EQ(static_cast<std::size_t>(committed) + 1, contents(reader->snapshot()).size());
    return HasFailure() ? 1 : 0;
  });
  int status = finish(child);
  if (status == 77) {
    GTEST_SKIP() << "needs the right to mount a tmpfs";
  }
  EXPECT_EQ(0, status);
}

}  // namespace Quillo::Test
