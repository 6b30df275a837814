// Counters of interfaces: numbers that the tests make up, and those of a real kernel.

#include "mirror/CounterMirror.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>
#include <sstream>

#include "kel/Trace.h"
#include "mirror/kernel/ForwardingFlags.h"
#include "mirror/testing/MirrorServiceTest.h"

namespace Mirror {
namespace {

using namespace Test;

// In 100 packets of 9000 octets, of these multicast 40 of 4000.
KernelCounters toldWith(const std::string& more = "") {
  std::istringstream file(
      "ifIndex \t3\nIp6InReceives \t100\nIp6OutForwDatagrams 20\nIp6OutRequests 30\nIp6InMcastPkts 40\n"
      "Ip6OutMcastPkts 10\nIp6InOctets 9000\nIp6OutOctets 5000\nIp6InMcastOctets 4000\nIp6OutMcastOctets 800\n" +
      more);
  return readCounters(file);
}

TEST(IntfCounters, areTheKernelsNumbersOfOldAndOfNew) {
  const Ip::IntfCounters newer(100, 9000, 60, 5000, 60, 5000, 50, 4200, 40, 4000, 10, 800);
  const Ip::IntfCounters older(100, 9000, 50, 5000, 60, 5000, 40, 4200, 40, 4000, 10, 800);
  EXPECT_EQ(countersOf(toldWith("Ip6OutTransmits 60\n"), {}), newer);
  EXPECT_EQ(countersOf(toldWith("Ip6InReceives none\nIp6OutTransmits 60\n"), {}), older)
      << "as far as it can be read";
  const auto datagrams = datagramsOf(toldWith("Ip6ReasmOKs 7\nIp6FragOKs 8\n"));
  EXPECT_EQ(datagrams.outRequests(), 30u);
  EXPECT_EQ(datagrams.reasmOKs() + datagrams.fragOKs(), 15u);
  EXPECT_EQ(datagrams.inDelivers(), Ip::IntfDatagrams::notCounted) << "the kernel does not name it";
  EXPECT_EQ(countersOf({{"Ip6InReceives", 5}}, {}), Ip::IntfCounters(5, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0));
}

TEST(IntfCounters, neverFallUnlessTheyBeginAgain) {
  const auto all = Kel::makePtr<Ip::AllIntfStats>("stats");
  const Vantu::IntfId eth0("eth0");
  auto told = toldWith();
  setCounters(*all, eth0, told, 1000);
  const auto record = all->intfStats(eth0);
  EXPECT_EQ(record->discontinuityTime(), 1000.0);
  EXPECT_EQ(record->utcOffset(), Kel::System::utcOffset());
  told["Ip6InMcastPkts"] = 41;  // read a moment after the count of all
  setCounters(*all, eth0, told, 1002);
  EXPECT_EQ(record->counters().inUcastPkts(), 60u);
  EXPECT_EQ(record->counters().inMcastPkts(), 41u);
  EXPECT_EQ(record->discontinuityTime(), 1000.0);
  told["Ip6InOctets"] = 90;
  told["Ip6InReceives"] = told["Ip6InMcastPkts"] = told["Ip6InMcastOctets"] = 1;
  setCounters(*all, eth0, told, 1004);
  EXPECT_EQ(record->counters().inUcastPkts(), 0u);
  EXPECT_EQ(record->counters().inUcastOctets(), 89u);
  EXPECT_EQ(record->discontinuityTime(), 1004.0);
}

class CounterMirrorTest : public MirrorServiceTest {
 protected:
  Kel::Ptr<const Ip::IntfStats> statsOf(const char* interface) const {
    return service_->tree().ip6IntfStats->intfStats(Vantu::IntfId(interface));
  }
  void readAgain() {
    for (int i = 0; i < 2; ++i) service_->poll();
    while (service_->receive()) {
    }
  }
  void waitForRecord(const char* interface, bool isThere) {
    const auto isSo = [&] {
      readAgain();
      return (statsOf(interface) != nullptr) == isThere;
    };
    waitFor(isSo, interface);
  }
};

TEST_F(CounterMirrorTest, recordsFollowTheKernelAndGoWithTheInterface) {
  ip("link add eth1 type veth peer name eth1-p");
  start();
  ASSERT_TRUE(statsOf("lo") && statsOf("eth1")) << "in the first pass";
  const auto begin = statsOf("lo")->discontinuityTime(), first = statsOf("eth0")->discontinuityTime();
  const auto before = statsOf("lo")->counters().inUcastPkts();
  execute("bash -c 'echo hello >/dev/udp/::1/9' 2>&1");
  readAgain();
  EXPECT_GE(statsOf("lo")->counters().inUcastPkts(), before + 2);
  EXPECT_EQ(statsOf("lo")->discontinuityTime(), begin);

  ip("link del eth0");
  waitForRecord("eth0", false);
  ip("link add eth0 type veth peer name eth0-p");
  waitForRecord("eth0", true);
  EXPECT_GT(statsOf("eth0")->discontinuityTime(), first);
  const Vantu::IntfId eth0("eth0");
  const auto& tree = service_->tree();
  EXPECT_TRUE(tree.ip6IntfProtocol->intfProtocol(eth0)->parameters().isEnabled());
  EXPECT_EQ(tree.ipIntfProtocol->intfProtocol(eth0)->parameters().retransmitTime(), 1000u);
  ip("link set eth0 mtu 1000");  // takes IPv6 away altogether
  waitForRecord("eth0", false);
  EXPECT_FALSE(tree.ip6IntfProtocol->intfProtocolHas(eth0));
  EXPECT_TRUE(tree.ipIntfProtocol->intfProtocolHas(eth0)) << "which it still has";
  EXPECT_TRUE(service_->tree().intfStatusDir->intfStatusHas(Vantu::IntfId("eth0")));

  const Vantu::IntfId eth3("eth3");
  ip("link add eth3 mtu 1000 type veth peer name eth3-p");
  const auto isKnown = [&] { return service_->receive(), tree.intfStatusDir->intfStatusHas(eth3); };
  waitFor(isKnown, "eth3");
  for (int i = 0; i < 3; ++i) readAgain();
  EXPECT_TRUE(tree.ipIntfProtocol->intfProtocolHas(eth3)) << "a new interface without IPv6";
  ip("link set eth3 mtu 1500");
  waitForRecord("eth3", true);
  EXPECT_EQ(tree.ip6IntfProtocol->intfProtocol(eth3)->parameters().retransmitTime(), 1000u)
      << "an old one gets IPv6";

  readAgain();                    // one in five readings decodes everything, and that has been the last one
  ip("link set eth1 name eth2");  // the kernel's counters stay the same
  waitForRecord("eth2", true);
  EXPECT_TRUE(tree.intfCountersDir->intfCountersHas(Vantu::IntfId("eth2")));
  EXPECT_TRUE(tree.ip6IntfProtocol->intfProtocolHas(Vantu::IntfId("eth2")));
  EXPECT_TRUE(tree.ipIntfProtocol->intfProtocolHas(Vantu::IntfId("eth2")));

  ip("link del eth2");
  service_.reset();
  service_ = std::make_unique<MirrorService>(config());
  service_->start();
  const auto isServing = [&] {
    EXPECT_TRUE(isInStore("ip6/intf/stats.intfStats/lo", "\"inUcastPkts\"")) << "at any time";
    return service_->isServing();
  };
  waitFor(isServing, "the first complete pass");
  EXPECT_FALSE(isInStore("ip6/intf/stats.intfStats/eth2"));
}

// As many files may be open as there are, and the one that the present namespace is remembered by.
TEST_F(CounterMirrorTest, filesOfUnchangedCountersAreNotReadAndRecordsOutlastWhatCannotBe) {
  start();
  waitForRecord("lo", true);
  ip("link del eth0");  // it may receive packets at any time
  waitForRecord("eth0", false);
  const auto begin = statsOf("lo")->discontinuityTime();
  rlimit usual{};
  getrlimit(RLIMIT_NOFILE, &usual);
  // The sanitizer opens files to look at an object of a type that is new to it, and these will be met.
  static const Kel::TraceHandle known("CounterMirrorTest");
  try {
    throw UnreadableFlagException("");
  } catch (const UnreadableFlagException& error) {
    QTRACE(known, 0) << error.what();
  }
  for (const auto* category : {&std::system_category(), &std::generic_category()}) {
    const std::error_code error(EMFILE, *category);
    QTRACE(known, 0) << error.message() << (error == std::errc::no_such_file_or_directory);
  }
  traces_.lines.clear();
  const int next = open("/dev/null", O_RDONLY);
  close(next);
  const rlimit tight{static_cast<rlim_t>(next) + 1, usual.rlim_max};
  const auto before = statsOf("lo")->counters().inPkts();
  for (const bool hasChanged : {false, true}) {
    if (hasChanged) execute("bash -c 'echo hello >/dev/udp/::1/9' 2>&1");
    setrlimit(RLIMIT_NOFILE, &tight);
    for (int i = 0; i < 3; ++i) readAgain();
    setrlimit(RLIMIT_NOFILE, &usual);
    ASSERT_TRUE(statsOf("lo"));
    EXPECT_EQ(statsOf("lo")->counters().inPkts(), before);
    // Only the first failure is traced, whichever interface it was.
    const auto isTold = std::ranges::any_of(
        traces_.lines, [&](const std::string& line) { return line.find("dev_snmp6/lo") != std::string::npos; });
    EXPECT_EQ(isTold, hasChanged);
    readAgain();
  }
  EXPECT_GT(statsOf("lo")->counters().inPkts(), before);
  EXPECT_EQ(statsOf("lo")->discontinuityTime(), begin);
}

}  // namespace
}  // namespace Mirror
