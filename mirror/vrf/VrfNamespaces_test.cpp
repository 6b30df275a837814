// Network namespaces as VRFs, from real ones to a real store.

#include "mirror/vrf/VrfNamespaces.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>

#include <random>
#include <thread>

#include "kel/Trace.h"
#include "mirror/testing/MirrorServiceTest.h"

namespace Mirror {
namespace {

using namespace Test;
using testing::HasSubstr;
using testing::IsEmpty;

// As `ip netns add` does it: an empty file first, and the namespace over it.
void makeFile(const std::string& file) {
  close(open(file.c_str(), O_CREAT | O_EXCL | O_RDONLY | O_CLOEXEC, 0));
}
void makeNamespace(const std::string& file) {
  std::thread([&] {
    const bool isMade = unshare(CLONE_NEWNET) == 0 &&
                        mount("/proc/thread-self/ns/net", file.c_str(), "none", MS_BIND, nullptr) == 0;
    if (!isMade) throw std::runtime_error("no namespace");
  }).join();
}

class VrfServiceTest : public MirrorServiceTest {
 protected:
  void SetUp() override {
    MirrorServiceTest::SetUp();
    if (IsSkipped()) return;
    std::filesystem::create_directories(netnsDirectory_);
    Kel::TraceConfig::sinkIs([this](const Kel::TraceHandle&, unsigned level, const std::string& text) {
      if (level == 0) complaints_.push_back(text);
    });
  }
  void TearDown() override {
    Kel::TraceConfig::sinkIs({});
    service_.reset();
    if (std::filesystem::exists(netnsDirectory_)) {
      for (const auto& vrf : vrfs()) vrfDel(vrf);
    }
    MirrorServiceTest::TearDown();
  }

