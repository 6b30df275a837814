#include "quillo/Journal.h"

#include <gmock/gmock.h>

#include <random>

#include "quillo/testing/TestStore.h"

namespace Quillo::Test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class JournalTest : public TestStore {
 protected:
  static std::vector<std::string> keys(const Changes& changes) {
    std::vector<std::string> result;
    for (const Change& change : changes.changes) {
      result.push_back((change.kind == Change::Kind::deletion ? "-" : "+") + change.key);
    }
    return result;
  }
};

TEST_F(JournalTest, HoldsTheLatestChangeOfEachKeyOnce) {
  Publisher publisher(config());
  auto reader = mount();
  Bookmark start = reader->snapshot().bookmark();
  put(publisher, "a", "1");
  put(publisher, "b", "1");
  put(publisher, "a", "2");
  put(publisher, "c", "1");
  del(publisher, "b");
  del(publisher, "never there");
  EXPECT_THAT(keys(reader->snapshot().changesSince(start, 100)), ElementsAre("+a", "+c", "-b"));
  put(publisher, "b", "3");
  Changes all = reader->snapshot().changesSince(start, 100);
  EXPECT_THAT(keys(all), ElementsAre("+a", "+c", "+b"));
  EXPECT_FALSE(all.more);
  EXPECT_THAT(keys(reader->snapshot().changesSince(all.next, 100)), IsEmpty());
}

TEST_F(JournalTest, EqualValueIsNoChange) {
  Publisher publisher(config());
  put(publisher, "a", "1");
  std::uint64_t before = publisher.seq();
  Batch batch = publisher.begin();
  batch.put(TableId::varnix, "a", "1");
  EXPECT_EQ(0U, batch.commit().changes);
  EXPECT_EQ(before, publisher.seq());
  // An empty value is a value: it differs from "not there".
  put(publisher, "empty", "");
  EXPECT_EQ(before + 1, publisher.seq());
  EXPECT_EQ("", publisher.get(TableId::varnix, "empty"));
}

TEST_F(JournalTest, BatchWithoutCommitLeavesNoTrace) {
  Publisher publisher(config());
  {
    Batch batch = publisher.begin();
    batch.put(TableId::varnix, "a", "1");
  }
  EXPECT_EQ(0U, publisher.seq());
  EXPECT_EQ(std::nullopt, publisher.get(TableId::varnix, "a"));
}

TEST_F(JournalTest, LimitAndBookmarkDeliverEverythingInPieces) {
  Publisher publisher(config());
  auto reader = mount();
  Bookmark mark = reader->snapshot().bookmark();
  for (const char* key : {"a", "b", "c", "d", "e"}) {
    put(publisher, key, "1");
  }
  std::vector<std::string> got;
  bool more = true;
  while (more) {
    Changes piece = reader->snapshot().changesSince(mark, 2);
    EXPECT_LE(piece.changes.size(), 2U);
    for (const std::string& key : keys(piece)) {
      got.push_back(key);
    }
    more = piece.more;
    mark = piece.next;
  }
  EXPECT_THAT(got, ElementsAre("+a", "+b", "+c", "+d", "+e"));
}

TEST_F(JournalTest, ReaderOlderThanADroppedTombstoneMustRebuild) {
  PublisherConfig small = config();
  small.tombstoneLimit = 3;
  Publisher publisher(small);
  for (int i = 0; i < 10; ++i) {
    put(publisher, std::to_string(i), "1");
  }
  auto reader = mount();
  Bookmark mark = reader->snapshot().bookmark();
  for (int i = 0; i < 3; ++i) {
    del(publisher, std::to_string(i));
  }
  EXPECT_THAT(keys(reader->snapshot().changesSince(mark, 100)), ElementsAre("-0", "-1", "-2"));
  Bookmark afterThree = reader->snapshot().bookmark();
  del(publisher, "3");
  EXPECT_TRUE(reader->snapshot().changesSince(mark, 100).tooOld);
  // Whoever had seen the dropped deletion loses nothing.
  EXPECT_THAT(keys(reader->snapshot().changesSince(afterThree, 100)), ElementsAre("-3"));
  EXPECT_TRUE(reader->snapshot().changesSince(Bookmark{}, 100).tooOld);
}

