#include "quillo/TableFollower.h"

#include <gmock/gmock.h>

#include "quillo/testing/TestStore.h"

namespace Quillo::Test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class FollowerTest : public TestStore {
 protected:
  struct OnFollower : TableFollower::Notifiee {
    std::vector<std::string>* calls = nullptr;
    void handleInitialized() override { calls->emplace_back("initialized"); }
    void handleTables() override { calls->emplace_back("tables"); }
  };
  struct OnKeys : TableKeys::Notifiee {
    std::vector<std::string>* calls = nullptr;
    std::string damagedKey;
    Mount* mount = nullptr;
    void handleKey(const std::string& key) override {
      calls->push_back(key);
      if (key == damagedKey) mount->corruptionDetected("met by a reader");
      if (key == "bad") throw std::runtime_error("cannot react");
    }
  };

  void SetUp() override {
    reader_ = mount();
    follower_ = Kel::makePtr<TableFollower>(reader_);
    onFollower_->calls = onArp_->calls = &calls_;
    onFollower_->notifierIs(follower_);
    onArp_->notifierIs(follower_->keys(TableId::arp));
  }
  void putArp(Publisher& publisher, const std::vector<std::string>& keys, const std::string& value = "v") {
    auto batch = publisher.begin();
    for (const auto& key : keys) batch.put(TableId::arp, key, value);
    batch.commit();
  }
  void pass(Publisher& publisher, const std::vector<std::string>& keys) {
    publisher.beginFullPass({TableId::varnix, TableId::arp});
    putArp(publisher, keys);
    publisher.endFullPass();
  }
  // What is told until the store is followed up to its end.
  std::vector<std::string> told() {
    reader_->refresh();
    while (follower_->step(100)) {
    }
    return std::exchange(calls_, {});
  }

  Kel::Ptr<Mount> reader_;
  Kel::Ptr<TableFollower> follower_;
  Kel::Ptr<OnFollower> onFollower_ = Kel::makePtr<OnFollower>();
  Kel::Ptr<OnKeys> onArp_ = Kel::makePtr<OnKeys>();
  std::vector<std::string> calls_;
};

TEST_F(FollowerTest, nothingIsToldBeforeTheFirstPassIsComplete) {
  EXPECT_THAT(told(), IsEmpty());
  Publisher publisher(config());
  publisher.beginFullPass({TableId::arp});
  putArp(publisher, {"a", "b"});
  EXPECT_THAT(told(), IsEmpty());
  EXPECT_FALSE(follower_->initialized());
  publisher.endFullPass();
  EXPECT_THAT(told(), ElementsAre("initialized"));
  EXPECT_TRUE(follower_->initialized());
  putArp(publisher, {"c", "a"}, "w");
  EXPECT_THAT(told(), ElementsAre("c", "a"));
  pass(publisher, {"c"});
  EXPECT_THAT(told(), ElementsAre("c", "a", "b"));
}

TEST_F(FollowerTest, takesNoMoreThanItsLimitAndOnlyWhatIsWatched) {
  Publisher publisher(config());
  pass(publisher, {});
  told();
  auto batch = publisher.begin();
  for (int i = 0; i < 30; ++i) {
    for (const auto table : {TableId::varnix, TableId::arp, TableId::neighbor})
      batch.put(table, std::to_string(i), "v");
  }
  batch.commit();
  std::size_t most = 0, all = 0;
  reader_->refresh();
  for (bool more = true; more; all += calls_.size()) {
    calls_.clear();
    more = follower_->step(7);
    most = std::max(most, calls_.size());
  }
  EXPECT_LE(most, 3U);  // of seven changes, two or three are of that table
  EXPECT_EQ(30U, all);
}

TEST_F(FollowerTest, tellsThatAnythingMayHaveChanged) {
  auto settings = config();
  settings.tombstoneLimit = 2;
  auto publisher = std::make_unique<Publisher>(settings);
  pass(*publisher, {"a", "b", "c", "d"});
  told();
  // More deletions than are remembered.
  pass(*publisher, {"d"});
  EXPECT_THAT(told(), ElementsAre("tables"));
  putArp(*publisher, {"e"});
  EXPECT_THAT(told(), ElementsAre("e"));

  // The store vanishes, and comes anew: its first entries are not what is left of the old one.
  publisher.reset();
  std::filesystem::remove_all(directory_);
  EXPECT_THAT(told(), IsEmpty());
  publisher = std::make_unique<Publisher>(settings);
  publisher->beginFullPass({TableId::arp});
  putArp(*publisher, {"a"});
  EXPECT_THAT(told(), IsEmpty());
  publisher->endFullPass();
  EXPECT_THAT(told(), ElementsAre("tables"));
  putArp(*publisher, {"b"});
  EXPECT_THAT(told(), ElementsAre("b"));
}

TEST_F(FollowerTest, goesNoFurtherThanTheOneItFollows) {
  Publisher publisher(config());
  publisher.beginFullPass({TableId::arp});
  putArp(publisher, {"a"});
  reader_->refresh();
  const auto beforePass = reader_->snapshot().bookmark();
  putArp(publisher, {"b"});
  publisher.endFullPass();
  const auto afterPass = reader_->snapshot().bookmark();
  putArp(publisher, {"c", "d"});
  const auto atEnd = reader_->snapshot().bookmark();

  EXPECT_FALSE(follower_->step(10, Bookmark{}));
  EXPECT_FALSE(follower_->step(10, beforePass));
  EXPECT_THAT(calls_, IsEmpty());
  EXPECT_FALSE(follower_->step(10, afterPass));
  EXPECT_THAT(std::exchange(calls_, {}), ElementsAre("initialized"));
  Bookmark between = atEnd;
  --between.seq;
  EXPECT_FALSE(follower_->step(10, between));
  EXPECT_THAT(std::exchange(calls_, {}), ElementsAre("c"));
  EXPECT_FALSE(follower_->step(10, afterPass));
  EXPECT_FALSE(follower_->step(10, atEnd));
  EXPECT_THAT(std::exchange(calls_, {}), ElementsAre("d"));
}

TEST_F(FollowerTest, damagedJournalLosesNothing) {
  Publisher publisher(config());
  pass(publisher, {"a"});
  told();
  putArp(publisher, {"b", "MARKED", "c"});
  ASSERT_GT(damage(dataFile(), "MARKED"), 0U);
  Traces traces;
  EXPECT_THAT(told(), IsEmpty());
  EXPECT_EQ(1U, reader_->corruptionCount());
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("journal")));
  EXPECT_THAT(told(), ElementsAre("tables"));
  putArp(publisher, {"d"});
  EXPECT_THAT(told(), ElementsAre("d"));
}

TEST_F(FollowerTest, reactorsThatThrowOrReportDamageHinderNobody) {
  Publisher publisher(config());
  pass(publisher, {});
  told();
  Traces traces;
  const auto other = Kel::makePtr<OnKeys>();
  other->calls = &calls_;
  other->notifierIs(follower_->keys(TableId::arp));
  putArp(publisher, {"bad", "good"});
  EXPECT_THAT(told(), ElementsAre("bad", "bad", "good", "good"));
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("cannot react"), HasSubstr("cannot react")));

  // Once damage is reported there is nothing to be read, which must not look like deletions.
  other->damagedKey = "met";
  other->mount = reader_.get();
  putArp(publisher, {"met", "three"});
  EXPECT_THAT(told(), ElementsAre("met", "met"));
  EXPECT_THAT(told(), ElementsAre("tables"));
}

}  // namespace Quillo::Test
