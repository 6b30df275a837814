#pragma once
// What tests with the real kernel share: a network namespace of the test's own, in which it stays, VRFs beside it, and
// a service that mirrors all of them into a store.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "kel/Trace.h"
#include "mirror/MirrorService.h"
#include "mirror/testing/Expectation.h"
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

// As `ip netns add` does it: an empty file first, and the namespace over it.
inline void makeFile(const std::string& file) {
  close(open(file.c_str(), O_CREAT | O_EXCL | O_RDONLY | O_CLOEXEC, 0));
}
inline void makeNamespace(const std::string& file) {
  std::thread([&] {
    const bool isMade = unshare(CLONE_NEWNET) == 0 &&
                        mount("/proc/thread-self/ns/net", file.c_str(), "none", MS_BIND, nullptr) == 0;
    if (!isMade) throw std::runtime_error("no namespace");
  }).join();
}

// A namespace's view as iproute2 tells it; `enter` is the command that enters it.
class KernelReader {
 public:
  explicit KernelReader(std::string enter) : enter_(std::move(enter)) {}
  FakeKernel read() {
    readAddresses();
    readNeighbours();
    for (const auto& entry : list("nexthop")) {
      TestNexthop& nexthop = kernel_.nexthops[entry.at("id").get<std::uint32_t>()];
      for (const auto& member : entry.value("group", json::array())) nexthop.members.push_back(member.at("id"));
      if (nexthop.members.empty()) nexthop.hop = hopOf(entry);
    }
    for (const bool isIpv6 : {false, true}) readRoutes(isIpv6);
    return std::move(kernel_);
  }

 private:
  using json = nlohmann::json;
  json list(const std::string& what) const { return json::parse(outputOf(enter_ + "ip -N -j " + what)); }
  static Vantu::IpGenAddr addr(const json& text) { return Vantu::IpGenAddr::fromString(text.get<std::string>()); }
  template <class Number>
  static Number number(const json& entry, const char* key, Number absent) {
    return entry.contains(key) ? static_cast<Number>(std::stoul(entry.at(key).get<std::string>(), nullptr, 0))
                               : absent;
  }
  static bool has(const json& entry, const char* flag) {
    const auto flags = entry.value("flags", json::array());
    return std::find(flags.begin(), flags.end(), flag) != flags.end();
  }

  void readAddresses() {
    for (const auto& link : list("addr")) {
      const int ifIndex = link.at("ifindex");
      ifIndexes_[link.at("ifname")] = ifIndex;
      const std::string state = link.at("operstate");
      kernel_.links[ifIndex] = {ifIndex, link.at("ifname"), has(link, "UP") ? unsigned{IFF_UP} : 0U,
                                state == "UP"        ? IF_OPER_UP
                                : state == "UNKNOWN" ? IF_OPER_UNKNOWN
                                                     : IF_OPER_DOWN};
      for (const auto& info : link.at("addr_info")) {
        TestAddress address{ifIndex, addr(info.at("local")), info.at("prefixlen")};
        if (info.contains("tentative")) address.flags = IFA_F_TENTATIVE;
        if (info.contains("dadfailed")) address.flags = IFA_F_DADFAILED;
        kernel_.addresses.push_back(address);
      }
    }
  }
  void readNeighbours() {
    static const std::map<std::string, std::uint16_t> states{{"PERMANENT", NUD_PERMANENT},
                                                             {"REACHABLE", NUD_REACHABLE},
                                                             {"STALE", NUD_STALE},
                                                             {"DELAY", NUD_DELAY},
                                                             {"PROBE", NUD_PROBE}};
    for (const auto& entry : list("neigh")) {
      const auto state = states.find(entry.at("state").at(0));
      if (state == states.end() || !entry.contains("lladdr")) continue;
      kernel_.neighbours.push_back({ifIndexes_[entry.at("dev")], addr(entry.at("dst")),
                                    Vantu::EthAddr::fromString(entry.at("lladdr").get<std::string>()),
                                    state->second});
    }
  }
  TestHop hopOf(const json& entry) {
    TestHop hop{"", ifIndexes_[entry.at("dev")], has(entry, "dead") || has(entry, "linkdown")};
    if (entry.contains("gateway")) hop.gateway = entry.at("gateway");
    if (entry.contains("via")) hop.gateway = entry.at("via").at("host");
    return hop;
  }
  void readRoutes(bool isIpv6) {
    for (const auto& entry : list(isIpv6 ? "-6 route" : "-4 route")) {
      TestRoute route{entry.at("dst").get<std::string>()};
      if (route.prefix == "default") route.prefix = isIpv6 ? "::/0" : "0.0.0.0/0";
      if (route.prefix.find('/') == std::string::npos) route.prefix += isIpv6 ? "/128" : "/32";
      route.metric = entry.value("metric", 0U);
      route.protocol = number(entry, "protocol", std::uint8_t{RTPROT_BOOT});
      route.type = number(entry, "type", route.type);
      route.tos = number(entry, "tos", route.tos);
      route.nexthopId = entry.value("nhid", 0U);
      const json alone = entry.contains("dev") ? json::array({entry}) : json::array();
      for (const auto& hop : route.nexthopId == 0 ? entry.value("nexthops", alone) : json::array()) {
        route.hops.push_back(hopOf(hop));
      }
      kernel_.routes.push_back(route);
    }
  }

