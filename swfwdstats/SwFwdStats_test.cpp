// Readings of files that the tests write in the place of the kernel's, and of the kernel's own in a namespace.

#include "swfwdstats/SwFwdStats.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "kel/testing/TraceLines.h"
#include "swfwdstats/Counter.h"
#include "swfwdstats/KernelStats.h"

namespace Ip {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

const std::string names19 =
    "Ip: Forwarding DefaultTTL InReceives InHdrErrors InAddrErrors ForwDatagrams InUnknownProtos InDiscards "
    "InDelivers OutRequests OutDiscards OutNoRoutes ReasmTimeout ReasmReqds ReasmOKs ReasmFails FragOKs FragFails "
    "FragCreates";
const std::string values17 = "Ip: 1 64 101 102 103 104 105 106 107 108 109 110 111 112 113 114 115 116 117";
const std::string ipExt = "IpExt: InNoRoutes InTruncatedPkts InMcastPkts OutMcastPkts InBcastPkts OutBcastPkts\n";
const std::string netstat = "TcpExt: SyncookiesSent\nTcpExt: 9\n" + ipExt + "IpExt: 201 202 203 204 205 206 207\n";

class SwFwdStatsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(folder);
    setenv("PROC_NET_SNMP", path("snmp").c_str(), 1);
    setenv("PROC_NET_NETSTAT", path("netstat").c_str(), 1);
    setenv("PROC_NET_SNMP6", path("snmp6").c_str(), 1);
    Kel::System::clockIs([this] { return now; });
  }
  void TearDown() override {
    Kel::System::clockIs({});
    std::filesystem::remove_all(folder);
  }

  static inline const std::string folder = ::testing::TempDir() + "quorin-swfwd-" + std::to_string(getpid());
  static std::string path(const std::string& name) { return folder + "/" + name; }
  static void write(const char* name, const std::string& text) { std::ofstream(path(name)) << text; }
  static void writeSnmp(const std::string& header, const std::string& values = values17) {
    write("snmp", header + "\n" + values + "\nIcmp: InMsgs\n");
  }
  std::vector<std::string> traced() { return traces.take(); }

  Kel::Seconds now = 1000;
  Kel::Ptr<SwFwdStats> stats4 = swFwdStatsFactory(ipVersion4, "default");
  Kel::Ptr<SwFwdStats> stats6 = swFwdStatsFactory(ipVersion6, "default");
  KelTest::TraceLines traces{"IpSwFwdStats"};
};

TEST_F(SwFwdStatsTest, everyIpv4CounterHasItsPlaceInTheFiles) {
  writeSnmp(names19);
  write("netstat", netstat);
  EXPECT_EQ(stats4->inReceives(), 101u);
  EXPECT_EQ(
      Kel::print(stats4->data()),
      "Value('Ip::SwFwdStatsData', ** {'inReceives': 101, 'inOctets': 0, 'inHdrErrors': 102, 'inAddrErrors': "
      "103, 'forwDatagrams': 104, 'inUnknownProtos': 105, 'inDiscards': 106, 'inDelivers': 107, "
      "'outRequests': 108, 'outDiscards': 109, 'outNoRoutes': 110, 'outOctets': 0, 'reasmTimeout': 111, "
      "'reasmReqds': 112, 'reasmOKs': 113, 'reasmFails': 114, 'fragOKs': 115, 'fragFails': 116, "
      "'fragCreates': 117, 'inNoRoutes': 201, 'inTruncatedPkts': 202, 'inMcastPkts': 203, 'inMcastOctets': 0, "
      "'outMcastPkts': 204, 'outMcastOctets': 0, 'inBcastPkts': 205, 'outBcastPkts': 206})");
  EXPECT_EQ(stats4->inForwDatagrams(), 305u);
  EXPECT_EQ(stats4->fragReqds(), 231u);
  EXPECT_EQ(stats4->outTransmits(), 104ULL + 108 - 116 - 110 - 109 - 115 + 117);
  EXPECT_THAT(traced(), IsEmpty());
}

