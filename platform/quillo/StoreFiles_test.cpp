// Who may use a store's files, and what happens when they are taken away, locked or damaged under their publisher.

#include "quillo/StoreFiles.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/stat.h>

#include "quillo/testing/TestStore.h"

namespace Quillo::Test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Kind = StoreException::Kind;

constexpr gid_t readers = 54321;
constexpr uid_t stranger = 54322;

class StoreFilesTest : public TestStore {
 protected:
  // "0660 54321": mode and group of a file of the store.
  std::string rights(const std::string& name) const {
    struct stat status {};
    return ::lstat((directory_ + name).c_str(), &status) == 0
               ? fmt::format("{:04o} {}", status.st_mode & 07777U, status.st_gid)
               : "none";
  }
  std::string file(const char* name) const { return directory_ + "/" + name; }

  // Runs `body` as another user, who is of the store's group or of none; the exit status of `body`.
  template <class Body>
  static int asStranger(bool isReader, const Body& body) {
    return finish(spawn([&] {
      const gid_t group = isReader ? readers : stranger;
      if (setgroups(0, nullptr) != 0 || setgid(group) != 0 || setuid(stranger) != 0) return 77;
      return body();
    }));
  }
  // Locks each file that it can open, for writing where it can, and keeps the locks until it is killed.
  pid_t lockerOf(bool isReader, int type) const {
    int ready[2];
    EXPECT_EQ(0, pipe(ready));
    const pid_t child = spawn([&] {
      const gid_t group = isReader ? readers : stranger;
      if (setgroups(0, nullptr) != 0 || setgid(group) != 0 || setuid(stranger) != 0) return 77;
      for (const char* name : {"publisher.lock", "lock.mdb", "doorbell", "data.mdb", "damage"}) {
        const int fd = ::open(file(name).c_str(), type == F_WRLCK ? O_RDWR : O_RDONLY);
        struct flock lock {};
        lock.l_type = static_cast<short>(type);
        if (fd >= 0) ::fcntl(fd, F_OFD_SETLK, &lock);
      }
      EXPECT_EQ(1, ::write(ready[1], "1", 1));
      pause();
      return 0;
    });
    char word = 0;
    EXPECT_EQ(1, ::read(ready[0], &word, 1));
    ::close(ready[0]);
    ::close(ready[1]);
    return child;
  }
  static void end(pid_t child) {
    kill(child, SIGKILL);
    finish(child);
  }
};

TEST_F(StoreFilesTest, TheGroupReadsAndOthersHaveNoAccess) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, for other users and groups";
  auto settings = config();
  settings.group = readers;
  const mode_t usual = umask(0);
  auto publisher = std::make_unique<Publisher>(settings);
  umask(usual);
  put(*publisher, {{"a", "1"}});
  const auto expectRights = [this] {
    EXPECT_EQ("2750 54321", rights(""));
    EXPECT_EQ("0640 54321", rights("/data.mdb"));
    EXPECT_EQ("0660 54321", rights("/lock.mdb"));
    EXPECT_EQ("0640 54321", rights("/doorbell"));
    EXPECT_EQ("0660 54321", rights("/damage"));
    EXPECT_EQ("0600 54321", rights("/publisher.lock"));
  };
  expectRights();
  EXPECT_EQ(0, asStranger(true, [this] {
              const auto reader = mount();
              return reader->snapshot().get(TableId::varnix, "a") == "1" && reader->publisher().alive ? 0 : 1;
            }));
  EXPECT_EQ(0, asStranger(false, [this] {
              EXPECT_THAT(mount()->stateText(),
                          HasSubstr(directory_ + " as user 54322: Permission denied; make this " +
                                    "user a member of the store's group (gid 54321)"));
              return HasFailure() ? 1 : 0;
            }));
  // What an earlier release left, open to all, is closed at the next start.
  publisher.reset();
  for (const char* name : {"data.mdb", "lock.mdb", "doorbell", "publisher.lock"}) {
    ASSERT_EQ(0, ::chmod(file(name).c_str(), 0666));
    ASSERT_EQ(0, ::chown(file(name).c_str(), 0, 0));
  }
  publisher = std::make_unique<Publisher>(config());
  expectRights();
}

