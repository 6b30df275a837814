// The counters of interfaces as a manager sees them.

#include "modules/quorinIpMIB.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "modules/frame/Enterprise.h"
#include "modules/testing/TestReference.h"
#include "modules/testing/TestTableTraces.h"

namespace {

using namespace Modules;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::string ifStatsTable = textOf(enterpriseObject({3, 27, 1, 1}));
constexpr const char* counters[] = {"InPkts",      "InOctets",      "OutPkts",      "OutOctets",
                                    "InUcastPkts", "InUcastOctets", "OutUcastPkts", "OutUcastOctets",
                                    "InMcastPkts", "InMcastOctets", "OutMcastPkts", "OutMcastOctets"};

std::string ifStatsCell(unsigned column, int version, std::uint32_t ifIndex) {
  return fmt::format("{}.1.{}.{}.{}", ifStatsTable, column, version, ifIndex);
}

class QuorinIpMIB : public ::testing::Test {
 protected:
  QuorinIpMIB() {
    init_quorinIpMIB("");
    lines.take();
  }
  ~QuorinIpMIB() override { unregister_quorinIpMIB(""); }

  // A row whose counters are `first` and the numbers after it.
  void rowIs(Ip::IpVersion version, std::uint32_t ifIndex, std::uint64_t first) {
    const auto row = tree.ipMib->ipIfStatsTableIs(IpSnmp::IpVersionIfIndex(version, ifIndex));
    unsigned column = 3;
    for (const char* counter : counters) {
      Kel::callOperation(*row, std::string("ipIfStats") + counter + "Is", {Kel::Datum(first)});
      reference.add(ifStatsCell(column++, version, ifIndex), ASN_COUNTER64, std::to_string(first++));
    }
    reference.add(ifStatsCell(15, version, ifIndex), ASN_TIMETICKS, "0");
    reference.add(ifStatsCell(16, version, ifIndex), ASN_GAUGE, "2000");
  }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  TraceLines lines{"Snmp"};
  Reference reference;
};

TEST_F(QuorinIpMIB, everyColumnOfEveryRowInOrder) {
  rowIs(Ip::ipVersion6, 3, ~11ULL);
  rowIs(Ip::ipVersion6, 0x7FFFFFFF, 1);
  rowIs(Ip::ipVersion4, 1 << 20 | 3, 1ULL << 32);
  rowIs(Ip::ipVersion4, 12, 100);
  EXPECT_EQ(agent.walk(ifStatsTable), reference.below(ifStatsTable));
  for (const auto& answer : reference.below(ifStatsTable)) EXPECT_EQ(agent.get(answer.name), answer);
  for (const unsigned column : {1U, 2U, 17U}) {
    EXPECT_EQ(agent.get(ifStatsCell(column, 2, 3)).value, "noSuchObject");
  }
  EXPECT_EQ(agent.get(ifStatsCell(3, 1, 3)).value, "noSuchInstance");
  EXPECT_EQ(agent.set(ifStatsCell(3, 2, 3), 1).errorStatus, SNMP_ERR_NOTWRITABLE);
  tree.ipMib->ipIfStatsTableDelAll();
  EXPECT_THAT(agent.walk(ifStatsTable), IsEmpty());
}

TEST_F(QuorinIpMIB, discontinuityIsAnUpTime) {
  rowIs(Ip::ipVersion6, 3, 1);
  const auto row = tree.ipMib->ipIfStatsTable(IpSnmp::IpVersionIfIndex(Ip::ipVersion6, 3));
  const auto ticks = [&] { return std::stoul(agent.get(ifStatsCell(15, 2, 3)).value); };
  const auto upTime = netsnmp_get_agent_uptime();
  row->discontinuityTimeIs(Kel::System::currentTime());
  EXPECT_NEAR(static_cast<double>(ticks()), static_cast<double>(upTime), 20);
  row->discontinuityTimeIs(Kel::System::currentTime() - 1e6);
  EXPECT_EQ(ticks(), 0U) << "before the agent's start";
}

TEST_F(QuorinIpMIB, traces) {
  rowIs(Ip::ipVersion6, 3, 1);
  agent.get(ifStatsCell(7, 2, 3));
  const std::string key = "Value('IpSnmp::IpVersionIfIndex', ** {'ipVersion': ipVersion6, 'ifIndex': 3})";
  EXPECT_EQ(withoutPointers(lines.take()),
            tracesOfGet("quorinIpIfStatsTable",
                        {{"quorinIpIfStatsIPVersion", "ipVersion6"}, {"quorinIpIfStatsIfIndex", "3"}},
                        {{"ipVersion", "ipVersion6"}, {"ifIndex", "3"}}, "quorinIpIfStatsInUcastPkts", key));
  agent.getNext(ifStatsTable);
  EXPECT_THAT(lines.take(),
              Contains("2 quorinIpIfStatsTable_get_first_data_point - needed 2 components, found only 0"));
}

TEST_F(QuorinIpMIB, isServedInTheDefaultContextAlone) {
  rowIs(Ip::ipVersion6, 3, 1);
  init_quorinIpMIB("red");
  EXPECT_THAT(
      lines.take(),
      ElementsAre(
          "1 initialize_table_quorinIpIfStatsTable initializing oid ." + ifStatsTable + " in context \"red\"",
          "2 initialize_table_quorinIpIfStatsTable in context \"red\" varnixPathWithContext not specified "));
  EXPECT_THAT(agent.walk(ifStatsTable, "red"), IsEmpty());
  unregister_quorinIpMIB("red");
}

TEST_F(QuorinIpMIB, snmptableShowsItByName) {
  rowIs(Ip::ipVersion6, 3, 7);
  const auto table = agent.outputOf("env -u MIBS -u MIBDIRS snmptable -v2c -c public -CHif ';' -M " QUORIN_MIB_DIR
                                    " -m QUORIN-IP-MIB AGENT quorinIpIfStatsTable");
  EXPECT_THAT(table, HasSubstr("ipv6.3;7;8;9;10;11;12;13;14;15;16;17;18;0:0:00:00.00;2000 milliseconds\n"));
}

}  // namespace
