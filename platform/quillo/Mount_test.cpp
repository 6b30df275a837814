#include "quillo/Mount.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>

#include "quillo/testing/TestStore.h"

namespace Quillo::Test {

using ::testing::HasSubstr;

class MountTest : public TestStore {
 protected:
  // Waits for the doorbell alone, never for the poll beside it.
  static bool rings(Mount& reader, int milliseconds) {
    pollfd entry{reader.doorbellFd(), POLLIN, 0};
    while (poll(&entry, 1, milliseconds) == 1) {
      if (reader.drainDoorbell()) return true;
    }
    return false;
  }
  // Refreshes on rings until `key` has `value`; false when the bell stays silent.
  static bool waitFor(Mount& reader, const std::string& key, const std::string& value) {
    do {
      reader.refresh();
      if (reader.state() == Mount::State::ready && reader.snapshot().get(TableId::varnix, key) == value)
        return true;
    } while (rings(reader, 60'000));
    return false;
  }
};

// Directory, store and every commit are noticed by the bell across processes.
TEST_F(MountTest, DoorbellWakesAReaderInAnotherProcess) {
  auto reader = mount();
  EXPECT_FALSE(reader->refresh());
  EXPECT_THROW(reader->snapshot(), StoreException);
  EXPECT_FALSE(reader->publisher().alive);
  // What a publisher leaves that is killed at its very beginning.
  std::filesystem::create_directory(directory_);
  writeFile(dataFile(), "");
  reader->refresh();
  EXPECT_THAT(reader->stateText(), HasSubstr("waiting for a store in " + directory_ + ": start a publisher"));
  pid_t child = spawn([this] {
    usleep(50'000);
    Publisher publisher(config());
    for (int i = 1; i <= 20; ++i) {
      usleep(5'000);
      put(publisher, {{"n", std::to_string(i)}});
    }
    pause();
    return 0;
  });
  EXPECT_TRUE(waitFor(*reader, "n", "20"));
  const auto now = static_cast<Kel::Seconds>(time(nullptr));
  const auto publisher = reader->publisher();
  EXPECT_TRUE(publisher.alive);
  constexpr double window = 600;  // the machine may be busy; a wrong unit is far outside
  EXPECT_NEAR(now, publisher.started, window);
  EXPECT_NEAR(now, publisher.lastCommit, window);
  EXPECT_NEAR(now, publisher.lastSeen, window);
  // Nobody else may publish, and not even --recreate touches the store.
  for (const auto& other : {config(), recreating()}) {
    StoreException e = refusal([&] { Publisher second(other); });
    EXPECT_EQ(StoreException::Kind::owned, e.kind());
    EXPECT_EQ("store " + directory_ + " is published by test-publisher (pid " + std::to_string(child) +
                  ") already; stop that one, or choose another directory with --store",
              e.what());
  }
  EXPECT_EQ("20", reader->snapshot().get(TableId::varnix, "n"));
  kill(child, SIGKILL);
  EXPECT_EQ(-SIGKILL, finish(child));
  EXPECT_FALSE(reader->publisher().alive);
  while (rings(*reader, 0)) {  // the value may have been seen before the ring that was for it
  }
  EXPECT_FALSE(rings(*reader, 50)) << "a quiet store must not ring";
}

TEST_F(MountTest, SnapshotKeepsOneVersionAndRefreshReportsNewsOnce) {
  Publisher publisher(config());
  put(publisher, {{"a", "1"}});
  auto reader = mount();
  EXPECT_FALSE(reader->refresh());
  {
    Snapshot before = reader->snapshot();
    put(publisher, {{"a", "2"}});
    EXPECT_EQ("1", before.get(TableId::varnix, "a"));
    EXPECT_EQ("1", reader->snapshot().get(TableId::varnix, "a")) << "snapshots that live together share one view";
  }
  EXPECT_EQ("2", reader->snapshot().get(TableId::varnix, "a"));
  EXPECT_EQ(std::nullopt, reader->snapshot().get(TableId::varnix, std::string(maxKeyBytes + 500, 'a')));
  EXPECT_TRUE(reader->refresh());
  EXPECT_FALSE(reader->refresh());
  publisher.beginFullPass({TableId::varnix});
  put(publisher, {{"a", "2"}});
  publisher.endFullPass();
  EXPECT_TRUE(reader->refresh()) << "a complete pass is news without any change";
}

TEST_F(MountTest, FollowsAStoreThatIsRecreatedOrRemoved) {
  put(*std::make_unique<Publisher>(config()), {{"old", "1"}});
  auto reader = mount();
  Publisher publisher(recreating());
  EXPECT_TRUE(rings(*reader, 1000));
  put(publisher, {{"new", "1"}});
  EXPECT_TRUE(waitFor(*reader, "new", "1"));

  std::filesystem::remove_all(directory_);
  EXPECT_TRUE(rings(*reader, 1000));
  EXPECT_TRUE(reader->refresh());
  EXPECT_EQ(Mount::State::waiting, reader->state());
  StoreException e = refusal([&] { put(publisher, {{"a", "2"}}); });
  EXPECT_EQ(StoreException::Kind::gone, e.kind());
  EXPECT_THAT(e.what(), HasSubstr("was removed or replaced"));
  EXPECT_EQ(0, finish(spawn([this] {
              Publisher next(config());
              put(next, {{"a", "3"}});
              return 0;
            })));
  EXPECT_TRUE(waitFor(*reader, "a", "3"));
}

// Twice the map needs far more than the limit leaves. In a process that begins anew: a sanitizer's allocator gives back
// what earlier tests freed, after the limit was set.
TEST_F(MountTest, LimitOfAddressSpaceLosesNothing) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto fill = [this] {
    constexpr std::size_t mapBytes = std::size_t{64} << 20, spareBytes = std::size_t{12} << 20;
    // Of a size that the sanitizer's allocator has address space for already.
    constexpr std::size_t valueBytes = 90'000;
    PublisherConfig small = config();
    small.mapBytes = mapBytes;
    Publisher publisher(small);
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlimit limit{pages * 4096 + spareBytes, RLIM_INFINITY}, none{RLIM_INFINITY, RLIM_INFINITY};
    EXPECT_EQ(0, setrlimit(RLIMIT_AS, &limit));
    std::size_t committed = 0;
    const auto full = refusal([&] {
      for (; committed < 2 * mapBytes / valueBytes; ++committed) {
        put(publisher, {{std::to_string(committed), std::string(valueBytes, 'v')}});
      }
    });
    EXPECT_THAT(full.what(), HasSubstr("ulimit -v"));
    put(publisher, {{"0", "after"}});
    EXPECT_EQ(0, setrlimit(RLIMIT_AS, &none));
    const auto found = contents(mount()->snapshot());
    EXPECT_GT(committed, 10U);
    EXPECT_EQ(found.size(), committed);
    EXPECT_EQ(found.at("0"), "after");
    std::filesystem::remove_all(parent_);
    _exit(HasFailure() ? 1 : 0);
  };
  EXPECT_EXIT(fill(), ::testing::ExitedWithCode(0), "");
}

// A reader that died in mid-read must not make the store grow for ever.
TEST_F(MountTest, DeadReadersAreCleared) {
  Publisher publisher(config());
  put(publisher, {{"a", std::string(100'000, '0')}});
  pid_t child = spawn([this] {
    auto reader = mount();
    Snapshot held = reader->snapshot();
    raise(SIGKILL);
    return 0;
  });
  EXPECT_EQ(-SIGKILL, finish(child));
  stopClock();
  for (int i = 0; i < 400; ++i) {
    now_ += 0.1;
    put(publisher, {{"a", std::string(100'000, static_cast<char>('0' + i % 10))}});
  }
  EXPECT_LT(std::filesystem::file_size(dataFile()), 4'000'000U) << "400 values of 100 kB went through";
}

}  // namespace Quillo::Test
