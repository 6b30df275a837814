// The program as its users start it: options, background, signals, what it says when it cannot go on.

#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <algorithm>
#include <sstream>

#include "mirror/MirrorOptions.h"
#include "quillo/testing/TestStore.h"

namespace Mirror {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class ProgramTest : public Quillo::Test::TestStore {
 protected:
  ProgramTest() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // daemons become children of the test, which so learns their status
  }
  ~ProgramTest() override {
    umount(parent_.c_str());  // which a test may have mounted a file system on
    std::filesystem::remove(output_);
  }

  // Runs `quorin-mirrord ARGUMENTS` to its end, or until it has gone to the background; returns its status.
  int run(const std::string& arguments) {
    const std::string command = QUORIN_MIRRORD " " + arguments + " >" + output_ + " 2>&1 </dev/null";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string output() const { return Quillo::Test::readFile(output_); }
  void expectRefusal(const std::string& arguments, const std::string& part) {
    EXPECT_EQ(run(arguments), 1) << arguments;
    const std::string text = output();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
    EXPECT_THAT(text, HasSubstr(part));
  }
  pid_t publisher() const { return static_cast<pid_t>(mount()->publisher().pid); }
  // The status with which the daemon ends on the signal; -1 when it does not end within a minute.
  static int statusAfter(pid_t daemon, int signal) {
    kill(daemon, signal);
    int status = 0;
    if (!within([&] { return waitpid(daemon, &status, WNOHANG) == daemon; })) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -2;
  }
  static bool within(const std::function<bool()>& condition) {
    for (int waited = 0; waited < 6000; ++waited) {
      if (condition()) return true;
      usleep(10'000);
    }
    return false;
  }

  std::string output_ = "/tmp/qp-" + std::to_string(getpid()) + ".out";
  std::string atStore_ = " --store " + directory_;
};

TEST_F(ProgramTest, options) {
  EXPECT_EQ(run("--help"), 0);
  for (const char* part : {"DIR=/run/quorin ", "DIR=/run/netns ", "FILE=/etc/quorin/mirror.yaml\n"}) {
    EXPECT_THAT(output(), HasSubstr(part));
  }
  EXPECT_EQ(run("-V"), 0);
  EXPECT_THAT(output(), testing::StartsWith("quorin-mirrord "));
  for (const char* wrong : {"--no-such", "--store", "stray", "--nice 20"})
    expectRefusal(wrong, std::string(wrong).substr(0, 6));
  for (const std::string empty : {"--store", "--config", "--netns-dir"})
    expectRefusal(empty + " ''", empty + " is");

  const std::vector<const char*> arguments{
      "quorin-mirrord",   "-f",       "--store", "/x/../y",         "--trace", "Mirror*/0-6",
      "--recreate-store", "--config", "c",       "--netns-dir=here"};
  std::ostringstream none;
  const auto parsed = parseOptions(static_cast<int>(arguments.size()), arguments.data(), none, none);
  const auto& all = std::get<MirrorOptions>(parsed);
  EXPECT_TRUE(all.isForeground && all.recreateStore && all.mustSettingsExist);
  EXPECT_EQ(all.store + all.trace, "/yMirror*/0-6");
  EXPECT_EQ(all.netnsDirectory, std::filesystem::current_path() / "here");
}

TEST_F(ProgramTest, theStarterReturnsWhenTheDaemonServes) {
  ASSERT_EQ(run("--store " + std::filesystem::relative(directory_).string()), 0) << output();
  EXPECT_THAT(output(), IsEmpty());
  const auto reader = mount();
  ASSERT_EQ(reader->state(), Quillo::Mount::State::ready) << reader->stateText();
  EXPECT_TRUE(reader->snapshot().firstPassComplete());
  const pid_t daemon = publisher();
  ASSERT_GT(daemon, 1);
  EXPECT_EQ(getsid(daemon), daemon) << "a session of its own";
  EXPECT_EQ(getpriority(PRIO_PROCESS, static_cast<id_t>(daemon)), getpriority(PRIO_PROCESS, 0) + 5);
  EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(daemon) + "/cwd"), "/");
  EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(daemon) + "/fd/2"), "/dev/null");

  expectRefusal(atStore_, std::to_string(daemon));
  expectRefusal("-f" + atStore_, std::to_string(daemon));

  // The daemon's memory cannot be trusted after damage, so its image is replaced; it stays the daemon that it was.
  const std::string data = directory_ + "/data.mdb";
  const std::string noise(std::filesystem::file_size(data) - 8192, 'x');
  std::fstream(data, std::ios::in | std::ios::out | std::ios::binary).seekp(8192) << noise;
  std::ofstream(directory_ + "/damage") << 'x';  // a reader's report
  EXPECT_TRUE(within([&] {
    return Quillo::Test::readFile("/proc/" + std::to_string(daemon) + "/environ").find("REPLACED_IMAGE=") !=
               std::string::npos &&
           publisher() == daemon && mount()->state() == Quillo::Mount::State::ready &&
           mount()->snapshot().firstPassComplete();
  }));
  EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(daemon) + "/cwd"), "/");
  EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(daemon) + "/fd/2"), "/dev/null");

  EXPECT_EQ(kill(daemon, SIGHUP), 0);  // would end it by default, before the other signal does
  EXPECT_EQ(statusAfter(daemon, SIGTERM), 0);
  reader->refresh();
  EXPECT_EQ(reader->state(), Quillo::Mount::State::ready) << "the store stays for its readers";
}

