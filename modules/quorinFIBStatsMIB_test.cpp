// The FIB statistics tables as a manager sees them.

#include "modules/quorinFIBStatsMIB.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "fibstats/FibStatsMib.h"
#include "modules/frame/Enterprise.h"
#include "modules/testing/TestReference.h"
#include "modules/testing/TestTableTraces.h"
#include "snmp/Config.h"

namespace {

using namespace Modules;
using namespace FibStatsSnmp;
using Ip::ipVersion4, Ip::ipVersion6;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::string fibObjects = textOf(enterpriseObject({3, 23, 1}));
const char* const fibTables[] = {"quorinFIBStatsSummaryTable", "quorinFIBStatsByRouteTypeTable",
                                 "quorinFIBStatsByPrefixLenTable"};

// The column that is served of table 1 to 3, at this index.
template <class... Index>
std::string fibCount(unsigned table, Index... index) {
  std::string name = fmt::format("{}.{}.1.2", fibObjects, table);
  ((name += "." + std::to_string(index)), ...);
  return name;
}

class quorinFIBStatsMIB : public ::testing::Test {
 protected:
  quorinFIBStatsMIB() {
    enter();
    lines.take();
  }
  ~quorinFIBStatsMIB() override { leave(); }
  void enter() {
    for (const char* context : {"", "red"}) init_quorinFIBStatsMIB(context);
  }
  void leave() {
    for (const char* context : {"", "red"}) unregister_quorinFIBStatsMIB(context);
  }