  std::string enter_;
  FakeKernel kernel_;
  std::map<std::string, int> ifIndexes_;
};

class MirrorServiceTest : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root, to make network namespaces";
    outputOf("ip netns add " + name_);
    inside_.emplace(name_);
    for (const char* line : {"link set lo up", "link add eth0 address 02:00:00:00:00:01 type veth peer name eth0-p",
                             "link set eth0-p up", "link set eth0 up"}) {
      ip(line);
    }
    std::filesystem::create_directories(netnsDirectory_);
    Kel::TraceConfig::sinkIs([this](const Kel::TraceHandle&, unsigned level, const std::string& text) {
      if (level == 0) complaints_.push_back(text);
    });
  }
  void TearDown() override {
    Kel::TraceConfig::sinkIs({});
    service_.reset();
    if (!inside_) return;
    for (const auto& entry : std::filesystem::directory_iterator(netnsDirectory_)) {
      umount2(entry.path().c_str(), MNT_DETACH);
    }
    inside_.reset();
    outputOf("ip netns del " + name_);
    if (isMounted_) umount(directory_.c_str());
    std::filesystem::remove_all(directory_);
  }

  static void ip(const std::string& arguments) { outputOf("ip " + arguments); }
  void ipBatch(const std::vector<std::string>& lines, const std::string& enter = "") const {
    const std::string file = "/tmp/" + name_ + ".batch";
    std::ofstream(file) << fmt::format("{}\n", fmt::join(lines, "\n"));
    outputOf(enter + "ip -batch " + file);
    std::filesystem::remove(file);
  }

  // ---- VRFs
  std::string fileOf(const std::string& vrf) const { return netnsDirectory_ + "/ns-" + vrf; }
  std::string entering(const std::string& vrf) const { return "nsenter '--net=" + fileOf(vrf) + "' "; }
  void vrfAdd(const std::string& vrf) const {
    makeFile(fileOf(vrf));
    makeNamespace(fileOf(vrf));
  }
  // With a pair of interfaces, an address that all of them have, and a neighbour.
  void vrfAddWithContents(const std::string& vrf) const {
    vrfAdd(vrf);
    ipBatch({"link set lo up", "link add eth0 type veth peer name eth0-p", "link set eth0 up", "link set eth0-p up",
             "addr add 10.0.0.1/24 dev eth0", "addr add 2001:db8::1/64 dev eth0 nodad",
             "neigh add 10.0.0.9 lladdr 02:00:00:00:00:09 dev eth0"},
            entering(vrf));
  }
  void vrfDel(const std::string& vrf) const {
    umount2(fileOf(vrf).c_str(), MNT_DETACH);
    unlink(fileOf(vrf).c_str());
  }
  std::vector<std::string> vrfs() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(netnsDirectory_)) {
      const std::string name = entry.path().filename();
      if (name.starts_with("ns-") && Vantu::NetNs::isNamespace(entry.path())) names.push_back(name.substr(3));
    }
    return names;
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
    return {.store = {.directory = store_, .name = "mirror_test"},
            .netnsDirectory = netnsDirectory_,
            .settingsFile = settingsFile_,
            .receiveBytes = receiveBytes};
  }
  // Starts it anew when it runs.
  void start(int receiveBytes = RtSocket::defaultReceiveBytes) {
    service_.reset();
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

  // The picture and the store are what the kernel says. It tells of a lost carrier only after up to a second, and goes
  // on changing while it is asked.
  void expectAgreement() {
    Lines ours, kernels;
    const auto addKernel = [&](const std::string& enter, const TestScope& scope) {
      const FakeKernel kernel = KernelReader(enter).read();
      kernels.merge(expectedLines(kernel, scope));
      kernels.merge(expectedRouteLines(kernel, {{254, scope.id}}, scope));
    };
    const auto isSame = [&] {
      kernels.clear();
      addKernel("", {});
      for (const auto& vrf : vrfs()) addKernel(entering(vrf), {vrf, idOf(vrf)});
      ours = linesOf(service_->picture());
      const auto snapshot = mountOf(store_)->snapshot();
      ours.merge(neighbourLines(snapshot));
      ours.merge(routeLines(snapshot));
      return ours == kernels;
    };
    waitFor(isSame, "what the kernel says", 1000);
    EXPECT_THAT(differences(ours, kernels), testing::IsEmpty());
  }
  void doAndExpect(std::initializer_list<const char*> commands) {
    for (const char* command : commands) {
      SCOPED_TRACE(command);
      ip(command);
      expectAgreement();
    }
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
  std::vector<std::string> complaints_;
  std::optional<Vantu::NetNsGuard> inside_;
  std::unique_ptr<MirrorService> service_;
  bool isMounted_ = false;
};

}  // namespace Mirror::Test