TEST_F(JournalTest, LongKeysAreRefusedWholeAndTheRestOfTheBatchStays) {
  Publisher publisher(config());
  Batch batch = publisher.begin();
  batch.put(TableId::varnix, "before", "1");
  std::string longest(maxKeyBytes, 'k');
  batch.put(TableId::varnix, longest, "2");
  EXPECT_THROW(batch.put(TableId::varnix, longest + "k", "3"), Kel::RangeException);
  EXPECT_THROW(batch.del(TableId::varnix, ""), Kel::RangeException);
  EXPECT_EQ(2U, batch.commit().changes);
  auto reader = mount();
  Snapshot snapshot = reader->snapshot();
  EXPECT_EQ("2", snapshot.get(TableId::varnix, longest));
  EXPECT_EQ(std::nullopt, snapshot.get(TableId::varnix, longest + "k"));
  EXPECT_TRUE(snapshot.scan(TableId::varnix, longest).valid());
  EXPECT_FALSE(snapshot.scan(TableId::varnix, longest + std::string(500, 'k')).valid());
}

TEST_F(JournalTest, ScanFollowsByteOrderFromTheLowerBound) {
  Publisher publisher(config());
  Batch batch = publisher.begin();
  for (const std::string& key :
       {std::string("b"), std::string("a\xff"), std::string("a"), std::string("a\0z", 3)}) {
    batch.put(TableId::varnix, key, "1");
  }
  batch.commit();
  auto reader = mount();
  Snapshot snapshot = reader->snapshot();
  std::vector<std::string> order;
  for (Scan scan = snapshot.scan(TableId::varnix, "a\x01"); scan.valid(); scan.next()) {
    order.emplace_back(scan.key());
  }
  EXPECT_THAT(order, ElementsAre("a\xff", "b"));
  EXPECT_EQ("a", contents(snapshot).begin()->first);
}

TEST_F(JournalTest, FullPassJournalsOnlyDifferencesAndSweeps) {
  {
    Publisher first(config());
    put(first, "same", "1");
    put(first, "changed", "1");
    put(first, "gone", "1");
    auto reader = mount();
    EXPECT_FALSE(reader->snapshot().firstPassComplete());
  }
  Publisher second(config());
  auto reader = mount();
  Bookmark mark = reader->snapshot().bookmark();
  second.beginFullPass({TableId::varnix});
  put(second, "same", "1");
  put(second, "changed", "2");
  put(second, "new", "1");
  put(second, "withdrawn", "1");
  del(second, "withdrawn");
  EXPECT_EQ(1U, second.endFullPass().changes);
  EXPECT_FALSE(second.fullPassActive());
  Snapshot snapshot = reader->snapshot();
  EXPECT_THAT(keys(snapshot.changesSince(mark, 100)), ElementsAre("+changed", "+new", "-withdrawn", "-gone"));
  ASSERT_TRUE(snapshot.firstPassComplete());
  EXPECT_EQ("test-publisher", snapshot.completePass()->publisher);
  EXPECT_EQ(second.seq(), snapshot.completePass()->seq);
}

// A reader that follows in pieces of random size, with random pauses, always arrives at what the publisher holds.
TEST_F(JournalTest, RandomHistoriesReachTheReader) {
  for (unsigned seed = 1; seed <= 8; ++seed) {
    std::mt19937 random(seed);
    auto below = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
    PublisherConfig settings = config();
    settings.recreate = true;
    settings.tombstoneLimit = below(12);
    auto publisher = std::make_unique<Publisher>(settings);
    settings.recreate = false;
    auto reader = mount();
    Contents model;
    Contents mirror;
    Bookmark mark;
    unsigned rebuilds = 0;
    for (int round = 0; round < 300; ++round) {
      Batch batch = publisher->begin();
      for (unsigned i = below(6); i > 0; --i) {
        std::string key = "key" + std::to_string(below(25));
        if (below(3) == 0) {
          batch.del(TableId::varnix, key);
          model.erase(key);
        } else {
          model[key] = std::to_string(below(3));
          batch.put(TableId::varnix, key, model[key]);
        }
      }
      batch.commit();
      if (below(40) == 0) {
        publisher.reset();
        publisher = std::make_unique<Publisher>(settings);
      }
      if (below(4) != 0) {
        continue;
      }
      for (bool more = true; more;) {
        Snapshot snapshot = reader->snapshot();
        Changes changes = snapshot.changesSince(mark, 1 + below(5));
        if (changes.tooOld) {
          mirror = contents(snapshot);
          ++rebuilds;
        }
        for (const Change& change : changes.changes) {
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
      ASSERT_EQ(model.size(), reader->snapshot().tableState(TableId::varnix).count);
    }
    EXPECT_GE(rebuilds, 1U);
  }
}

}  // namespace Quillo::Test
