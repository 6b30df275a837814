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
    Mount* mount = nullptr;
    void handleKey(const std::string& key) override {
      calls->push_back(key);
      if (key == "bad") throw std::runtime_error("cannot react");
      if (key == "damaged") mount->corruptionDetected("met by a reader");
    }
  };

  void SetUp() override {
    onFollower_->calls = &calls_;
    onFollower_->notifierIs(follower_);
    for (const auto& onKeys : onKeys_) {
      onKeys->calls = &calls_;
      onKeys->mount = reader_.get();
    }
    onKeys_[0]->notifierIs(follower_->keys(TableId::arp));
  }
  void putArp(const std::vector<std::string>& keys, const std::string& value = "v") {
    auto batch = publisher_->begin();
    for (const auto& key : keys) batch.put(TableId::arp, key, value);
    batch.commit();
  }
  void pass(const std::vector<std::string>& keys) {
    publisher_->beginFullPass({TableId::varnix, TableId::arp});
    putArp(keys);
    publisher_->endFullPass();
  }
  // What is told until the store is followed up to its end.
  std::vector<std::string> told() {
    reader_->refresh();
    while (follower_->step(100)) {
    }
    return std::exchange(calls_, {});
  }

  PublisherConfig settings_ = config();
  std::unique_ptr<Publisher> publisher_ = std::make_unique<Publisher>(settings_);
  Kel::Ptr<Mount> reader_ = mount();
  Kel::Ptr<TableFollower> follower_ = Kel::makePtr<TableFollower>(reader_);
  Kel::Ptr<OnFollower> onFollower_ = Kel::makePtr<OnFollower>();
  Kel::Ptr<OnKeys> onKeys_[2] = {Kel::makePtr<OnKeys>(), Kel::makePtr<OnKeys>()};
  std::vector<std::string> calls_;
};

TEST_F(FollowerTest, tellsWhatChangedOrThatAnythingMayHave) {
  settings_.tombstoneLimit = 2;
  publisher_.reset();
  std::filesystem::remove_all(directory_);
  EXPECT_THAT(told(), IsEmpty());
  for (const char* first : {"initialized", "tables"}) {
    // A store that is made anew: its first entries are not all there is.
    publisher_.reset();
    std::filesystem::remove_all(directory_);
    EXPECT_THAT(told(), IsEmpty());
    publisher_ = std::make_unique<Publisher>(settings_);
    publisher_->beginFullPass({TableId::arp});
    putArp({"a", "b"});
    EXPECT_THAT(told(), IsEmpty());
    publisher_->endFullPass();
    EXPECT_THAT(told(), ElementsAre(first));
    EXPECT_TRUE(follower_->initialized());
    putArp({"c", "a"}, "w");
    EXPECT_THAT(told(), ElementsAre("c", "a"));
    pass({"c"});
    EXPECT_THAT(told(), ElementsAre("c", "a", "b"));
    // More deletions than are remembered.
    putArp({"a", "b", "d"});
    told();
    pass({});
    EXPECT_THAT(told(), ElementsAre("tables"));
  }
}

TEST_F(FollowerTest, takesNoMoreThanItsLimitAndOnlyWhatIsWatched) {
  pass({});
  told();
  auto batch = publisher_->begin();
  for (int i = 0; i < 30; ++i) {
    for (const auto table : {TableId::varnix, TableId::arp, TableId::neighbor}) {
      batch.put(table, std::to_string(i), "v");
    }
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

TEST_F(FollowerTest, goesNoFurtherThanTheOneItFollows) {
  std::vector<Bookmark> marks;
  const auto mark = [&] {
    reader_->refresh();
    marks.push_back(reader_->snapshot().bookmark());
  };
  const auto toldUpTo = [&](const Bookmark& other) {
    EXPECT_FALSE(follower_->step(10, other));
    return std::exchange(calls_, {});
  };
  publisher_->beginFullPass({TableId::arp});
  putArp({"a"});
  mark();
  putArp({"b"});
  publisher_->endFullPass();
  mark();
  putArp({"c", "d"});
  mark();
  EXPECT_THAT(toldUpTo(Bookmark{}), IsEmpty());
  EXPECT_THAT(toldUpTo(marks[0]), IsEmpty());
  EXPECT_THAT(toldUpTo(marks[1]), ElementsAre("initialized"));
  auto between = marks[2];
  --between.seq;
  EXPECT_THAT(toldUpTo(between), ElementsAre("c"));
  EXPECT_THAT(toldUpTo(marks[1]), IsEmpty());
  EXPECT_THAT(toldUpTo(marks[2]), ElementsAre("d"));
}

TEST_F(FollowerTest, neitherDamageNorReactorsThatThrowLoseAnything) {
  pass({"a"});
  told();
  putArp({"b", "MARKED", "c"});
  ASSERT_GT(damage(dataFile(), "MARKED"), 0U);
  Traces traces;
  EXPECT_THAT(told(), IsEmpty());
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("journal")));
  EXPECT_THAT(told(), ElementsAre("tables"));

  onKeys_[1]->notifierIs(follower_->keys(TableId::arp));
  putArp({"bad", "good"});
  EXPECT_THAT(told(), ElementsAre("bad", "bad", "good", "good"));
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("cannot react"), HasSubstr("cannot react")));

  // Once damage is reported there is nothing to be read, which must not look like deletions.
  stopClock();
  now_ += 3600;
  putArp({"damaged", "unread"});
  EXPECT_THAT(told(), ElementsAre("damaged", "damaged"));
  EXPECT_THAT(told(), ElementsAre("tables"));
}

}  // namespace Quillo::Test
