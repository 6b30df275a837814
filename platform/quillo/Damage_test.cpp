// What a reader and a publisher make of a store whose bytes are not what was written.

#include <gmock/gmock.h>

#include <random>

#include "quillo/Scrubber.h"
#include "quillo/testing/TestStore.h"

namespace Quillo::Test {

using Pesk::CorruptionDetectedException;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr std::size_t pageBytes = 4096;

class DamageTest : public TestStore {
 protected:
  // A store deep enough to have branch pages, overflow pages, tombstones and free pages.
  void build() {
    Publisher publisher(config());
    std::mt19937 random(7);
    for (int round = 0; round < 5; ++round) {
      Batch batch = publisher.begin();
      for (int i = 0; i < 1500; ++i) {
        std::string key = "path/" + std::to_string(random() % 2000);
        if (random() % 6 == 0) {
          batch.del(TableId::varnix, key);
          model_.erase(key);
        } else {
          model_[key] = std::string(random() % (random() % 50 == 0 ? 9000 : 120), static_cast<char>('a' + round));
          batch.put(TableId::varnix, key, model_[key]);
        }
      }
      batch.commit();
    }
  }

  // True when everything that is wrong was noticed. No wrong value may be returned.
  bool noticed(Mount& reader) {
    if (reader.state() != Mount::State::ready) return true;
    try {
      Snapshot snapshot = reader.snapshot();
      const auto found = contents(snapshot);
      bool complete = found.size() == model_.size();
      for (const auto& [key, value] : found) {
        auto expected = model_.find(key);
        EXPECT_TRUE(expected != model_.end() && expected->second == value) << key;
      }
      for (const auto& [key, value] : model_) {
        std::optional<Bytes> got = snapshot.get(TableId::varnix, key);
        EXPECT_TRUE(!got || *got == value) << key;
        complete = complete && got;
      }
      snapshot.changesSince({snapshot.generation(), snapshot.bookmark().epoch, 0}, 100'000);
      return complete;
    } catch (const CorruptionDetectedException& damage) {
      reader.corruptionDetected(damage);
      return true;
    }
  }

  // Whoever is told of a change finds it, even where damage has led the search to another page.
  void expectChangesFound(Mount& reader) {
    if (reader.state() != Mount::State::ready) return;
    try {
      Snapshot snapshot = reader.snapshot();
      const Bookmark first{snapshot.generation(), snapshot.bookmark().epoch, 0};
      for (const auto& change : snapshot.changesSince(first, 100'000).changes) {
        EXPECT_TRUE(change.kind == Change::Kind::deletion || snapshot.get(change.table, change.key)) << change.key;
      }
    } catch (const CorruptionDetectedException&) {
      return;
    }
  }

  Contents model_;
  Traces traces_;
};

TEST_F(DamageTest, RandomBytesNeverKillNorDeceive) {
  build();
  const std::string sound = readFile(dataFile());
  const std::size_t pages = sound.size() / pageBytes;
  std::mt19937 random(11);
  int refused = 0, found = 0;
  for (int round = 0; round < 240; ++round) {
    std::string bytes = sound;
    std::size_t at = (2 + random() % (pages - 2)) * pageBytes;
    switch (round % 4) {
      case 0:  // single bytes anywhere in one page
        for (unsigned i = 1 + random() % 16; i > 0; --i) {
          bytes[at + random() % pageBytes] ^= static_cast<char>(1 + random() % 255);
        }
        break;
      case 1:  // in the page's header and its table of offsets, where the tree's shape is kept
        for (unsigned i = 1 + random() % 4; i > 0; --i) bytes[at + random() % 64] = static_cast<char>(random());
        break;
      case 2:  // a page of noise
        for (std::size_t i = 0; i < pageBytes; ++i) bytes[at + i] = static_cast<char>(random());
        break;
      default:  // another page's contents
        bytes.replace(at, pageBytes, sound, (2 + random() % (pages - 2)) * pageBytes, pageBytes);
        break;
    }
    std::filesystem::remove(dataFile());
    writeFile(dataFile(), bytes);
    auto reader = mount();
    bool complete = reader->state() == Mount::State::ready;
    expectChangesFound(*reader);
    if (!noticed(*reader)) {
      // Lookups that were led astray are what the scrubber is for.
      Scrubber scrubber(reader);
      EXPECT_EQ(Scrubber::Outcome::damaged, scrubber.step(1'000'000)) << "round " << round;
    }
    complete = complete && reader->corruptionCount() == 0;
    found += complete ? 0 : 1;
    reader.reset();
    // A publisher goes on only when everything readable is as it was written; otherwise it makes the store anew.
    traces_.take();
    Publisher publisher(config());
    const auto said = traces_.take();
    EXPECT_TRUE(complete || said.size() == 1) << "round " << round;
    refused += said.empty() ? 0 : 1;
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(found, 60);
  EXPECT_GE(refused, found);
}

// A byte of a key is changed, or the byte before it, which names the table. A walk misses only what no search finds.
TEST_F(DamageTest, WalksGoAroundDamagedKeys) {
  for (int i = 0; i < 500; ++i) model_["path/" + std::to_string(i)] = std::string(40, 'v');
  put(*std::make_unique<Publisher>(config()), model_);
  const std::string sound = readFile(dataFile());
  std::mt19937 random(3);
  unsigned ended = 0;
  for (int round = 0; round < 200; ++round) {
    std::string bytes = sound;
    const auto at = bytes.find("\1path/", random() % bytes.size());
    if (at == std::string::npos) continue;
    bytes[at + (round % 4 == 0 ? 0 : 6 + random() % 3)] = static_cast<char>(random() % 128);
    std::filesystem::remove(dataFile());
    writeFile(dataFile(), bytes);
    Contents missing = model_;
    missing.erase(model_.rbegin()->first);  // nothing behind it shows that it is missing
    std::string last;
    unsigned damaged = 0;
    const auto visit = [&](const Scan& scan) {
      EXPECT_LT(std::exchange(last, scan.key()), scan.key());
      missing.erase(last);
      return model_.contains(last);
    };
    try {
      EXPECT_TRUE(scanAround(mount()->snapshot(), TableId::varnix, "", visit,
                             [&](const std::string&, const auto&) { return ++damaged < 3; }));
      EXPECT_TRUE(missing.empty() || damaged == 1) << "round " << round;
    } catch (const CorruptionDetectedException&) {
      ++ended;  // the walk cannot go on
    }
  }
  EXPECT_LT(ended, 30U) << "only a key that became smaller than those before it ends a walk";
}

TEST_F(DamageTest, ScrubberWorksInStepsAndStartsAgainWhenTheTableChanges) {
  build();
  Publisher publisher(config());
  Scrubber scrubber(mount());
  unsigned steps = 0;
  // Until the round ends. `between` is called between the steps.
  const auto round = [&](const std::function<void()>& between) {
    auto outcome = scrubber.step(100);
    for (steps = 1; steps < 100 && outcome == Scrubber::Outcome::more; ++steps) {
      between();
      outcome = scrubber.step(100);
    }
    return outcome;
  };
  EXPECT_EQ(Scrubber::Outcome::clean, round([] {}));
  EXPECT_EQ(model_.size() / 100 + knownTables.size(), steps);  // each table takes one at least
  EXPECT_EQ(Scrubber::Outcome::clean, round([&] {
              if (steps == 1) put(publisher, {{"path/changed meanwhile", "1"}});
            }));
  EXPECT_EQ(Scrubber::Outcome::inconclusive, round([&] {
              put(publisher, {{"path/changed meanwhile", std::to_string(steps + 1)}});
            }));
}

// Each report has all readers of the mount rebuild.
TEST_F(DamageTest, ScrubberReportsWhatStaysDamagedOnce) {
  put(*std::make_unique<Publisher>(config()), {{"first", "first-value"}, {"second", "second-value"}});
  auto reader = mount();
  Scrubber scrubber(reader);
  stopClock();
  for (const char* key : {"second", "first"}) {
    ASSERT_GT(damage(dataFile(), key + std::string("-value")), 0U);
    for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(Scrubber::Outcome::damaged, scrubber.step(100));
      reader->refresh();
      EXPECT_EQ(Mount::State::ready, reader->state());
    }
    EXPECT_THAT(traces_.take(), ElementsAre(HasSubstr("\"" + std::string(key) +
                                                      "\": checksum mismatch; its publisher makes it anew")));
    now_ += 3600;  // the mount's pause is over
  }
}

volatile int* volatile elsewhere = reinterpret_cast<volatile int*>(8);

// Each runs in a process of its own, which removes its directory before it dies. The handler that was there before
// sees its own faults, with everything the kernel reported.
TEST_F(DamageTest, FaultElsewhereReachesThePreviousHandler) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto fault = [this](int number, const struct sigaction& previous, const auto& raiseIt) {
    sigaction(number, &previous, nullptr);
    build();
    const bool isRead = contents(mount()->snapshot()) == model_;
    std::filesystem::remove_all(parent_);
    if (isRead) raiseIt();
    _exit(1);
  };
  struct sigaction mine {
  }, none{};
  mine.sa_flags = SA_SIGINFO;
  mine.sa_sigaction = [](int, siginfo_t* info, void* context) {
    _exit(info->si_addr == const_cast<int*>(elsewhere) && context != nullptr ? 42 : 43);
  };
  EXPECT_EXIT(fault(SIGSEGV, mine, [] { *elsewhere = 1; }), ::testing::ExitedWithCode(42), "");
  EXPECT_EXIT(fault(SIGSEGV, none, [] { *elsewhere = 1; }), ::testing::KilledBySignal(SIGSEGV), "");
  EXPECT_EXIT(fault(SIGBUS, none, [] { raise(SIGBUS); }), ::testing::KilledBySignal(SIGBUS), "");
}

}  // namespace Quillo::Test