// Neither a stranger nor a reader can keep a publisher from its store by locking the files.
TEST_F(StoreFilesTest, NobodyElseLocksThePublisherOut) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, for other users and groups";
  auto settings = config();
  settings.group = readers;
  auto publisher = std::make_unique<Publisher>(settings);
  for (const bool isReader : {false, true}) {
    for (const int type : {F_RDLCK, F_WRLCK}) {
      SCOPED_TRACE(fmt::format("reader {} type {}", isReader, type));
      publisher = nullptr;
      const pid_t locker = lockerOf(isReader, type);
      ASSERT_NO_THROW(publisher = std::make_unique<Publisher>(settings));
      put(*publisher, {{"a", std::to_string(locker)}});
      EXPECT_EQ(std::to_string(locker), mount()->snapshot().get(TableId::varnix, "a"));
      end(locker);
    }
  }
}

TEST_F(StoreFilesTest, LinksForeignOwnersAndOpenDirectoriesAreRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, for files of other users";
  const std::string victim = parent_ + "/victim";
  const auto refused = [this](const std::string& part) {
    const auto e = refusal([this] { Publisher publisher(config()); });
    EXPECT_EQ(Kind::unsafe, e.kind()) << e.what();
    EXPECT_THAT(e.what(), HasSubstr(part));
  };
  for (const char* name : {"publisher.lock", "doorbell", "data.mdb", "lock.mdb", "damage"}) {
    SCOPED_TRACE(name);
    std::filesystem::remove_all(directory_);
    std::filesystem::create_directory(directory_);
    writeFile(victim, "kept");
    std::filesystem::create_symlink(victim, file(name));
    refused("is a symbolic link");
    std::filesystem::remove(file(name));
    std::filesystem::create_hard_link(victim, file(name));
    if (std::string(name) == "data.mdb") {
      refused("has a second name");
      std::filesystem::remove(file(name));
    } else {
      Publisher publisher(config());  // with a file of its own: a reader may have given the old one another name
    }
    EXPECT_EQ("kept", readFile(victim));
    std::filesystem::remove_all(directory_);
    std::filesystem::create_directory(directory_);
    writeFile(file(name), "");
    ASSERT_EQ(0, ::chown(file(name).c_str(), stranger, stranger));
    refused("belongs to user 54322");
  }
  std::filesystem::remove_all(directory_);
  std::filesystem::create_directory(directory_);
  writeFile(file("other"), "");
  ASSERT_EQ(0, ::chmod(directory_.c_str(), 01777));
  refused("can be written by every user");
  ASSERT_EQ(0, ::chown(directory_.c_str(), 0, readers));
  ASSERT_EQ(0, ::chmod(directory_.c_str(), 0775));
  refused("can be written by group 54321");
  ASSERT_EQ(0, ::chown(directory_.c_str(), 0, 0));
  const std::string aside = parent_ + "/aside";
  std::filesystem::rename(directory_, aside);
  std::filesystem::create_directory_symlink(aside, directory_);
  ASSERT_NO_THROW(Publisher{config()}) << "a link of root, and a directory that root's group may write";
  ASSERT_EQ(0, ::lchown(directory_.c_str(), stranger, stranger));
  refused("belongs to user 54322");
  std::filesystem::remove(directory_);
  std::filesystem::rename(aside, directory_);
  ASSERT_EQ(0, ::chmod(directory_.c_str(), 0755));
  ASSERT_EQ(0, ::chown(directory_.c_str(), stranger, stranger));
  refused("belongs to user 54322");
  ASSERT_EQ(0, ::chown(directory_.c_str(), 0, 0));
  // A directory with other files keeps its mode: it may be one that the whole system needs.
  Publisher publisher(config());
  EXPECT_EQ("0755 0", rights(""));
}

// The kernel knows that the file is locked, not by whom, and the text may be of a process that has ended.
TEST_F(StoreFilesTest, ADeadProcessIsNotNamedAsTheHolder) {
  const pid_t dead = spawn([] { return 0; });
  finish(dead);
  std::filesystem::create_directory(directory_);
  for (const pid_t pid : {getpid(), dead}) {
    writeFile(file("publisher.lock"), fmt::format("{} quorin-mirrord\n", pid));
    const int fd = ::open(file("publisher.lock").c_str(), O_RDWR);
    struct flock lock {};
    lock.l_type = F_WRLCK;
    ASSERT_EQ(0, ::fcntl(fd, F_OFD_SETLK, &lock));
    EXPECT_THAT(refusal([this] { Publisher publisher(config()); }).what(),
                HasSubstr(pid == dead ? "by another process already"
                                      : fmt::format("by quorin-mirrord (pid {}) already", pid)));
    ::close(fd);
  }
}

