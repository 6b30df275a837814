// What the histories of TableMounts_test.cpp do not reach: another reader's bookmark, damage, reactors that throw.

#include "quillo/TableFollower.h"

#include <gmock/gmock.h>

#include "quillo/testing/TestStore.h"

namespace Quillo::Test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class FollowerTest : public TestStore {
 protected:
  void putArp(const std::vector<std::string>& keys) {
    auto batch = publisher_.begin();
    for (const auto& key : keys) batch.put(TableId::arp, key, "v");
    batch.commit();
  }
  // The notifications until the store is followed up to its end.
  std::vector<std::string> notified() {
    reader_->refresh();
    while (follower_->step(100)) {
    }
    return std::exchange(calls_, {});
  }

  Publisher publisher_{config()};
  Kel::Ptr<Mount> reader_ = mount();
  Kel::Ptr<TableFollower> follower_ = Kel::makePtr<TableFollower>(reader_);
  std::vector<std::string> calls_;
  const TableWatch::Handlers handlers_{.initialized = [this] { calls_.emplace_back("initialized"); },
                                       .tables = [this] { calls_.emplace_back("tables"); },
                                       .keys = {{TableId::arp, [this](const std::string& key) {
                                                   calls_.push_back(key);
                                                   if (key == "bad") throw std::runtime_error("cannot react");
                                                   if (key == "damaged")
                                                     reader_->corruptionDetected("met by a reader");
                                                 }}}};
  const TableWatch watch_{follower_, handlers_};
};

TEST_F(FollowerTest, goesNoFurtherThanTheReaderThatItFollows) {
  std::vector<Bookmark> marks;
  const auto mark = [&] {
    reader_->refresh();
    marks.push_back(reader_->snapshot().bookmark());
  };
  const auto notifiedUpTo = [&](const Bookmark& other) {
    EXPECT_FALSE(follower_->step(10, other));
    return std::exchange(calls_, {});
  };
  publisher_.beginFullPass({TableId::arp});
  putArp({"a"});
  mark();
  putArp({"b"});
  publisher_.endFullPass();
  mark();
  putArp({"c", "d"});
  mark();
  auto foreign = marks[2];
  ++foreign.generation;
  EXPECT_THAT(notifiedUpTo(foreign), IsEmpty());
  EXPECT_THAT(notifiedUpTo(marks[0]), IsEmpty());
  EXPECT_THAT(notifiedUpTo(marks[1]), ElementsAre("initialized"));
  auto between = marks[2];
  --between.seq;
  EXPECT_THAT(notifiedUpTo(between), ElementsAre("c"));
  EXPECT_THAT(notifiedUpTo(marks[1]), IsEmpty());
  EXPECT_THAT(notifiedUpTo(marks[2]), ElementsAre("d"));
}

TEST_F(FollowerTest, neitherDamageNorReactorsThatThrowLoseAnything) {
  publisher_.beginFullPass({TableId::arp});
  publisher_.endFullPass();
  EXPECT_THAT(notified(), ElementsAre("initialized"));
  putArp({"b", "MARKED", "c"});
  ASSERT_GT(damage(dataFile(), "MARKED"), 0U);
  Traces traces;
  EXPECT_THAT(notified(), IsEmpty());
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("journal")));
  EXPECT_THAT(notified(), ElementsAre("tables"));

  const TableWatch second(follower_, {.initialized = {}, .tables = {}, .keys = handlers_.keys});
  putArp({"bad", "good"});
  EXPECT_THAT(notified(), ElementsAre("bad", "bad", "good", "good"));
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("cannot react"), HasSubstr("cannot react")));

  // A handler may end a watch, which is not called any more.
  std::optional<TableWatch> ended;
  TableWatch::OnKey end = [&](const auto&) { ended.reset(); };
  const TableWatch ender(follower_, {.initialized = {}, .tables = {}, .keys = {{TableId::arp, end}}});
  ended.emplace(follower_, handlers_);
  putArp({"last"});
  EXPECT_THAT(notified(), ElementsAre("last", "last"));

  // Once damage is reported nothing can be read, which must not look like deletions.
  stopClock();
  now_ += 3600;
  putArp({"damaged", "unread"});
  EXPECT_THAT(notified(), ElementsAre("damaged", "damaged"));
  EXPECT_THAT(notified(), ElementsAre("tables"));
}

}  // namespace Quillo::Test
