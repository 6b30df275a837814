#pragma once
// The fixture of tests with the real kernel. Each test runs in a network namespace of its own, can create others as
// VRFs, and starts a service that mirrors all of them into a store. Requires root; skipped without it.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "mirror/MirrorService.h"
#include "mirror/testing/Expectation.h"
#include "quillo/testing/TestStore.h"
#include "vantu/NetNs.h"

namespace Mirror::Test {

inline void execute(const std::string& command) {
  if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
}

// The two steps of `ip netns add`: makeFile() creates an empty file, makeNamespace() mounts a new namespace on it.
inline void makeFile(const std::string& file) {
  close(open(file.c_str(), O_CREAT | O_EXCL | O_RDONLY | O_CLOEXEC, 0));
}
inline void makeNamespace(const std::string& file) {
  std::thread([&] {
    const bool isMade = unshare(CLONE_NEWNET) == 0 &&
                        ::mount("/proc/thread-self/ns/net", file.c_str(), "none", MS_BIND, nullptr) == 0;
    if (!isMade) throw std::runtime_error("no namespace");
  }).join();
}

class MirrorServiceTest : public Quillo::Test::TestStore {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root, to make network namespaces";
    execute("ip netns add " + name_);
    inside_.emplace(name_);
    for (const char* line : {"link set lo up", "link add eth0 address 02:00:00:00:00:01 type veth peer name eth0-p",
                             "link set eth0-p up", "link set eth0 up"}) {
      ip(line);
    }
    std::filesystem::create_directories(netnsDirectory_);
  }
  void TearDown() override {
    service_.reset();
    if (!inside_) return;
    for (const auto& entry : std::filesystem::directory_iterator(netnsDirectory_)) {
      umount2(entry.path().c_str(), MNT_DETACH);
    }
    inside_.reset();
    execute("ip netns del " + name_);
    umount(parent_.c_str());  // which a test may have mounted a file system on
  }

  static void ip(const std::string& arguments) { execute("ip " + arguments); }
  void ipBatch(const std::vector<std::string>& lines) const {
    const std::string file = "/tmp/" + name_ + ".batch";
    std::ofstream(file) << fmt::format("{}\n", fmt::join(lines, "\n"));
    execute("ip -batch " + file);
    std::filesystem::remove(file);
  }

  // ---- VRFs
  std::string fileOf(const std::string& vrf) const { return netnsDirectory_ + "/ns-" + vrf; }
  void vrfAdd(const std::string& vrf) const {
    makeFile(fileOf(vrf));
    makeNamespace(fileOf(vrf));
  }
  void vrfDel(const std::string& vrf) const {
    umount2(fileOf(vrf).c_str(), MNT_DETACH);
    unlink(fileOf(vrf).c_str());
  }
  unsigned idOf(const std::string& vrf) const {
    return service_->tree().vrfNameStatus->vrfIdOf(L3::VrfName(vrf)).value();
  }
  bool isServed(const std::string& vrf) const { return isInStore("ip/vrf/local.vrf/" + vrf, "vrfStateActive"); }
  void waitForVrf(const std::string& vrf, bool isThere = true) {
    waitFor([&] { return isServed(vrf) == isThere; }, ("VRF " + vrf).c_str());
  }

  // ---- the service
  MirrorConfig config(int receiveBytes = RtSocket::defaultReceiveBytes) const {
    return {.store = TestStore::config(), .netnsDirectory = netnsDirectory_, .receiveBytes = receiveBytes};
  }
  // Starts the service, and waits for its first complete pass. A service that runs is destroyed first.
  void start(int receiveBytes = RtSocket::defaultReceiveBytes) {
    service_.reset();
    service_ = std::make_unique<MirrorService>(config(receiveBytes));
    service_->start();
    waitFor([&] { return service_->isServing(); }, "the first complete pass");
  }

  // Runs the service's event loop until the condition holds; fails after `milliseconds`, which are ample for a busy
  // machine.
  template <class Condition>
  void waitFor(const Condition& condition, const char* what, int milliseconds = 60'000) {
    run(*service_, condition, what, milliseconds);
  }
  template <class Condition>
  static void run(MirrorService& service, const Condition& condition, const char* what, int milliseconds = 60'000) {
    for (int waited = 0; waited < milliseconds; ++waited) {
      while (service.receive()) {
      }
      if (condition()) return;
      pollfd entry{service.fd(), POLLIN, 0};
      poll(&entry, 1, 1);
    }
    FAIL() << "not within " << milliseconds << " ms: " << what;
  }

  // The lines that a second mirror publishes if it starts now from a copy of the store, which has the VRF ids.
  Lines publishedByAnother() const {
    MirrorConfig another = config();
    another.store.directory = parent_ + "-another";
    std::filesystem::create_directory(another.store.directory);
    std::filesystem::copy(dataFile(), another.store.directory);
    MirrorService service(another);
    service.start();
    run(
        service, [&] { return service.isServing(); }, "the other one's first pass");
    const auto reader = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{another.store.directory});
    reader->refresh();
    const Lines lines = publishedLines(service.picture(), *reader);
    std::filesystem::remove_all(another.store.directory);
    return lines;
  }
  // Expects that a second mirror publishes the same within a second. The delay is the kernel's, which notifies of a
  // lost carrier late.
  void expectAgreement() {
    Lines ours, another;
    const auto isSame = [&] {
      another = publishedByAnother();
      ours = publishedLines(service_->picture(), *mount());
      return ours == another;
    };
    waitFor(isSame, "what another mirror publishes", 1000);
    EXPECT_THAT(ours, testing::ContainerEq(another));
  }
  void doAndExpect(std::initializer_list<const char*> commands) {
    for (const char* command : commands) {
      SCOPED_TRACE(command);
      ip(command);
      expectAgreement();
    }
  }

  std::uint64_t journalHead() const { return service_->publisher().store().seq(); }
  bool isInStore(const std::string& path, const std::string& text = "") const {
    const auto document = service_->publisher().store().get(Quillo::TableId::varnix, path);
    return document && document->find(text) != std::string::npos;
  }

  std::string name_ = "qm-" + std::to_string(getpid());
  std::string netnsDirectory_ = parent_ + "/netns";
  Quillo::Test::Traces traces_;
  std::optional<Vantu::NetNsGuard> inside_;
  std::unique_ptr<MirrorService> service_;
};

}  // namespace Mirror::Test