  std::string fileOf(const std::string& vrf) const { return netnsDirectory_ + "/ns-" + vrf; }
  void vrfAdd(const std::string& vrf) const {
    makeFile(fileOf(vrf));
    makeNamespace(fileOf(vrf));
  }
  void vrfDel(const std::string& vrf) const {
    umount2(fileOf(vrf).c_str(), MNT_DETACH);
    unlink(fileOf(vrf).c_str());
  }
  std::string entering(const std::string& vrf) const { return "nsenter '--net=" + fileOf(vrf) + "' "; }
  void inVrf(const std::string& vrf, const std::string& arguments) const {
    outputOf(entering(vrf) + "ip " + arguments);
  }
  // With a pair of interfaces, an address that all of them have, and a neighbour.
  void vrfAddWithContents(const std::string& vrf) const {
    vrfAdd(vrf);
    const std::string batch = "/tmp/" + name_ + ".vrf";
    std::ofstream(batch) << "link set lo up\nlink add eth0 type veth peer name eth0-p\nlink set eth0 up\n"
                            "link set eth0-p up\naddr add 10.0.0.1/24 dev eth0\naddr add 2001:db8::1/64 dev eth0\n"
                            "neigh add 10.0.0.9 lladdr 02:00:00:00:00:09 dev eth0\n";
    inVrf(vrf, "-batch " + batch);
    std::filesystem::remove(batch);
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
  Lines kernelLines() const override {
    Lines lines = MirrorServiceTest::kernelLines();
    for (const auto& vrf : vrfs()) lines.merge(expectedLines(kernelOf(entering(vrf)), {vrf, idOf(vrf)}));
    return lines;
  }
  void waitForVrf(const std::string& vrf) {
    waitFor([&] { return isServed(vrf); }, ("VRF " + vrf).c_str());
  }
  bool isServed(const std::string& vrf) const { return isInStore("ip/vrf/local.vrf/" + vrf, "vrfStateActive"); }
  // The store has what the picture shows.
  void expectStored() const {
    Lines shown;
    for (const auto& line : linesOf(service_->picture())) {
      if (line.find(" neighbour ") != std::string::npos) shown.insert(line);
    }
    EXPECT_EQ(neighbourLines(store_), shown);
  }
  // Duplicate address detection goes on for two seconds, and would be taken for a change.
  void waitForAddresses() {
    const auto areSettled = [&] {
      std::string tentative = outputOf("ip -6 addr show tentative");
      for (const auto& vrf : vrfs()) tentative += outputOf(entering(vrf) + "ip -6 addr show tentative");
      return tentative.empty();
    };
    waitFor(areSettled, "the end of duplicate address detection");
  }
  void expectAgreementOfAll() {
    expectAgreement();
    expectStored();
  }

  std::vector<std::string> complaints_;
};

TEST_F(VrfServiceTest, vrfsWithTheSameAddressesAsTheyComeAndGo) {
  vrfAddWithContents("red");
  start();
  EXPECT_TRUE(isServed("red")) << "what is there from the start is in the first pass";
  expectAgreementOfAll();
  vrfAddWithContents("blue");
  waitForVrf("blue");
  expectAgreementOfAll();
  EXPECT_EQ(service_->tree().intfStatusDir->intfStatus(Vantu::IntfId("blue/lo"))->ifIndex(),
            (idOf("blue") << 20) + 1);

  ip("addr add 10.0.0.1/24 dev eth0");
  for (const char* change :
       {"neigh add 10.0.0.8 lladdr 02:00:00:00:00:08 nud stale dev eth0", "neigh del 10.0.0.9 dev eth0",
        "neigh add fe80::7 lladdr 02:00:00:00:00:07 dev eth0",
        "neigh replace 10.0.0.8 lladdr 02:00:00:00:00:18 dev eth0",
        "neigh replace 10.0.0.8 lladdr 02:00:00:00:00:18 nud reachable dev eth0", "link set eth0 name lan",
        "neigh add proxy 10.0.0.77 dev lan", "addr add 192.0.2.1/24 dev lan", "link set lan down",
        "link set lan up", "link del lan"}) {
    SCOPED_TRACE(change);
    inVrf("red", change);
    expectAgreementOfAll();
  }
  EXPECT_EQ(service_->mirror().completeDumps(), 1U);
  vrfDel("red");
  waitFor([&] { return !isServed("red"); }, "red's end");
  expectAgreementOfAll();
  EXPECT_FALSE(isInStore("ip/vrf/config.vrfConfig/red") || isInStore("routing/vrf/config.vrfConfig/red") ||
               isInStore("routing6/vrf/info/red") || isInStore("interface/status.intfStatus/red/lo"));
  EXPECT_TRUE(isInStore("vrf/id/status", "red"));
  EXPECT_FALSE(isInStore("vrf/name/status", "red"));
  EXPECT_THAT(complaints_, IsEmpty());
}

TEST_F(VrfServiceTest, interfacesThatMove) {
  vrfAddWithContents("red");
  vrfAdd("blue");
  start();
  ip("addr add 10.1.1.1/24 dev eth0");
  expectAgreementOfAll();
  inVrf("red", "link set eth0 netns " + fileOf("blue"));
  expectAgreementOfAll();
  inVrf("blue", "link set eth0 up");
  inVrf("blue", "addr add 10.0.0.1/24 dev eth0");
  inVrf("red", "link set eth0-p name peer");
  expectAgreementOfAll();
  ip("link set eth0 netns " + fileOf("red"));
  expectAgreementOfAll();
  vrfDel("red");
  expectAgreementOfAll();
}

// A reader never sees a part of a VRF.
TEST_F(VrfServiceTest, aVrfComesAndGoesInOneCommit) {
  start();
  const char* const parts[] = {"ip/vrf/local.vrf/red",     "ip/vrf/config.vrfConfig/red",
                               "routing/vrf/info/red",     "interface/status.intfStatus/red/lo",
                               "ip6/config.intf/red/eth0", "l3/intf/config.intfConfig/red/eth0-p"};
  // Two names of one namespace, so that what red is to show is there when red comes.
  vrfAddWithContents("white");
  waitForVrf("white");
  expectAgreement();
  makeFile(fileOf("red"));
  ASSERT_EQ(mount(fileOf("white").c_str(), fileOf("red").c_str(), "none", MS_BIND, nullptr), 0);
  for (const bool isComing : {true, false}) {
    std::set<std::size_t> counts;
    const auto count = [&] {
      std::size_t present = neighbourLines(store_).size() - 1;  // without white's
      for (const char* part : parts) present += isInStore(part) ? 1U : 0U;
      counts.insert(present);
      return present;
    };
    if (!isComing) vrfDel("red");
    const std::size_t wanted = isComing ? std::size(parts) + 1 : 0;
    for (int waited = 0; waited < 3000 && count() != wanted; ++waited) {
      pollfd entry{service_->fd(), POLLIN, 0};
      poll(&entry, 1, 1);
      service_->receive();
    }
    EXPECT_EQ(counts, (std::set<std::size_t>{0, std::size(parts) + 1}));
  }
}

TEST_F(VrfServiceTest, madeAgainAtOnceItIsAnotherOne) {
  vrfAddWithContents("red");
  start();
  expectAgreementOfAll();
  const auto id = idOf("red");
  const auto old = service_->tree().intfStatusDir->intfStatus(Vantu::IntfId("red/lo"));
  vrfDel("red");
  vrfAdd("red");
  expectAgreementOfAll();
  EXPECT_NE(service_->tree().intfStatusDir->intfStatus(Vantu::IntfId("red/lo")), old);
  EXPECT_EQ(idOf("red"), id);
  waitForVrf("red");
}

TEST_F(VrfServiceTest, idsSurviveTheMirrorAndAFreshStartJournalsNothing) {
  for (const char* vrf : {"a", "b", "c"}) vrfAddWithContents(vrf);
  start();
  vrfDel("a");
  vrfDel("b");
  waitForAddresses();
  expectAgreementOfAll();
  const auto before = journalHead();
  service_.reset();
  start();
  expectAgreementOfAll();
  EXPECT_EQ(journalHead(), before + counterRecords());
  EXPECT_EQ(idOf("c"), 3U);
  vrfAdd("d");
  waitForVrf("d");
  EXPECT_EQ(idOf("d"), 4U) << "the lowest that nobody had";
  service_.reset();
  vrfAdd("b");
  start();
  EXPECT_EQ(idOf("b"), 2U);
  EXPECT_EQ(idOf("d"), 4U);
}

TEST_F(VrfServiceTest, forwardingIsEachNamespacesOwn) {
  vrfAdd("red");
  outputOf(entering("red") + "sh -c 'echo 1 >/proc/sys/net/ipv6/conf/all/forwarding'");
  start();
  EXPECT_TRUE(isInStore("routing6/vrf/config.vrfConfig/red", "true")) << "read at the start";
  EXPECT_TRUE(isInStore("routing/vrf/config.vrfConfig/red", "false"));
  outputOf(entering("red") + "sh -c 'echo 1 >/proc/sys/net/ipv4/ip_forward'");
  waitFor([&] { return isInStore("routing/vrf/config.vrfConfig/red", "true"); }, "the flag");
  EXPECT_TRUE(isInStore("routing/config", "false") && isInStore("routing6/config", "false"));
}

TEST_F(VrfServiceTest, settingsAreWatched) {
  settingsFile_ = directory_ + "/mirror.yaml";
  const auto write = [&](const char* rd) {
    std::ofstream(settingsFile_) << "vrfs:\n  red:\n    routeDistinguisher: " << rd
                                 << "\n    staticRoutes: [{prefix: 10.0.0.0/8, preference: 1}]\n";
  };
  write("65000:1");
  vrfAdd("red");
  start();
  EXPECT_TRUE(isInStore("ip/vrf/config.vrfConfig/red", "65000:1"));
  EXPECT_TRUE(isInStore("routing/vrf/config.vrfConfig/red", "10.0.0.0/8 1"));
  write("65000:2");
  waitFor([&] { return isInStore("ip/vrf/config.vrfConfig/red", "65000:2"); }, "the new route distinguisher");
  vrfDel("red");
  waitFor([&] { return !isServed("red"); }, "red's end");
  vrfAdd("red");
  waitForVrf("red");
  EXPECT_TRUE(isInStore("ip/vrf/config.vrfConfig/red", "65000:2"));
}

TEST_F(VrfServiceTest, aFileThatIsNoNamespaceYet) {
  start();
  makeFile(fileOf("red"));
  for (int turn = 0; turn < 20; ++turn) {
    service_->receive();
    usleep(1000);
  }
  EXPECT_FALSE(isServed("red"));
  makeNamespace(fileOf("red"));
  waitForVrf("red");  // without a poll
  EXPECT_THAT(complaints_, IsEmpty());
  expectAgreementOfAll();
}

TEST_F(VrfServiceTest, whatIsNoVrf) {
  const std::string longest(100, 'x');
  for (const std::string& name : {std::string(), std::string("default"), longest + "x"}) vrfAdd(name);
  vrfAdd(longest);
  vrfAdd("a.b c\303\244\377");
  makeFile(netnsDirectory_ + "/other");
  makeNamespace(netnsDirectory_ + "/other");
  makeFile(fileOf("own"));
  ASSERT_EQ(mount("/proc/thread-self/ns/net", fileOf("own").c_str(), "none", MS_BIND, nullptr), 0);
  ASSERT_EQ(mkfifo(fileOf("fifo").c_str(), 0600), 0);
  start();
  waitForVrf(longest);
  EXPECT_EQ(service_->vrfs(), 2U);
  EXPECT_TRUE(service_->tree().allVrfStatusLocal->vrfHas(L3::VrfName("a.b c\303\244\377")));
  const auto refusals = complaints_;
  EXPECT_THAT(refusals, testing::UnorderedElementsAre(HasSubstr("ns- is"), HasSubstr("ns-default is"),
                                                      HasSubstr("101 bytes"), HasSubstr("ns-own is")));
  service_->poll();
  service_->poll();
  EXPECT_EQ(complaints_, refusals) << "once";
  for (const char* name : {"", "default", "own"}) vrfDel(name);
  vrfDel(longest + "x");
  umount2((netnsDirectory_ + "/other").c_str(), MNT_DETACH);
}

TEST_F(VrfServiceTest, theDirectoryComesLaterAndIsReplaced) {
  std::filesystem::remove(netnsDirectory_);
  start();
  for (int round = 0; round < 2; ++round) {
    std::filesystem::create_directories(netnsDirectory_);
    vrfAdd("red");
    waitForVrf("red");
    vrfDel("red");
    std::filesystem::remove(netnsDirectory_);
    waitFor([&] { return !isServed("red"); }, "red's end");
    service_->poll();
  }
  EXPECT_THAT(complaints_, IsEmpty());
}

TEST_F(VrfServiceTest, deletedWhileItIsListed) {
  start();
  for (int round = 0; round < 5; ++round) {
    vrfAddWithContents("red");
    for (int turn = 0; turn < round; ++turn) service_->receive();
    vrfDel("red");
    expectAgreementOfAll();
  }
  EXPECT_EQ(service_->vrfs(), 0U);
  EXPECT_FALSE(isServed("red"));
  EXPECT_THAT(complaints_, IsEmpty());
}

std::size_t descriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

std::size_t residentKib() {
  std::size_t pages = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return resident * 4;
}

TEST_F(VrfServiceTest, nothingIsLeftOfVrfsThatAreGone) {
  start();
  const auto rounds = [&](int count) {
    for (int round = 0; round < count; ++round) {
      vrfAdd("v" + std::to_string(round % 3));
      if (round % 4 != 0) waitForVrf("v" + std::to_string(round % 3));
      vrfDel("v" + std::to_string(round % 3));
      if (round % 5 == 0) service_->poll();
    }
    expectAgreementOfAll();
  };
  rounds(20);
  const auto files = descriptors();
  const auto memory = residentKib();
  rounds(300);
  EXPECT_EQ(descriptors(), files);
#ifdef __SANITIZE_ADDRESS__
  static_cast<void>(memory);  // the sanitizer holds back what was freed, and looks for leaks itself
#else
  EXPECT_LT(residentKib(), memory + 4096);
#endif
  EXPECT_EQ(service_->vrfs(), 0U);
  EXPECT_THAT(complaints_, IsEmpty());
}

TEST_F(VrfServiceTest, anOverrunInAVrfIsMadeGoodAndJournalsOnlyWhatDiffers) {
  vrfAddWithContents("red");
  vrfAddWithContents("blue");
  start(1);
  waitForAddresses();
  expectAgreementOfAll();
  const std::string batch = "/tmp/" + name_ + ".many";
  {
    std::ofstream out(batch);
    for (int number = 0; number < 3000; ++number) {
      out << "neigh replace 10.0." << number / 250 + 1 << "." << number % 250 + 1
          << " lladdr 02:00:00:00:00:01 dev eth0\n";
    }
  }
  const auto before = journalHead();
  inVrf("red", "-batch " + batch);
  std::filesystem::remove(batch);
  expectAgreementOfAll();
  EXPECT_GT(service_->mirror(L3::VrfName("red"))->overruns(), 0U) << "or this test tests nothing";
  EXPECT_EQ(service_->picture().neighbours.size(), 3002U);
  EXPECT_EQ(journalHead(), before + 3000) << "one change a neighbour, and nothing else";
  service_->reread();
  expectAgreementOfAll();
  EXPECT_EQ(journalHead(), before + 3000);
}

TEST_F(VrfServiceTest, asIpNetnsMakesThem) {
  netnsDirectory_ = Vantu::defaultNetNsDirectory;
  start();
  const std::string vrf = name_ + "-red";
  const std::string ns = "ns-" + vrf;
  for (int round = 0; round < 3; ++round) {
    outputOf("ip netns add " + ns);
    outputOf("ip -n " + ns + " link set lo up");
    waitForVrf(vrf);
    waitFor([&] { return isInStore("ip/status.ipIntfStatus/" + vrf + "/lo", "127.0.0.1/8"); }, "its address");
    outputOf("ip netns del " + ns);
    waitFor([&] { return !isServed(vrf); }, "its end");
  }
  netnsDirectory_ = directory_ + "/netns";
}

// ---- random histories

class RandomVrfs : public VrfServiceTest, public testing::WithParamInterface<unsigned> {
 protected:
  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  std::string anyVrf() { return std::string(1, static_cast<char>('a' + below(4))); }
  bool isThere(const std::string& vrf) const { return std::filesystem::exists(fileOf(vrf)); }

