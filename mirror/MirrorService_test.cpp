// From a real kernel to a real store, in network namespaces of the tests' own.

#include "mirror/testing/MirrorServiceTest.h"

namespace Mirror {
namespace {

using namespace Test;
using testing::HasSubstr;
using testing::IsEmpty;

class RoutesOfKernelTest : public MirrorServiceTest {
 protected:
  void SetUp() override {
    MirrorServiceTest::SetUp();
    if (IsSkipped()) return;
    ipBatch({"link add eth1 type veth peer name eth1-p", "link set up dev eth1", "link set up dev eth1-p",
             "addr add 10.0.0.1/24 dev eth0", "addr add 10.1.0.1/24 dev eth1",
             "addr add 2001:db8::1/64 dev eth0 nodad", "addr add 2001:db8:1::1/64 dev eth1 nodad"});
  }
};

TEST_F(RoutesOfKernelTest, messagesLostByTheSocketAreMadeGood) {
  std::vector<std::string> lines;
  for (int number = 0; number < 3000; ++number) {
    lines.push_back("route add 50." + std::to_string(number / 256) + "." + std::to_string(number % 256) +
                    ".0/24 via 10.0.0.2");
  }
  start(1);
  ipBatch(lines);
  expectAgreement();
  EXPECT_GT(service_->mirror().overruns(), 0U) << "or this test tests nothing";
}

TEST_F(RoutesOfKernelTest, asTheyComeAndGo) {
  ip("route add 20.0.0.0/8 via 10.0.0.2 proto bgp");
  start();
  EXPECT_TRUE(isInStore("l3/config", "fecModePerVrf"));
  doAndExpect({"addr add 10.0.0.5/24 dev eth0 label eth0:1", "addr add 192.0.2.1 peer 192.0.2.9/32 dev eth0",
               "addr add 2001:db8::5/64 dev eth0", "addr del 10.0.0.5/24 dev eth0", "link set eth1-p name lan",
               "link set lan name eth1-p", "link add eth2 type veth peer name eth3", "link del eth2",
               "link set eth0-p address 02:00:00:00:00:02"});
  doAndExpect({"route add 21.0.0.0/8 nexthop via 10.0.0.2 nexthop via 10.1.0.2", "route add blackhole 22.0.0.0/8",
               "route add 23.0.0.0/8 dev eth1 scope link", "route add 24.0.0.0/8 via inet6 2001:db8::9",
               "route replace 20.0.0.0/8 via 10.1.0.9 proto static", "route append 20.0.0.0/8 via 10.1.0.8",
               "route prepend 20.0.0.0/8 via 10.1.0.7", "route add 20.0.0.0/8 via 10.0.0.9 metric 50",
               "route del 20.0.0.0/8 via 10.1.0.7", "route flush 20.0.0.0/8", "route add default via 10.0.0.3",
               "-6 route add 2001:1::/32 via 2001:db8::2", "-6 route append 2001:1::/32 via 2001:db8:1::2",
               "-6 route append 2001:1::/32 nexthop via 2001:db8::4 nexthop via 2001:db8:1::5",
               "-6 route del 2001:1::/32 via 2001:db8::2", "-6 route add unreachable 2001:2::/32",
               "-6 route replace 2001:1::/32 nexthop via 2001:db8::7 nexthop via 2001:db8:1::7",
               "-6 route add 2001:1::/32 dev eth0 metric 5", "-6 route del 2001:1::/32 metric 1024"});
  doAndExpect({"route add 25.0.0.0/8 via 10.0.0.9", "route replace 25.0.0.0/8 via 10.0.0.9 proto static",
               "nexthop add id 7 via 10.0.0.9 dev eth0", "route replace 25.0.0.0/8 nhid 7 proto static"});
  EXPECT_EQ(service_->mirror().completeDumps() + service_->mirror().routes().listings(), 2U)
      << "notifications alone did it";
  const auto changed = service_->tree().intfStatusDir->intfStatus(Vantu::IntfId("eth0-p"));
  EXPECT_EQ(changed->ethAddr().stringValue(), "02:00:00:00:00:02");
  EXPECT_THAT(publishedLines(service_->picture(), *mount()),
              testing::IsSupersetOf({"0 21.0.0.0/8 type 7/1 not persistent metric 0 10.0.0.2@eth0 10.1.0.2@eth1",
                                     "0 24.0.0.0/8 type 7/1 not persistent metric 0 2001:db8::9@eth0",
                                     "0 25.0.0.0/8 type 7/1 group metric 0 10.0.0.9@eth0",
                                     "0 2001:1::/32 type 4/1 not persistent metric 5 ::@eth0"}));
}

TEST_F(RoutesOfKernelTest, takenAwayWithoutAWord) {
  start();
  for (const char* mode : {"1", "0"}) {
    std::ofstream("/proc/sys/net/ipv4/nexthop_compat_mode") << mode;
    ipBatch({"nexthop add id 1 via 10.0.0.8 dev eth0", "nexthop add id 2 via 10.1.0.8 dev eth1",
             "nexthop add id 10 group 1/2", "route add 31.0.0.0/8 nhid 10", "route add 32.0.0.0/8 nhid 2",
             "route replace 33.0.0.0/8 nexthop via 10.0.0.2 nexthop via 10.1.0.2",
             "route replace 34.0.0.0/8 via 10.0.0.2 src 10.1.0.1"});
    ip("-6 route replace 2001:3::/32 nexthop via 2001:db8::7 nexthop via 2001:db8:1::7");
    doAndExpect({"nexthop replace id 2 via 10.1.0.9 dev eth1", "nexthop del id 2", "addr del 10.1.0.1/24 dev eth1",
                 "addr add 10.1.0.1/24 dev eth1",
                 "route replace 33.0.0.0/8 nexthop via 10.0.0.2 nexthop via 10.1.0.2", "link set eth1-p down",
                 "link set eth1-p up", "link set eth1 down", "link set eth1 up", "link set eth0 down",
                 "link set eth0 up", "addr add 2001:db8::1/64 dev eth0 nodad",
                 "addr add 2001:db8:1::1/64 dev eth1 nodad"});
  }
  ip("route add 35.0.0.0/8 via 10.1.0.3");
  doAndExpect({"link set eth1 name lan", "link del lan"});
}

TEST_F(MirrorServiceTest, whatDoesNotFitIntoAFullStoreComesLater) {
  ASSERT_EQ(::mount("tmpfs", parent_.c_str(), "tmpfs", 0, "size=1m"), 0);
  std::filesystem::create_directories(netnsDirectory_);
  start();
  const std::string filler = parent_ + "/filler";
  std::ofstream(filler) << std::string(1 << 20, ' ');
  std::vector<std::string> lines;
  for (int number = 0; number < 1000; ++number) {
    lines.push_back(fmt::format("addr add 10.0.{}.{}/32 dev eth0", number / 250, number % 250));
  }
  ipBatch(lines);
  waitFor([&] { return linesOf(service_->picture()).contains("eth0 status 10.0.3.249/32"); }, "the last address");
  const std::filesystem::path report = directory_ + "/publisher.lock";
  const auto longAgo = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
  service_->poll();
  std::filesystem::last_write_time(report, longAgo);
  service_->poll();
  EXPECT_EQ(std::filesystem::last_write_time(report), longAgo) << "readers must not take the store for current";
  EXPECT_FALSE(isInStore("ip/config.ipIntfConfig/eth0", "10.0.")) << "or the store was not full";
  EXPECT_THAT(traces_.lines, testing::ElementsAre(HasSubstr("; trying again every second")));
  ip("addr del 10.0.3.249/32 dev eth0");
  std::filesystem::remove(filler);
  service_->poll();
  EXPECT_THAT(traces_.lines.back(), HasSubstr("is written again"));
  service_->poll();
  EXPECT_GT(std::filesystem::last_write_time(report), longAgo);
  expectAgreement();
  EXPECT_TRUE(isInStore("ip/config.ipIntfConfig/eth0", "10.0.3.248/32"));
}

TEST_F(MirrorServiceTest, theFirstPassWaitsForRoom) {
  ASSERT_EQ(::mount("tmpfs", parent_.c_str(), "tmpfs", 0, "size=1m"), 0);
  std::filesystem::create_directories(netnsDirectory_);
  service_ = std::make_unique<MirrorService>(config());
  const std::string filler = parent_ + "/filler";
  std::ofstream(filler) << std::string(1 << 20, ' ');
  service_->start();
  waitFor([&] { return !traces_.lines.empty(); }, "the first attempt");
  service_->poll();
  EXPECT_THAT(traces_.lines, testing::ElementsAre(HasSubstr("; trying again every second")));
  EXPECT_FALSE(service_->isServing());
  std::filesystem::remove(filler);
  service_->poll();
  waitFor([&] { return service_->isServing(); }, "the first complete pass");
  expectAgreement();
}

TEST_F(MirrorServiceTest, aStoreThatWasRemovedIsMadeAnewWithGrowingPausesIfItRecurs) {
  ip("addr add 10.0.0.1/24 dev eth0");
  start();
  static Kel::Seconds now;
  now = Kel::System::currentTime();
  Kel::System::clockIs([] { return now; });
  unsigned found = 0;
  for (int second = 0; second < 600; ++second, ++now) {
    if (std::filesystem::remove_all(directory_) > 0) ++found;
    service_->poll();
  }
  EXPECT_GT(found, 50U);
  EXPECT_LT(found, 80U);
  EXPECT_THAT(traces_.take(), testing::ElementsAre(HasSubstr("was removed"), HasSubstr("since this recurs")));
  Kel::System::clockIs({});
}

TEST_F(MirrorServiceTest, idsSurviveTheMirrorAndAFreshStartJournalsNothing) {
  for (const char* vrf : {"a", "b", "c"}) vrfAdd(vrf);
  start();
  for (const char* vrf : {"a", "b"}) vrfDel(vrf);
  expectAgreement();
  const auto before = journalHead();
  start();
  // At least since when the mirror follows the counters of each interface.
  const auto counters = service_->tree().ip6IntfStats->intfStats().size();
  const auto links = service_->tree().intfCountersDir->intfCounters().size();
  EXPECT_GE(journalHead(), before + counters);
  EXPECT_LE(journalHead(), before + counters + links) << "packets may have come meanwhile";
  EXPECT_EQ(idOf("c"), 3U);
  vrfAdd("d");
  vrfAdd("b");
  start();
  EXPECT_EQ(idOf("b"), 2U);
  EXPECT_EQ(idOf("d"), 4U);
  const auto old = service_->tree().intfStatusDir->intfStatus(Vantu::IntfId("b/lo"));
  vrfDel("b");
  vrfAdd("b");
  waitFor([&] { return service_->tree().intfStatusDir->intfStatus(Vantu::IntfId("b/lo")) != old; }, "the new b");
  waitForVrf("b");
  EXPECT_EQ(idOf("b"), 2U);
  EXPECT_THAT(traces_.lines, IsEmpty());
}

TEST_F(MirrorServiceTest, namespacesThatAreNoVrfsYetOrNeverWillBe) {
  for (const auto& name : {std::string(), std::string("default"), std::string(101, 'x')}) vrfAdd(name);
  ASSERT_EQ(mkfifo(fileOf("fifo").c_str(), 0600), 0);
  start();
  makeFile(fileOf("red"));
  service_->poll();
  const auto refusals = traces_.lines;
  EXPECT_THAT(refusals, testing::UnorderedElementsAre(HasSubstr("ns- is"), HasSubstr("ns-default is"),
                                                      HasSubstr("101 bytes")));
  EXPECT_FALSE(isServed("red"));
  makeNamespace(fileOf("red"));
  waitForVrf("red");  // without a poll
  EXPECT_EQ(traces_.lines, refusals) << "once";
  EXPECT_EQ(service_->vrfs(), 1U);
}

TEST_F(MirrorServiceTest, theDirectoryOfNamespacesComesLaterAndIsReplaced) {
  std::filesystem::remove(netnsDirectory_);
  start();
  for (int round = 0; round < 2; ++round) {
    std::filesystem::create_directories(netnsDirectory_);
    vrfAdd("red");
    waitForVrf("red");
    vrfDel("red");
    std::filesystem::remove(netnsDirectory_);
    waitForVrf("red", false);
    service_->poll();
  }
  std::filesystem::create_directories(netnsDirectory_);
  EXPECT_THAT(traces_.lines, IsEmpty());
}

}  // namespace
}  // namespace Mirror