  void routesAre(unsigned number, Ip::IpVersion version, RouteType type, unsigned length) {
    for (; number > 0; --number) mib->routeInc(version, type, length);
  }
  // Every row, from the entries alone.
  Reference reference() const {
    Reference all;
    const auto add = [&](const std::string& name, const RouteCount& row) {
      all.add(name, ASN_UNSIGNED, std::to_string(row.totalRoutes()));
    };
    for (const auto& [version, row] : mib->summaryTable()) add(fibCount(1, int{version}), *row);
    for (const auto& [key, row] : mib->routeTypeTable()) {
      add(fibCount(2, int{key.addressFamily()}, int{key.routeType()}), *row);
    }
    for (const auto& [key, row] : mib->prefixLenTable()) {
      add(fibCount(3, int{key.addressFamily()}, key.prefixLen().value()), *row);
    }
    return all;
  }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  TraceLines lines{"Snmp"};
  Kel::Ptr<FibStatsMib> mib = tree.fibStatsMib;
};

TEST_F(quorinFIBStatsMIB, rowsOfEachTable) {
  EXPECT_THAT(agent.walk(fibObjects), IsEmpty());
  routesAre(2, ipVersion4, routeTypeStatic, 24);
  routesAre(1, ipVersion4, routeTypeRip, 0);
  EXPECT_THAT(agent.walk(fibObjects + ".1"), ElementsAre(Answer{fibCount(1, 1), ASN_UNSIGNED, "3"}));
  EXPECT_EQ(agent.getNext(fibCount(1, 1)).name, fibCount(2, 1, 3)) << "the end of the first table";
  EXPECT_EQ(agent.getNext(fibCount(2, 1, 4)).name, fibCount(2, 1, 8)) << "4 is no type";
  routesAre(3, ipVersion6, routeTypeOspf, 128);
  routesAre(1, ipVersion4, routeTypeAttached, 32);
  mib->summaryTableIs(ipVersion6)->totalRoutesIs(0xFFFFFFFF);
  EXPECT_EQ(agent.walk(fibObjects), reference().below(fibObjects));
  EXPECT_EQ(agent.get(fibCount(1, 2)).value, "4294967295");
  for (const char* other : {".1.1.1.1", ".2.1.1.1.3", ".3.1.3.1.24"}) {
    EXPECT_EQ(agent.get(fibObjects + other).value, "noSuchObject");
  }
  EXPECT_EQ(agent.get(fibCount(2, 1, 4)).value, "noSuchInstance");
  EXPECT_EQ(agent.set(fibCount(3, 1, 24), 1).errorStatus, SNMP_ERR_NOTWRITABLE);
  mib->routeDec(ipVersion4, routeTypeRip, 0);
  EXPECT_EQ(agent.get(fibCount(3, 1, 0)).value, "noSuchInstance");
  EXPECT_EQ(agent.walk(fibObjects), reference().below(fibObjects));
}

TEST_F(quorinFIBStatsMIB, eachContextHasItsOwn) {
  routesAre(1, ipVersion4, routeTypeBgp, 24);
  const auto red = tree.vrfMibs->mibs("red")->fibstatsmib();
  red->routeInc(ipVersion6, routeTypeConnected, 64);
  EXPECT_THAT(agent.walk(fibObjects, "red"),
              ElementsAre(Answer{fibCount(1, 2), ASN_UNSIGNED, "1"}, Answer{fibCount(2, 2, 2), ASN_UNSIGNED, "1"},
                          Answer{fibCount(3, 2, 64), ASN_UNSIGNED, "1"}));
  EXPECT_THAT(agent.walk(fibObjects + ".2"), ElementsAre(Answer{fibCount(2, 1, 14), ASN_UNSIGNED, "1"}));
  unregister_quorinFIBStatsMIB("red");
  EXPECT_THAT(lines.take(), Contains("2 Unregistering quorinFIBStatsMIB in context \"red\""));
  EXPECT_THAT(agent.walk(fibObjects, "red"), IsEmpty());
  init_quorinFIBStatsMIB("red");
  for (unsigned table = 1; table <= 3; ++table) {
    EXPECT_THAT(
        lines.take(),
        ::testing::IsSupersetOf({fmt::format("1 initialize_table_{} initializing oid .{}.{} in context \"red\"",
                                             fibTables[table - 1], fibObjects, table),
                                 fmt::format("8 Initialized table {} in context \"red\"", fibTables[table - 1])}));
    unregister_quorinFIBStatsMIB("red");
    init_quorinFIBStatsMIB("red");
  }
}

TEST_F(quorinFIBStatsMIB, anyRequestIsAnsweredAsTheRowsSay) {
  std::mt19937 random{23};
  for (const auto version : {ipVersion4, ipVersion6}) {
    for (const unsigned type : {1U, 3U, 14U, 200U, 205U}) {
      routesAre(1 + static_cast<unsigned>(random() % 3), version, RouteTypeInstance(type), type / 2);
    }
  }
  const auto all = reference();
  const auto rows = all.below(fibObjects);
  for (int i = 0; i < 1500; ++i) {
    Oid name = oidOf(rows[random() % rows.size()].name);
    const oid numbers[] = {0, 1, 2, 3, 4, 13, 128, 129, 200, 2147483648, 4294967295};
    for (std::size_t at = 13; at < name.size(); ++at) {
      if (random() % 2 == 0) name[at] = numbers[random() % std::size(numbers)];
    }
    if (random() % 4 == 0) name.resize(11 + random() % (name.size() - 10));
    if (random() % 4 == 0) name.push_back(numbers[random() % std::size(numbers)]);
    const auto from = textOf(name);
    ASSERT_EQ(agent.getNext(from), all.next(from)) << "after " << from;
    const auto here = all.get(from);
    if (here.type != 0) {
      ASSERT_EQ(agent.get(from), here);
    } else {
      ASSERT_EQ(agent.get(from).value.substr(0, 6), "noSuch") << from;
    }
  }
}

TEST_F(quorinFIBStatsMIB, tracesOfAGet) {
  routesAre(1, ipVersion4, routeTypeStatic, 24);
  const auto get = [this](const std::string& name) {
    lines.take();
    agent.get(name);
    return withoutPointers(lines.take());
  };
  EXPECT_EQ(get(fibCount(1, 1)),
            tracesOfGet(fibTables[0], {{"quorinFIBStatsAF", "ipVersion4"}}, {{"addressFamily", "ipVersion4"}},
                        "quorinFIBStatsTotalRoutes", "ipVersion4"));
  EXPECT_EQ(get(fibCount(2, 1, 3)),
            tracesOfGet(
                fibTables[1], {{"quorinFIBStatsAF", "ipVersion4"}, {"quorinFIBStatsRouteType", "routeTypeStatic"}},
                {{"addressFamily", "ipVersion4"}, {"routeType", "routeTypeStatic"}},
                "quorinFIBStatsTotalRoutesForRouteType", Kel::print(RouteTypeKey(ipVersion4, routeTypeStatic))));
  EXPECT_EQ(get(fibCount(3, 1, 24)),
            tracesOfGet(fibTables[2], {{"quorinFIBStatsAF", "ipVersion4"}, {"quorinFIBStatsPrefixLen", "24"}},
                        {{"addressFamily", "ipVersion4"}, {"prefixLen", "24"}},
                        "quorinFIBStatsTotalRoutesForPrefixLen", Kel::print(PrefixLenKey(ipVersion4, 24))));
}

TEST_F(quorinFIBStatsMIB, hintsThatAreNoKey) {
  routesAre(1, ipVersion4, routeTypeStatic, 24);
  const auto next = [this](const std::string& name) {
    lines.take();
    agent.getNext(name);
    return lines.take();
  };
  EXPECT_THAT(next(fibCount(3, 1, 200)),
              Contains("0 Bad hint for quorinFIBStatsByPrefixLenTable: FibStatsSnmp::PrefixLenKey ctor threw "
                       "exception: IpAddressPrefixLength::value < 0 or > 128 not allowed"));
  EXPECT_THAT(
      next(fibCount(2, 1)),
      Contains("2 quorinFIBStatsByRouteTypeTable_get_first_data_point - needed 2 components, found only 1"));
  EXPECT_THAT(next(fibCount(1, 4294967295U)), Contains(HasSubstr("0 hint for index quorinFIBStatsAF of "
                                                                 "quorinFIBStatsSummaryTable is out of range! ")));
  EXPECT_THAT(next(fibCount(2, 2, 3)),
              Contains(HasSubstr("2 quorinFIBStatsByRouteTypeTable_get_first_data_point - key '")));
  EXPECT_THAT(next(fibCount(3, 1, 23)), Contains("2 quorinFIBStatsByPrefixLenTable_get_first_data_point - key '" +
                                                 Kel::print(PrefixLenKey(ipVersion4, 23)) + "' not found in table"))
      << "also where a row lies behind it";
  EXPECT_EQ(agent.getNext(fibCount(3, 1, 23)).name, fibCount(3, 1, 24));
}

TEST_F(quorinFIBStatsMIB, disabledRouteTablesAreNotRegistered) {
  routesAre(1, ipVersion4, routeTypeStatic, 24);
  leave();
  Snmp::registerConfigTokens();
  char line[] = "quorinDisableObjects route-tables";
  netsnmp_config(line);
  ::testing::internal::CaptureStdout();
  enter();
  std::string once;
  for (const char* table : fibTables) {
    once += fmt::format("initialize_table_{} is a noop because route-tables are disabled.\n", table);
  }
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), once + once);
  Snmp::registerConfigTokens();  // the defaults again
  Snmp::unregisterConfigTokens();
  EXPECT_THAT(agent.walk(fibObjects), IsEmpty());
}

