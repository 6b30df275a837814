// What a reader and a publisher make of a store whose bytes are not what was written.

#include <gmock/gmock.h>

#include <random>

#include "kel/System.h"
#include "kel/Trace.h"
#include "quillo/ScanAround.h"
#include "quillo/Scrubber.h"
#include "quillo/testing/TestStore.h"

namespace Quillo::Test {

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

  // True when everything that is wrong was noticed. Never may a wrong value be handed out.
  bool noticed(Mount& reader) {
    try {
      if (reader.state() != Mount::State::ready) {
        return true;
      }
      Snapshot snapshot = reader.snapshot();
      Contents found = contents(snapshot);
      for (const auto& [key, value] : found) {
        auto expected = model_.find(key);
        EXPECT_TRUE(expected != model_.end() && expected->second == value) << key;
      }
      bool complete = found.size() == model_.size();
      for (const auto& [key, value] : model_) {
        std::optional<Bytes> got = snapshot.get(TableId::varnix, key);
        EXPECT_TRUE(!got || *got == value) << key;
        complete = complete && got;
      }
      snapshot.changesSince({snapshot.generation(), snapshot.bookmark().epoch, 0}, 100'000);
      return complete;
    } catch (const Pesk::CorruptionDetectedException& damage) {
      reader.corruptionDetected(damage);
      return true;
    }
  }

  Contents model_;
};

TEST_F(DamageTest, RandomBytesNeverKillNorDeceive) {
  build();
  Kel::TraceConfig::Sink sink =
      Kel::TraceConfig::sinkIs([](const Kel::TraceHandle&, unsigned, const std::string&) {});
  std::string sound = readFile(dataFile());
  std::size_t pages = sound.size() / pageBytes;
  std::mt19937 random(11);
  int refused = 0;
  int found = 0;
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
        for (unsigned i = 1 + random() % 4; i > 0; --i) {
          bytes[at + random() % 64] = static_cast<char>(random());
        }
        break;
      case 2:  // a page of noise
        for (std::size_t i = 0; i < pageBytes; ++i) {
          bytes[at + i] = static_cast<char>(random());
        }
        break;
      default:  // another page's contents
        bytes.replace(at, pageBytes, sound, (2 + random() % (pages - 2)) * pageBytes, pageBytes);
        break;
    }
    std::filesystem::remove(dataFile());
    writeFile(dataFile(), bytes);
    auto reader = mount();
    bool complete = reader->state() == Mount::State::ready;
    if (!noticed(*reader)) {
      // Lookups that were led astray are what the scrubber is for.
      Scrubber scrubber(reader);
      EXPECT_EQ(Scrubber::Outcome::damaged, scrubber.step(1'000'000)) << "round " << round;
    }
    complete = complete && reader->corruptionCount() == 0;
    found += complete ? 0 : 1;
    reader.reset();
    // A publisher goes on only when everything readable is as it was written.
    try {
      Publisher publisher(config());
      EXPECT_TRUE(complete) << "round " << round;
    } catch (const StoreException& e) {
      EXPECT_EQ(StoreException::Kind::damaged, e.kind()) << e.what();
      ++refused;
    }
    ASSERT_FALSE(HasFailure());
  }
  Kel::TraceConfig::sinkIs(sink);
  EXPECT_GT(found, 60);
  EXPECT_GE(refused, found);
}

// All tables share one index, so a walk to the end of a table comes to the first record of the next one.
TEST_F(DamageTest, FirstRecordOfTheNextTable) {
  Publisher publisher(config());
  auto batch = publisher.begin();
  for (const char* key : {"a", "b"}) batch.put(TableId::varnix, key, "sound");
  batch.put(TableId::arp, "first", "broken");
  batch.put(TableId::arp, "second", "sound");
  batch.commit();
  ASSERT_GT(damage(dataFile(), "broken"), 0U);
  auto reader = mount();
  const auto snapshot = reader->snapshot();
  EXPECT_EQ(contents(snapshot).size(), 2U);
  const auto walk = [&](TableId table) {
    std::string met;
    EXPECT_TRUE(scanAround(
        snapshot, table, "", [&](const Scan& scan) { return met.append(scan.key()).append(" "), true; },
        [&](const std::string& key, const auto&) { return met.append("!" + key + " "), met.size() < 100; }));
    return met;
  };
  EXPECT_EQ(walk(TableId::varnix), "a b ");
  EXPECT_EQ(walk(TableId::arp), "!first second ");
  EXPECT_EQ(walk(TableId::neighbor), "");
}

