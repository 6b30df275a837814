#pragma once
// What the tests of MirrorService share: a network namespace of the test's own, in which it stays, and a service that
// mirrors it into a store.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "mirror/MirrorService.h"
#include "mirror/testing/TreeExpectation.h"
#include "vantu/NetNs.h"

namespace Mirror::Test {

inline std::string outputOf(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  std::string output;
  char buffer[4096];
  while (const std::size_t size = fread(buffer, 1, sizeof(buffer), pipe)) output.append(buffer, size);
  if (pclose(pipe) != 0) throw std::runtime_error("failed: " + command);
  return output;
}

class MirrorServiceTest : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root, to make network namespaces";
    outputOf("ip netns add " + name_);
    inside_.emplace(name_);
    ip("link set lo up");
    ip("link add eth0 address 02:00:00:00:00:01 type veth peer name eth0-p");
    ip("link set eth0-p up");
    ip("link set eth0 up");
    std::filesystem::create_directories(directory_);
  }
  void TearDown() override {
    service_.reset();
    if (!inside_) return;
    inside_.reset();
    outputOf("ip netns del " + name_);
    if (isMounted_) umount(directory_.c_str());
    std::filesystem::remove_all(directory_);
  }

  static void ip(const std::string& arguments) { outputOf("ip " + arguments); }
  void ipBatch(const std::vector<std::string>& lines) const {
    const std::string file = "/tmp/" + name_ + ".batch";
    std::ofstream out(file);
    for (const auto& line : lines) out << line << "\n";
    out.close();
    ip("-batch " + file);
    std::filesystem::remove(file);
  }

  MirrorConfig config(int receiveBytes = RtSocket::defaultReceiveBytes) const {
    return {.store = {.directory = store_, .name = "mirror_test"},
            .netnsDirectory = netnsDirectory_,
            .settingsFile = settingsFile_,
            .receiveBytes = receiveBytes};
  }
  void start(int receiveBytes = RtSocket::defaultReceiveBytes) {
    service_ = std::make_unique<MirrorService>(config(receiveBytes));
    service_->start();
    waitFor([&] { return service_->isServing(); }, "the first complete pass");
  }

  // Runs the service as its event loop does, until the condition holds. The limit is ample for a busy machine.
  template <class Condition>
  void waitFor(const Condition& condition, const char* what, int milliseconds = 60'000) {
    for (int waited = 0; waited < milliseconds; ++waited) {
      pollfd entry{service_->fd(), POLLIN, 0};
      if (poll(&entry, 1, 0) > 0) {
        while (service_->receive()) {
        }
      }
      if (condition()) return;
      usleep(1000);
    }
    FAIL() << "not within " << milliseconds << " ms: " << what;
  }

  // A namespace's view as iproute2 tells it; `enter` is the command that enters it.
  static FakeKernel kernelOf(const std::string& enter = "") {
    FakeKernel kernel;
    std::map<std::string, int> ifIndexes;
    for (const auto& link : nlohmann::json::parse(outputOf(enter + "ip -j addr"))) {
      const int ifIndex = link.at("ifindex");
      ifIndexes[link.at("ifname")] = ifIndex;
      TestLink& known = kernel.links[ifIndex];
      known = {ifIndex, link.at("ifname"), 0, IF_OPER_DOWN};
      for (const auto& flag : link.at("flags")) {
        if (flag == "UP") known.flags = IFF_UP;
      }
      if (link.at("operstate") == "UP") known.operState = IF_OPER_UP;
      if (link.at("operstate") == "UNKNOWN") known.operState = IF_OPER_UNKNOWN;
      for (const auto& info : link.at("addr_info")) {
        TestAddress address;
        address.ifIndex = ifIndex;
        address.local = Vantu::IpGenAddr::fromString(info.at("local").get<std::string>());
        address.prefixLength = info.at("prefixlen");
        if (info.contains("tentative")) address.flags = IFA_F_TENTATIVE;
        if (info.contains("dadfailed")) address.flags = IFA_F_DADFAILED;
        kernel.addresses.push_back(address);
      }
    }
    static const std::map<std::string, std::uint16_t> states{{"PERMANENT", NUD_PERMANENT},
                                                             {"REACHABLE", NUD_REACHABLE},
                                                             {"STALE", NUD_STALE},
                                                             {"DELAY", NUD_DELAY},
                                                             {"PROBE", NUD_PROBE}};
    for (const auto& entry : nlohmann::json::parse(outputOf(enter + "ip -j neigh"))) {
      const auto state = states.find(entry.at("state").at(0));
      if (state == states.end() || !entry.contains("lladdr") || !ifIndexes.contains(entry.at("dev"))) continue;
      kernel.neighbours.push_back(
          {ifIndexes.at(entry.at("dev")), Vantu::IpGenAddr::fromString(entry.at("dst").get<std::string>()),
           Vantu::EthAddr::fromString(entry.at("lladdr").get<std::string>()), state->second});
    }
    return kernel;
  }
  virtual Lines kernelLines() const { return expectedLines(kernelOf()); }
  // The kernel tells of a lost carrier only after up to a second, and goes on changing while it is asked.
  void expectAgreement() {
    Lines ours;
    Lines kernels;
    const auto isSame = [&] {
      kernels = kernelLines();
      ours = linesOf(service_->picture());
      return ours == kernels;
    };
    waitFor(isSame, "the kernel's links and addresses", 1000);
    EXPECT_EQ(ours, kernels);
  }

  std::uint64_t journalHead() const { return service_->publisher().store().seq(); }
  // What a mirror journals at least when it is started: since when it follows the counters of each interface.
  std::size_t counterRecords() const { return service_->tree().ip6IntfStats->intfStats().size(); }
  bool isInStore(const std::string& path, const std::string& text = "") const {
    const auto document = service_->publisher().store().get(Quillo::TableId::varnix, path);
    return document && document->find(text) != std::string::npos;
  }

  std::string name_ = "qm-" + std::to_string(getpid());
  std::string directory_ = "/dev/shm/" + name_;
  std::string store_ = directory_ + "/store";
  std::string netnsDirectory_ = directory_ + "/netns";
  std::string settingsFile_;
  std::optional<Vantu::NetNsGuard> inside_;
  std::unique_ptr<MirrorService> service_;
  bool isMounted_ = false;
};

}  // namespace Mirror::Test
