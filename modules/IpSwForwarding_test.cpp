// The software-forwarding statistics as a manager sees them, from files that the test writes.

#include "modules/IpSwForwarding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "kel/System.h"
#include "modules/frame/Enterprise.h"
#include "modules/testing/TestReference.h"
#include "modules/testing/TestTableTraces.h"

namespace {

using namespace Modules;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const std::string swFwdTable = textOf(enterpriseObject({3, 1, 1, 1}));

std::string swFwdCell(unsigned column, int version) {
  return fmt::format("{}.1.{}.{}", swFwdTable, column, version);
}

// The columns in order, and what the files below say of each.
struct Statistic {
  const char* object;
  unsigned bits;
  std::uint64_t v4, v6;
};
constexpr std::uint64_t huge = (1ULL << 32) + 5;
constexpr Statistic statistics[] = {{"InReceives", 32, huge, 30},
                                    {"HCInReceives", 64, huge, 30},
                                    {"InOctets", 32, 0, 31},
                                    {"HCInOctets", 64, 0, 31},
                                    {"InHdrErrors", 32, 2, 32},
                                    {"InNoRoutes", 32, 20, 33},
                                    {"InAddrErrors", 32, 3, 34},
                                    {"InUnknownProtos", 32, 5, 35},
                                    {"InTruncatedPkts", 32, 21, 36},
                                    {"InForwDatagrams", 32, 24, 70},
                                    {"HCInForwDatagrams", 64, 24, 70},
                                    {"ReasmReqds", 32, 12, 43},
                                    {"ReasmOKs", 32, 13, 44},
                                    {"ReasmFails", 32, 14, 45},
                                    {"InDiscards", 32, 6, 38},
                                    {"InDelivers", 32, 7, 39},
                                    {"HCInDelivers", 64, 7, 39},
                                    {"OutRequests", 32, 8, 40},
                                    {"HCOutRequests", 64, 8, 40},
                                    {"OutNoRoutes", 32, 10, 42},
                                    {"OutForwDatagrams", 32, 4, 37},
                                    {"HCOutForwDatagrams", 64, 4, 37},
                                    {"OutDiscards", 32, 9, 41},
                                    {"OutFragReqds", 32, 31, 93},
                                    {"OutFragOKs", 32, 15, 46},
                                    {"OutFragFails", 32, 16, 47},
                                    {"OutFragCreates", 32, 17, 48},
                                    {"OutTransmits", 32, ~20ULL, ~50ULL},
                                    {"HCOutTransmits", 64, ~20ULL, ~50ULL},
                                    {"OutOctets", 32, 0, 49},
                                    {"HCOutOctets", 64, 0, 49},
                                    {"InMcastPkts", 32, 22, 50},
                                    {"HCInMcastPkts", 64, 22, 50},
                                    {"InMcastOctets", 32, 0, 51},
                                    {"HCInMcastOctets", 64, 0, 51},
                                    {"OutMcastPkts", 32, 23, 52},
                                    {"HCOutMcastPkts", 64, 23, 52},
                                    {"OutMcastOctets", 32, 0, 53},
                                    {"HCOutMcastOctets", 64, 0, 53},
                                    {"InBcastPkts", 32, 24, 0},
                                    {"HCInBcastPkts", 64, 24, 0},
                                    {"OutBcastPkts", 32, 25, 0},
                                    {"HCOutBcastPkts", 64, 25, 0}};

class IpSwForwarding : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::filesystem::create_directory(folder());
    for (const auto& [variable, name, text] :
         {std::tuple{"PROC_NET_SNMP", "snmp",
                     "Ip: Forwarding DefaultTTL InReceives InHdrErrors InAddrErrors ForwDatagrams InUnknownProtos "
                     "InDiscards InDelivers OutRequests OutDiscards OutNoRoutes ReasmTimeout ReasmReqds ReasmOKs "
                     "ReasmFails FragOKs FragFails FragCreates\n"
                     "Ip: 1 64 4294967301 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17\n"},
          {"PROC_NET_NETSTAT", "netstat", "IpExt: InNoRoutes\nIpExt: 20 21 22 23 24 25 26\n"},
          {"PROC_NET_SNMP6", "snmp6",
           "Ip6InReceives 30\nIp6InOctets 31\nIp6InHdrErrors 32\nIp6InNoRoutes 33\nIp6InAddrErrors 34\n"
           "Ip6InUnknownProtos 35\nIp6InTruncatedPkts 36\nIp6OutForwDatagrams 37\nIp6InDiscards 38\n"
           "Ip6InDelivers 39\nIp6OutRequests 40\nIp6OutDiscards 41\nIp6OutNoRoutes 42\nIp6ReasmReqds 43\n"
           "Ip6ReasmOKs 44\nIp6ReasmFails 45\nIp6FragOKs 46\nIp6FragFails 47\nIp6FragCreates 48\nIp6OutOctets 49\n"
           "Ip6InMcastPkts 50\nIp6InMcastOctets 51\nIp6OutMcastPkts 52\nIp6OutMcastOctets 53\n"}}) {
      setenv(variable, (folder() + "/" + name).c_str(), 1);
      std::ofstream(folder() + "/" + name) << text;
    }
  }
  static void TearDownTestSuite() { std::filesystem::remove_all(folder()); }
  static std::string folder() { return ::testing::TempDir() + "quorin-swfwdtable-" + std::to_string(getpid()); }

  IpSwForwarding() {
    init_IpSwForwarding("");
    init_IpSwForwarding("red");
    // Of a table as small as this, the order of iteration is that of insertion.
    for (const auto version : {Ip::ipVersion4, Ip::ipVersion6}) tree.ipMib->ipSwFwdStatsIs(version, "default");
    for (const auto version : {Ip::ipVersion6, Ip::ipVersion4}) tree.redIpMib->ipSwFwdStatsIs(version, "default");
    for (const int version : {1, 2}) {
      unsigned column = 3;
      for (const auto& statistic : statistics) {
        const auto value = version == 1 ? statistic.v4 : statistic.v6;
        const auto shown = statistic.bits == 32 ? value & 0xFFFFFFFF : value;
        reference.add(swFwdCell(column++, version), statistic.bits == 32 ? ASN_COUNTER : ASN_COUNTER64,
                      std::to_string(shown));
      }
      reference.add(swFwdCell(46, version), ASN_TIMETICKS, "0");
      reference.add(swFwdCell(47, version), ASN_GAUGE, "500");
    }
    lines.take();
  }
  ~IpSwForwarding() override {
    unregister_IpSwForwarding("red");
    unregister_IpSwForwarding("");
  }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  TraceLines lines{"Snmp"};
  Reference reference;
};