TEST_F(quorinFIBStatsMIB, endsTheProcessWithoutItsCache) {
  leave();
  const auto ip = Kel::dynamicPtr<Kel::Dir>(SnmpUtil::getEntityRelative("snmp/ip"));
  ip->entityDel("fibstatsmib");
  EXPECT_DEATH(
      init_quorinFIBStatsMIB(""),
      "^Can not getEntityRelative\\( snmp/ip/fibstatsmib \\) for table quorinFIBStatsSummaryTable. Is this "
      "path correct\\?\n[^\n]*: assertion failed: e\n");
  ip->entityIs(Kel::makePtr<IpSnmp::IpMib>("fibstatsmib"));
  EXPECT_DEATH(init_quorinFIBStatsMIB(""),
               "^snmp/ip/fibstatsmib does not appear to be of type FibStatsSnmp::FibStatsMib.\n");
}

// As the MIB text has it.
TEST_F(quorinFIBStatsMIB, snmptableShowsItByName) {
  routesAre(1, ipVersion4, routeTypeStatic, 24);
  routesAre(2, ipVersion6, routeTypeStaticNexthopGroup, 48);
  const auto table = [&](const char* name) {
    return agent.outputOf(
        fmt::format("env -u MIBS -u MIBDIRS snmptable -v2c -c public -Cif ';' -M {}:{}/standard -m "
                    "QUORIN-FIB-STATS-MIB AGENT {}",
                    QUORIN_MIB_DIR, QUORIN_MIB_DIR, name));
  };
  EXPECT_THAT(table(fibTables[0]), HasSubstr("index;quorinFIBStatsTotalRoutes\nipv4;1\nipv6;2\n"));
  EXPECT_THAT(table(fibTables[1]), HasSubstr("ipv4.static;1\nipv6.staticNexthopGroup;2\n"));
  EXPECT_THAT(table(fibTables[2]), HasSubstr("ipv4.24;1\nipv6.48;2\n"));
}

}  // namespace
