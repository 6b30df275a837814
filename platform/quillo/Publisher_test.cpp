#include "quillo/Publisher.h"

#include <gmock/gmock.h>
#include <lmdb.h>
#include <sys/mount.h>

#include "quillo/Record.h"
#include "quillo/testing/TestStore.h"

namespace Quillo::Test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using Kind = StoreException::Kind;

class PublisherTest : public TestStore {
 protected:
  // Changes an index of a store, or of another program's database, without our code.
  void tamper(const char* index, const std::function<void(MDB_txn*, MDB_dbi)>& change) {
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
  void tamperPut(const char* index, std::string key, std::string value) {
    tamper(index, [&](MDB_txn* txn, MDB_dbi dbi) {
      MDB_val keyVal{key.size(), key.data()};
      MDB_val valueVal{value.size(), value.data()};
      ASSERT_EQ(0, mdb_put(txn, dbi, &keyVal, &valueVal, 0));
    });
  }
};

// What is no store of ours stays byte for byte as it is, and is kept even when a store is recreated. A store that
// cannot be used is made anew. Readers say the same.
TEST_F(PublisherTest, StoresThatAreRefused) {
  struct Case {
    std::function<void()> prepare;
    Kind kind;
    std::string text;
  };
  const Case cases[] = {
      {[&] { writeFile(dataFile(), std::string(10'000, 'x')); }, Kind::foreign, " is not a store"},
      {[&] { tamperPut("theirs", "x", "x"); }, Kind::foreign, "is a database of another program"},
      {[&] { tamperPut("quorin.records", std::string("\0store", 6), "QUORINST\7" + std::string(31, '\0')); },
       Kind::version, "has format version 7, this program knows version 1"},
      {[&] {
         tamper("quorin.records", [](MDB_txn* txn, MDB_dbi dbi) {
           char name[] = "\1a";
           MDB_val key{2, name};
           ASSERT_EQ(0, mdb_del(txn, dbi, &key, nullptr));
         });
       },
       Kind::damaged, "table varnix, key \"\": 0 records with digest"},
  };
  for (const auto& [prepare, kind, text] : cases) {
    SCOPED_TRACE(text);
    std::filesystem::remove_all(directory_);
    std::filesystem::create_directory(directory_);
    if (kind != Kind::foreign) put(*std::make_unique<Publisher>(config()), {{"a", "1"}});
    prepare();
    const auto before = readFile(dataFile());
    auto reader = mount();
    Traces traces;
    if (kind == Kind::foreign) {
      const auto e = refusal([this] { Publisher publisher(config()); });
      EXPECT_EQ(kind, e.kind());
      EXPECT_THAT(e.what(), AllOf(HasSubstr(text), HasSubstr("--recreate"), HasSubstr(reader->stateText())));
      EXPECT_EQ(before, readFile(dataFile()));
    }
    // What is missing shows only in a comparison of everything, which readers leave to the scrubber.
    EXPECT_EQ(kind == Kind::damaged, reader->stateText().empty());
    EXPECT_EQ(std::nullopt, Publisher(kind == Kind::foreign ? recreating() : config()).get(TableId::varnix, "a"));
    EXPECT_THAT(traces.take(), ElementsAre(HasSubstr(kind == Kind::foreign ? "was not a store of ours" : text)));
    EXPECT_EQ(kind == Kind::foreign ? before : "", readFile(dataFile() + ".foreign"));
    EXPECT_TRUE(reader->refresh());
    EXPECT_EQ(Mount::State::ready, reader->state());
  }
}

// One line names the table, rather than one for each of its records.
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

// A failed write makes the storage engine refuse everything until the store is opened again.
TEST_F(PublisherTest, FullFileSystem) {
  std::filesystem::create_directory(directory_);
  if (::mount("tmpfs", directory_.c_str(), "tmpfs", 0, "size=2m,mode=755") != 0) {
    GTEST_SKIP() << "needs the right to mount a tmpfs";
  }
  Publisher publisher(config());
  const std::string value(50'000, 'v');
  std::size_t committed = 0;
  const auto full = refusal([&] {
    for (; committed < 100; ++committed) put(publisher, {{std::to_string(committed), value}});
  });
  EXPECT_EQ(Kind::full, full.kind());
  EXPECT_THAT(full.what(), HasSubstr("No space left on device; make room on its file system"));
  Batch batch = publisher.begin();
  batch.put(TableId::varnix, "last", value);
  EXPECT_EQ(Kind::full, refusal([&] { batch.commit(); }).kind());
  EXPECT_EQ(0, ::mount("tmpfs", directory_.c_str(), "tmpfs", MS_REMOUNT, "size=4m"));
  EXPECT_EQ(1U, batch.commit().changes);
  EXPECT_EQ(committed + 1, contents(mount()->snapshot()).size());
  EXPECT_EQ(0, umount2(directory_.c_str(), MNT_DETACH));
}

}  // namespace Quillo::Test