TEST_F(IpSwForwarding, everyColumnInEveryContextWhateverTheOrderOfTheCollection) {
  EXPECT_NE(tree.ipMib->ipSwFwdStats().begin()->first, tree.redIpMib->ipSwFwdStats().begin()->first);
  for (const char* context : {"public", "red"}) {
    EXPECT_EQ(agent.walk(swFwdTable, context), reference.below(swFwdTable)) << context;
  }
  const auto all = reference.below(swFwdTable);
  for (const auto& answer : all) EXPECT_EQ(agent.get(answer.name, "red"), answer);
  EXPECT_EQ(agent.getNext(swFwdTable + ".1.7.0").name, swFwdCell(7, 1));
  EXPECT_EQ(agent.getNext(swFwdTable + ".1.7.1.9").name, swFwdCell(7, 2));
  EXPECT_EQ(agent.getNext(swFwdCell(47, 2)).type, SNMP_ENDOFMIBVIEW);
}

TEST_F(IpSwForwarding, rowsAreThoseOfTheCollectionAtTheMoment) {
  tree.ipMib->ipSwFwdStatsDel(Ip::ipVersion4);
  EXPECT_EQ(agent.get(swFwdCell(3, 1)).value, "noSuchInstance");
  EXPECT_EQ(agent.getNext(swFwdCell(3, 1)).name, swFwdCell(3, 2));
  tree.ipMib->ipSwFwdStatsDelAll();
  EXPECT_THAT(agent.walk(swFwdTable), IsEmpty());
}

TEST_F(IpSwForwarding, otherColumnsAreNotThereAndSetIsRefused) {
  for (const unsigned column : {1U, 2U, 48U}) EXPECT_EQ(agent.get(swFwdCell(column, 1)).value, "noSuchObject");
  for (const unsigned column : {3U, 47U}) {
    EXPECT_EQ(agent.set(swFwdCell(column, 1), 1).errorStatus, SNMP_ERR_NOTWRITABLE);
  }
}

TEST_F(IpSwForwarding, tracesOfAWalk) {
  agent.getNext(swFwdTable + ".1.3");
  const auto said = withoutPointers(lines.take());
  for (const char* line : {"_get_first_data_point - allocated new loop context ",
                           "IterationHelper - iterator has another value: ipVersion=ipVersion4",
                           "_get_next_data_point - advancing loop context  ; data context 0",
                           "IterationHelper - iterator is at end", "_handler: request mode 160",
                           "_handler: request GET for column quorinSwFwdIpStatsInReceives, key ipVersion4"}) {
    EXPECT_THAT(said, Contains("2 quorinSwFwdIpStatsTable" + std::string(line)));
  }
  EXPECT_THAT(said, Not(Contains(HasSubstr("hint")))) << "a table without an order has no use for one";
}

TEST_F(IpSwForwarding, snmpwalkShowsItByName) {
  const auto walked = agent.outputOf("env -u MIBS -u MIBDIRS snmpwalk -v2c -c public -OQ -M " QUORIN_MIB_DIR
                                     " -m QUORIN-SW-FWD-IP-MIB AGENT quorinSwFwdIpStatsTable");
  for (const auto& statistic : statistics) {
    const auto shown = statistic.bits == 32 ? statistic.v6 & 0xFFFFFFFF : statistic.v6;
    EXPECT_THAT(walked, HasSubstr(fmt::format("::quorinSwFwdIpStats{}.ipv6 = {}\n", statistic.object, shown)));
  }
  EXPECT_THAT(walked, HasSubstr("::quorinSwFwdIpStatsRefreshRate.ipv4 = 500 milliseconds\n"));
}

}  // namespace