// A second publisher never gets in, whichever file is missing.
TEST_F(StoreFilesTest, FilesThatAreTakenAwayComeBack) {
  Publisher publisher(config());
  put(publisher, {{"a", "1"}});
  auto reader = mount();
  Traces traces;
  for (const char* name : {"publisher.lock", "doorbell", "damage"}) {
    SCOPED_TRACE(name);
    std::filesystem::remove(file(name));
    EXPECT_EQ(Kind::owned, refusal([this] { Publisher second(config()); }).kind());
    EXPECT_NO_THROW(publisher.check());
    EXPECT_TRUE(std::filesystem::exists(file(name)));
    writeFile(file("new"), "");
    std::filesystem::rename(file("new"), file(name));
    EXPECT_NO_THROW(publisher.check());
    EXPECT_EQ(Kind::owned, refusal([this] { Publisher second(config()); }).kind());
    EXPECT_TRUE(reader->publisher().alive);
  }
  EXPECT_EQ(4U, traces.take().size()) << "a line for each time that the lock or the doorbell was gone";
  // A commit does not fail for want of a bell.
  std::filesystem::remove(file("doorbell"));
  std::filesystem::create_directory(file("doorbell"));
  EXPECT_EQ(1U, put(publisher, {{"a", "1.1"}}));
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr(file("doorbell") + " is not a regular file")));
  std::filesystem::remove(file("doorbell"));
  const std::string victim = parent_ + "/victim";
  writeFile(victim, "kept");
  const auto linkLockFile = [&] {
    std::filesystem::remove(file("lock.mdb"));
    std::filesystem::create_symlink(victim, file("lock.mdb"));
  };
  for (const auto& take : {std::function<void()>([this] { std::filesystem::remove(file("lock.mdb")); }),
                           std::function<void()>(linkLockFile),
                           std::function<void()>([this] { std::filesystem::remove(file("data.mdb")); }),
                           std::function<void()>([this] { std::filesystem::resize_file(file("lock.mdb"), 0); }),
                           std::function<void()>([this] { std::filesystem::remove_all(directory_); })}) {
    take();
    EXPECT_EQ(Kind::gone, refusal([&] { publisher.check(); }).kind());
    reader->refresh();
    publisher.makeAnew();
    put(publisher, {{"a", "2"}});
    reader->refresh();
    ASSERT_EQ(Mount::State::ready, reader->state()) << reader->stateText();
    EXPECT_EQ("2", reader->snapshot().get(TableId::varnix, "a"));
    EXPECT_EQ(Kind::owned, refusal([this] { Publisher second(config()); }).kind());
    EXPECT_EQ("kept", readFile(victim));
  }
}

// A fault in the lock file's mapping is damage to the publisher, not its end.
TEST_F(StoreFilesTest, ALockFileThatIsCutShortUnderAWrite) {
  Publisher publisher(config());
  put(publisher, {{"a", "1"}});
  stopClock();
  now_ += 10;  // the next write looks for readers that have died
  std::filesystem::resize_file(file("lock.mdb"), 0);
  EXPECT_THROW(put(publisher, {{"a", "2"}}), Kel::Exception);
  publisher.makeAnew();
  put(publisher, {{"a", "3"}});
  EXPECT_EQ("3", mount()->snapshot().get(TableId::varnix, "a"));
}

// By the publisher's own check once a minute, and within a second when a reader has met it. False reports cost a check
// each half minute.
TEST_F(StoreFilesTest, ThePublisherLearnsOfDamage) {
  Publisher publisher(config());
  put(publisher, {{"a", "damage-here"}, {"b", "2"}});
  auto reader = mount();
  Traces traces;
  stopClock();
  EXPECT_NO_THROW(publisher.check());
  for (const bool isReported : {true, false}) {
    ASSERT_EQ(1U, damage(dataFile(), "damage-here"));
    EXPECT_NO_THROW(publisher.check()) << "nothing was reported, and the last check was a moment ago";
    now_ += isReported ? 1 : 60;
    if (isReported) {
      try {
        reader->snapshot().get(TableId::varnix, "a");
        ADD_FAILURE();
      } catch (const Pesk::CorruptionDetectedException& found) {
        reader->corruptionDetected(found);
      }
    }
    EXPECT_THROW(publisher.check(), Pesk::CorruptionDetectedException);
    EXPECT_THROW(put(publisher, {{"b", "3"}}), Kel::Exception) << "nothing is written into a damaged store";
    publisher.makeAnew();
    put(publisher, {{"a", "damage-here"}, {"b", "2"}});
    now_ += 40;
    EXPECT_NO_THROW(publisher.check());
  }
}