TEST_F(ProgramTest, refusals) {
  expectRefusal("-f --trace nonsense" + atStore_, "'nonsense'");
  EXPECT_FALSE(std::filesystem::exists(directory_));
  expectRefusal("-f --config " + parent_ + "/none.yaml" + atStore_, parent_ + "/none.yaml: No such file");
  std::ofstream(parent_ + "/bad.yaml") << "vrfs:\n  red: {rd: x}\n";
  expectRefusal("--config " + parent_ + "/bad.yaml" + atStore_, parent_ + "/bad.yaml:2: vrfs.red: 'rd'");
  EXPECT_FALSE(std::filesystem::exists(directory_));
  std::ofstream(parent_ + "/file") << "in the way";
  expectRefusal("-f --store " + parent_ + "/file/store",
                "cannot make the store directory " + parent_ + "/file/store: Not a directory; ");
  EXPECT_EQ(run("-f --store /proc/1"), 1);
  EXPECT_THAT(output(), HasSubstr("cannot write /proc/1/"));
  expectRefusal("-f --group nobody-of-that-name" + atStore_, "no group 'nobody-of-that-name'");
}

TEST_F(ProgramTest, aDiskThatIsFullFromTheStart) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to mount a file system";
  ASSERT_EQ(::mount("tmpfs", parent_.c_str(), "tmpfs", 0, "size=16k"), 0);
  const std::string pidFile = output_ + ".pid";
  const std::string command = QUORIN_MIRRORD " -f" + atStore_ + " >" + output_ + " 2>&1 & echo $! >" + pidFile;
  ASSERT_EQ(std::system(command.c_str()), 0);
  pid_t daemon = 0;
  std::ifstream(pidFile) >> daemon;
  std::filesystem::remove(pidFile);
  EXPECT_TRUE(within([this] { return output().ends_with("every second\n"); })) << output();
  EXPECT_THAT(output(), HasSubstr("No space left on device"));
  ASSERT_EQ(::mount("tmpfs", parent_.c_str(), "tmpfs", MS_REMOUNT, "size=16m"), 0);
  EXPECT_TRUE(within([this] { return publisher() > 0; }));
  EXPECT_EQ(statusAfter(daemon, SIGINT), 0);
}

}  // namespace
}  // namespace Mirror