  void change() {
    const std::string vrf = anyVrf();
    if (!isThere(vrf)) return below(2) == 0 ? vrfAdd(vrf) : vrfAddWithContents(vrf);
    static const char* const changes[] = {"link set lo up",
                                          "link set lo down",
                                          "link add eth0 type veth peer name eth0-p",
                                          "link del eth0",
                                          "link set eth0 up",
                                          "link set eth0-p up",
                                          "link set eth0 name lan",
                                          "addr add 10.0.0.1/24 dev eth0",
                                          "addr add 10.0.0.2/24 dev eth0",
                                          "addr del 10.0.0.1/24 dev eth0",
                                          "addr add 10.0.0.1/24 dev lan",
                                          "neigh replace 10.0.0.9 lladdr 02:00:00:00:00:09 dev eth0",
                                          "neigh replace 10.0.0.9 lladdr 02:00:00:00:00:0a nud stale dev eth0",
                                          "neigh replace fe80::9 lladdr 02:00:00:00:00:09 dev lan",
                                          "neigh del 10.0.0.9 dev eth0"};
    if (below(5) == 0) return vrfDel(vrf);
    const std::string other = anyVrf();
    const std::string what = below(6) == 0 && isThere(other) ? "link set eth0-p netns '" + fileOf(other) + "'"
                                                             : changes[below(std::size(changes))];
    // What does not go is no matter: there is no such interface, say.
    if (std::system((entering(vrf) + "ip " + what + " >/dev/null 2>&1").c_str()) == -1) FAIL();
  }

  std::mt19937 random_{GetParam()};
};

TEST_P(RandomVrfs, endInWhatTheKernelHas) {
  start(GetParam() % 2 == 0 ? 1 : RtSocket::defaultReceiveBytes);
  for (int round = 0; round < 15; ++round) {
    for (unsigned count = below(12); count > 0; --count) {
      change();
      if (below(3) == 0) service_->receive();
      if (below(10) == 0) service_->poll();
    }
    expectAgreementOfAll();
    ASSERT_FALSE(HasFailure()) << "seed " << GetParam() << ", round " << round;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomVrfs, testing::Range(1U, 4U));

}  // namespace
}  // namespace Mirror