TEST_F(DamageTest, FileCutShortUnderAMappedReader) {
  build();
  auto reader = mount();
  ASSERT_EQ(model_, contents(reader->snapshot()));
  std::vector<std::string> lines;
  auto sink = Kel::TraceConfig::sinkIs([&lines](const Kel::TraceHandle&, unsigned level, const std::string& text) {
    if (level == 0) {
      lines.push_back(text);
    }
  });
  {
    Snapshot snapshot = reader->snapshot();
    std::filesystem::resize_file(dataFile(), 2 * pageBytes);
    try {
      contents(snapshot);
      FAIL() << "a scan of pages that are gone";
    } catch (const Pesk::CorruptionDetectedException& damage) {
      EXPECT_THAT(damage.what(), HasSubstr("fault in the mapping of data.mdb"));
      reader->corruptionDetected(damage);
    }
    EXPECT_THROW(snapshot.get(TableId::varnix, "path/1"), Pesk::CorruptionDetectedException);
  }
  EXPECT_EQ(1U, reader->corruptionCount());
  EXPECT_THAT(lines, ElementsAre(HasSubstr("store " + directory_ + " is damaged")));
  // What stays broken is tried again after growing pauses, not with every refresh.
  double now = Kel::System::currentTime();
  Kel::System::clockIs([&now] { return now; });
  for (int second = 0; second < 120; ++second, ++now) {
    for (int ring = 0; ring < 5; ++ring) {
      reader->refresh();
    }
    EXPECT_EQ(Mount::State::damaged, reader->state());
  }
  EXPECT_GE(reader->corruptionCount(), 4U);
  EXPECT_LE(reader->corruptionCount(), 12U);

  // The operator begins a new store; the reader comes back by itself once its pause is over.
  PublisherConfig anew = config();
  anew.recreate = true;
  Publisher publisher(anew);
  put(publisher, "a", "1");
  now += 60;
  EXPECT_TRUE(reader->refresh());
  Kel::System::clockIs({});
  Kel::TraceConfig::sinkIs(sink);
  ASSERT_EQ(Mount::State::ready, reader->state());
  EXPECT_EQ((Contents{{"a", "1"}}), contents(reader->snapshot()));
}

// One fault of the moment: everybody rebuilds once, from the store as it is.
TEST_F(DamageTest, ReportedDamageReopensAndRebuilds) {
  auto sink = Kel::TraceConfig::sinkIs([](const Kel::TraceHandle&, unsigned, const std::string&) {});
  Publisher publisher(config());
  put(publisher, "a", "1");
  auto reader = mount();
  Bookmark mark = reader->snapshot().bookmark();
  reader->corruptionDetected("reported by a table");
  reader->corruptionDetected("and by another one");
  EXPECT_EQ(2U, reader->corruptionCount());
  EXPECT_THROW(reader->snapshot(), StoreException);
  EXPECT_TRUE(reader->refresh());
  Kel::TraceConfig::sinkIs(sink);
  Snapshot snapshot = reader->snapshot();
  EXPECT_TRUE(snapshot.changesSince(mark, 10).tooOld);
  EXPECT_EQ("1", snapshot.get(TableId::varnix, "a"));
}

TEST_F(DamageTest, TruncatedStoreIsRefusedByThePublisherAndKept) {
  build();
  std::filesystem::resize_file(dataFile(), std::filesystem::file_size(dataFile()) / 2 / pageBytes * pageBytes);
  std::string before = readFile(dataFile());
  StoreException e = refusal([this] { Publisher publisher(config()); });
  EXPECT_EQ(StoreException::Kind::damaged, e.kind());
  EXPECT_EQ(before, readFile(dataFile()));
}