// Of a file's first pages, the publisher reads some only when it opens it, a new reader always; and what they say may
// make a write fail for any reason.
TEST_F(StoreFilesTest, ThePublisherLearnsThatNoNewReaderCanOpenTheStore) {
  Publisher publisher(config());
  put(publisher, {{"a", "1"}});
  Traces traces;
  stopClock();
  constexpr std::size_t metaBytes = 4096;
  unsigned unreadable = 0;
  for (std::size_t at = 8; at < 160; at += 3) {
    SCOPED_TRACE(at);
    std::string bytes = readFile(dataFile());
    for (const std::size_t place : {at, metaBytes + at}) bytes[place] = static_cast<char>(bytes[place] ^ 0x5a);
    std::fstream(dataFile(), std::ios::in | std::ios::out | std::ios::binary).write(bytes.data(), 2 * metaBytes);
    now_ += 60;
    if (mount()->state() == Mount::State::ready) continue;
    ++unreadable;
    EXPECT_THROW(publisher.check(), Pesk::CorruptionDetectedException);
    publisher.makeAnew();
    put(publisher, {{"a", "1"}});
    EXPECT_EQ(Mount::State::ready, mount()->state());
    EXPECT_NO_THROW(publisher.check());
  }
  EXPECT_GT(unreadable, 5U);
}

// What a start makes of a store that cannot be used: one line, and a new store; a file of someone else stays.
TEST_F(StoreFilesTest, AStartMakesADamagedStoreAnew) {
  put(*std::make_unique<Publisher>(config()), {{"a", std::string(20'000, 'a')}});
  const std::string sound = readFile(dataFile());
  const std::string bell = readFile(file("doorbell"));
  const std::pair<std::string, const char*> cases[] = {
      {std::string(50'000, 'x'), "first pages"},
      {sound.substr(0, 8192), "is damaged"},
      {sound.substr(0, 8192) + std::string(40'000, 'x'), "is damaged"}};
  for (const auto& [bytes, part] : cases) {
    SCOPED_TRACE(part);
    writeFile(dataFile(), bytes);
    Traces traces;
    Publisher publisher(config());
    EXPECT_THAT(traces.take(), ElementsAre(HasSubstr(part)));
    put(publisher, {{"a", "1"}});
    EXPECT_EQ("1", mount()->snapshot().get(TableId::varnix, "a"));
  }
  std::filesystem::remove_all(directory_);
  std::filesystem::create_directory(directory_);
  ASSERT_EQ(0, ::chmod(directory_.c_str(), 0755));
  writeFile(dataFile(), "somebody's");
  EXPECT_EQ(Kind::foreign, refusal([this] { Publisher publisher(config()); }).kind());
  EXPECT_EQ("somebody's", readFile(dataFile()));
  EXPECT_EQ("0755", rights("").substr(0, 4)) << "nor is the directory changed";
  std::string theirs = sound;  // of another version of the storage engine
  for (auto at = theirs.find("quorin."); at != std::string::npos; at = theirs.find("quorin.")) theirs[at] = 'Q';
  for (auto at = theirs.find("QUORINST"); at != std::string::npos; at = theirs.find("QUORINST")) theirs[at] = 'q';
  for (const std::size_t meta : {0U, 4096U}) theirs[meta + 20] = 9;
  writeFile(dataFile(), theirs);
  EXPECT_EQ(Kind::foreign, refusal([this] { Publisher publisher(config()); }).kind());
  EXPECT_EQ(theirs, readFile(dataFile()));
  EXPECT_FALSE(std::filesystem::exists(file("publisher.lock"))) << "a refusal leaves nothing behind";
}

// A burst of routes does not hold its memory for ever, and readers go on with what there is.
TEST_F(StoreFilesTest, AStartShrinksAFileThatIsMostlyFree) {
  auto publisher = std::make_unique<Publisher>(config());
  Contents burst;
  for (int i = 0; i < 500; ++i) burst["burst" + std::to_string(i)] = std::string(100'000, 'b');
  put(*publisher, burst);
  put(*publisher, {{"kept", "1"}});
  auto reader = mount();
  for (const auto& [key, value] : burst) del(*publisher, key);
  const auto generation = publisher->generation();
  ASSERT_GT(std::filesystem::file_size(dataFile()), 40'000'000U);
  publisher.reset();
  publisher = std::make_unique<Publisher>(config());
  EXPECT_LT(std::filesystem::file_size(dataFile()), 1'000'000U);
  EXPECT_EQ(generation, publisher->generation());
  EXPECT_TRUE(reader->refresh());
  EXPECT_EQ((Contents{{"kept", "1"}}), contents(reader->snapshot()));
  put(*publisher, {{"kept", "2"}});
  EXPECT_EQ((Contents{{"kept", "2"}}), contents(mount()->snapshot()));
}

}  // namespace Quillo::Test