TEST_F(SwFwdStatsTest, everyIpv6CounterIsFoundByItsName) {
  std::string file;
  std::uint64_t value = 500;
#define FILE_LINE(Class, field, snmp6Name) \
  file += std::string(snmp6Name) + "   \t" + std::to_string(++value) + "\n";
  SW_FWD_COUNTERS(FILE_LINE)
#undef FILE_LINE
  write("snmp6", file);
  stats6->doFreshen();
  value = 500;
#define EXPECT_FIELD(Class, field, snmp6Name)            \
  EXPECT_EQ(stats6->field(), ++value) << #field;         \
  EXPECT_EQ(field##Counter.read(stats6->data()), value); \
  EXPECT_EQ(field##Counter.name(), #field);
  SW_FWD_COUNTERS(EXPECT_FIELD)
#undef EXPECT_FIELD
  EXPECT_EQ(stats6->inBcastPkts() + stats6->outBcastPkts(), 0u);
}

TEST_F(SwFwdStatsTest, namesThatAreNoCountersArePassedOverAndLargeValuesKept) {
  write("snmp6", "Ip6FragOK 1\nIp6FragOKs 4294967296\nIp6OutForwDatagrams 18446744073709551615\nIp6InReceives 5");
  EXPECT_EQ(stats6->fragOKs(), 1ULL << 32);
  EXPECT_EQ(stats6->forwDatagrams(), ~0ULL);
  EXPECT_EQ(stats6->inReceives(), 5u) << "the last line needs no line end";
  EXPECT_THAT(traced(),
              IsSupersetOf({"1 stat is Ip6InReceives, value is 5", "8 no counter found for stat string Ip6FragOK",
                            "8 setting inReceives (counter for stat string Ip6InReceives) to 5"}));
  for (const char* name : {"Ip6OutForwDatagrams_", "Ip6InReceivez", "ip6InReceives"}) {
    EXPECT_EQ(counter(name, static_cast<unsigned>(std::strlen(name))), nullptr) << name;
  }
  EXPECT_EQ(counter("Ip6FragOKs", 9), nullptr);
  EXPECT_EQ(counter("", 0), nullptr);
  EXPECT_EQ(counter("Ip6FragOKsAndMore", 10), &fragOKsCounter);

  write("snmp6", "Ip6InReceives 6\nIp6OutRequests none\nIp6FragOKs 7\n");
  now += 1;
  EXPECT_EQ(stats6->inReceives(), 6u);
  EXPECT_EQ(stats6->outRequests(), 0u);
  EXPECT_EQ(stats6->fragOKs(), 1ULL << 32) << "what the file does not tell stays";
}

TEST_F(SwFwdStatsTest, aHeaderOfAnotherLengthIsRefusedUnlessALongerOneOfTheKnownNamesIsAskedFor) {
  write("netstat", netstat);
  struct Case {
    std::string header;
    const char* length;
    bool isTakenOnRequest = false;
  };
  for (const auto& [header, length, isTakenOnRequest] :
       {Case{names19.substr(0, 222), "223"}, Case{names19 + "s", "225"},
        Case{names19 + std::string(2000, 'x'), "1024"}, Case{"Ip: Other" + names19.substr(3), "230"},
        Case{names19 + " OutTransmits", "237", true}}) {
    writeSnmp(header, values17 + " 118");
    for (int attempt = 0; attempt < 2; ++attempt) {
      EXPECT_EQ(stats4->inReceives(), 0u);
      EXPECT_THAT(traced(), ElementsAre("0 Header is " + std::string(length)));
    }
    SwFwdStatsData data;
    EXPECT_EQ(readKernelIp4(data, IpHeader::any), isTakenOnRequest) << header;
    EXPECT_EQ(data.fragCreates, isTakenOnRequest ? 117u : 0u);
    EXPECT_EQ(kernelIpHeaderAdvice().find(length) != std::string::npos, isTakenOnRequest) << header;
    traced();
  }
  EXPECT_EQ(stats4->lastUpdate(), 0.0);
  writeSnmp(names19);
  EXPECT_EQ(stats4->inReceives(), 101u);
  EXPECT_EQ(kernelIpHeaderAdvice(), "");
}

TEST_F(SwFwdStatsTest, whatIsMissingLosesNothingThatWasRead) {
  EXPECT_EQ(stats4->inReceives() + stats6->inReceives(), 0u);
  writeSnmp(names19);
  EXPECT_EQ(stats4->inReceives(), 0u) << "without netstat nothing counts";
  EXPECT_THAT(traced(), ElementsAre("0 Failed to open " + path("snmp"), "0 Failed to open " + path("snmp6"),
                                    "0 Failed to open " + path("netstat")));
  write("netstat", netstat);
  EXPECT_EQ(stats4->inNoRoutes(), 201u);
  now += 1;
  writeSnmp(names19, "Ip: 1 64 18446744073709551615 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17");
  write("netstat", ipExt + "TcpExt: 1\n");
  EXPECT_EQ(stats4->inReceives(), ~0ULL);
  EXPECT_EQ(stats4->inNoRoutes(), 201u) << "no values of IpExt: the old ones stay";
  EXPECT_EQ(stats4->outBcastPkts(), 206u);
  now += 1;
  writeSnmp(names19, "Ip: 1 64 1 2 3");
  EXPECT_EQ(stats4->inReceives(), ~0ULL);
  EXPECT_EQ(stats4->lastUpdate(), 1001.0);
  EXPECT_THAT(traced(), Contains("0 Failed to read the values in " + path("snmp")));
}

TEST_F(SwFwdStatsTest, readsTheFilesOfTheFirstReadingAgainWhenHalfASecondHasPassed) {
  write("snmp6", "Ip6InReceives 1\nIp6OutRequests 1\n");
  EXPECT_EQ(stats6->inReceives(), 1u);
  setenv("PROC_NET_SNMP6", "/nowhere", 1);
  write("snmp6", "Ip6InReceives 2\nIp6OutRequests 2\n");
  now = 1000.5;
  EXPECT_EQ(stats6->outRequests(), 1u);
  EXPECT_EQ(stats6->lastUpdate(), 1000.0);
  now = 1000.5009765625;
  EXPECT_EQ(stats6->outTransmits(), 2u);
  EXPECT_EQ(stats6->lastUpdate(), now);
}

TEST_F(SwFwdStatsTest, isMadeForAVrfNameAndAnIpVersion) {
  EXPECT_EQ(swFwdStatsFactory(ipVersion4, Kel::Name(100, 'v'))->name().size(), 100u);
  EXPECT_THROW(swFwdStatsFactory(ipVersion4, Kel::Name(101, 'v')), Kel::RangeException);
  EXPECT_EQ(swFwdStatsFactory(ipVersionUnknown, "default")->inReceives(), 0u);
  EXPECT_THAT(traced(), IsEmpty());
}

// The kernel's own files, in a namespace that is there and in one that is not.
TEST_F(SwFwdStatsTest, theThreadComesBackFromTheVrfsNamespaceWhateverHappens) {
  if (geteuid() != 0) GTEST_SKIP() << "making a network namespace needs root";
  const auto expectHome = [start = std::filesystem::read_symlink("/proc/thread-self/ns/net")] {
    EXPECT_EQ(std::filesystem::read_symlink("/proc/thread-self/ns/net"), start);
  };
  const std::string vrf = "swf-" + std::to_string(getpid());
  const auto shell = [&](const std::string& command) { ASSERT_EQ(std::system(command.c_str()), 0) << command; };
  shell("ip netns add ns-" + vrf + " && ip -n ns-" + vrf + " link set lo up && ip netns exec ns-" + vrf +
        " bash -c 'for i in 1 2 3; do echo >/dev/udp/::1/9; done'");
  std::filesystem::create_symlink("/proc/net/snmp6", path("snmp6"));
  const auto red6 = swFwdStatsFactory(ipVersion6, vrf);
  EXPECT_GE(red6->inReceives(), 3u);
  EXPECT_LE(red6->inReceives(), 60u) << "a new namespace has not seen more";
  expectHome();
  EXPECT_EQ(swFwdStatsFactory(ipVersion4, vrf)->inReceives(), 0u) << "no file";
  expectHome();
  traced();
  shell("ip netns del ns-" + vrf);
  now += 1;
  const auto last = red6->data().inReceives;
  EXPECT_EQ(red6->inReceives(), last) << "the last good value";
  red6->doFreshen();  // which has nothing new to say
  expectHome();
  EXPECT_THAT(traced(), ElementsAre(HasSubstr("0 cannot enter network namespace \"ns-" + vrf)));
  red6->hasNamespaceIs(false);
  EXPECT_EQ(red6->inReceives(), 0u) << "no last value of another kind of VRF";
  EXPECT_THAT(traced(), IsEmpty()) << "there is nothing to enter";
}

}  // namespace
}  // namespace Ip