TEST_F(DamageTest, ScrubberWorksInStepsAndStartsAgainWhenTheTableChanges) {
  build();
  Publisher publisher(config());
  auto reader = mount();
  Scrubber scrubber(reader);
  std::size_t steps = 1;
  while (scrubber.step(100) == Scrubber::Outcome::more) {
    ++steps;
  }
  EXPECT_EQ(model_.size() / 100 + knownTables.size(), steps);  // each table takes one at least
  EXPECT_EQ(Scrubber::Outcome::more, scrubber.step(100));
  put(publisher, "path/changed meanwhile", "1");
  Scrubber::Outcome outcome = Scrubber::Outcome::more;
  for (int i = 0; i < 100 && outcome == Scrubber::Outcome::more; ++i) {
    outcome = scrubber.step(100);
  }
  EXPECT_EQ(Scrubber::Outcome::clean, outcome);
  outcome = Scrubber::Outcome::more;
  for (unsigned i = 0; i < 2 * Scrubber::maxRestarts && outcome == Scrubber::Outcome::more; ++i) {
    outcome = scrubber.step(100);
    put(publisher, "path/changed meanwhile", std::to_string(i + 2));
  }
  EXPECT_EQ(Scrubber::Outcome::inconclusive, outcome);
}

// Each report has all readers of the mount rebuild.
TEST_F(DamageTest, ScrubberReportsWhatStaysDamagedOnce) {
  Traces traces;
  {
    Publisher publisher(config());
    for (const char* key : {"first", "second"}) put(publisher, key, key + std::string("-value"));
  }
  auto reader = mount();
  Scrubber scrubber(reader);
  const auto reportsOfRound = [&] {
    const auto before = reader->corruptionCount();
    EXPECT_EQ(Scrubber::Outcome::damaged, scrubber.step(100));
    reader->refresh();
    EXPECT_EQ(Mount::State::ready, reader->state());
    return reader->corruptionCount() - before;
  };
  ASSERT_GT(damage(dataFile(), "second-value"), 0U);
  EXPECT_EQ(1U, reportsOfRound());
  EXPECT_EQ(0U, reportsOfRound());
  ASSERT_GT(damage(dataFile(), "first-value"), 0U);
  const double now = Kel::System::currentTime() + 3600;  // the mount's pause is over
  Kel::System::clockIs([now] { return now; });
  EXPECT_EQ(1U, reportsOfRound());
  EXPECT_EQ(0U, reportsOfRound());
  Kel::System::clockIs({});
  EXPECT_THAT(traces.lines,
              ElementsAre(HasSubstr("\"second\": checksum mismatch; begin a new one with quorin-mirrord "
                                    "--recreate"),
                          HasSubstr("\"first\"")));
}

volatile int* volatile elsewhere = reinterpret_cast<volatile int*>(8);

// Each runs in a process of its own, which removes its directory before it dies. The handler that was there before
// sees its own faults, with everything the kernel told.
TEST_F(DamageTest, FaultElsewhereReachesThePreviousHandler) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        struct sigaction mine {};
        mine.sa_flags = SA_SIGINFO;
        mine.sa_sigaction = [](int, siginfo_t* info, void* context) {
          _exit(info->si_addr == const_cast<int*>(elsewhere) && context != nullptr ? 42 : 43);
        };
        sigaction(SIGSEGV, &mine, nullptr);
        build();
        auto reader = mount();
        if (contents(reader->snapshot()) != model_) {
          _exit(1);
        }
        std::filesystem::remove_all(parent_);
        *elsewhere = 1;
      },
      ::testing::ExitedWithCode(42), "");
  EXPECT_EXIT(
      {
        signal(SIGSEGV, SIG_DFL);
        build();
        std::filesystem::remove_all(parent_);
        *elsewhere = 1;
      },
      ::testing::KilledBySignal(SIGSEGV), "");
  EXPECT_EXIT(
      {
        signal(SIGBUS, SIG_DFL);
        build();
        std::filesystem::remove_all(parent_);
        raise(SIGBUS);
        _exit(0);
      },
      ::testing::KilledBySignal(SIGBUS), "");
}

}  // namespace Quillo::Test
