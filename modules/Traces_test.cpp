// What each table and scalar traces for a request, in full.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ipsnmp/testing/TestRoutes.h"
#include "modules/testing/MibObjects.h"
#include "modules/testing/TestIpTree.h"
#include "quillo/testing/TestArpTable.h"
#include "snmp/Contexts.h"

namespace {

using namespace Modules;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

// One row of each table.
class Traces : public ::testing::Test {
 protected:
  Traces() {
    contexts.enter("");
    addressIs(*tree.ipMib, "10.1.2.3", 16, 5);
    knownNeighbourIs(*tree.ipMib, 3, "10.0.0.2", Kel::makePtr<Arp::Table::TestStatus>());
    tree.ipMib->ipIfStatsTableIs(IpSnmp::IpVersionIfIndex(Ip::ipVersion6, 3));
    tree.ipMib->ipSwFwdStatsIs(Ip::ipVersion4, "default");
    interfaceIs(*tree.ipMib, Ip::ipVersion4, 3);
    interfaceIs(*tree.ipMib, Ip::ipVersion6, 3);
    tree.ipMib->ipDefaultRouterTableIs(IpSnmp::DefaultRouterIndex(inetAddress("10.0.0.1"), 3));
    tree.ipVrfMib->vrfTableIs(Snmp::String("red"), nullptr, nullptr, nullptr);
    tree.ipVrfMib->vrfIfTableIs(3U)->vrfNameIs("red");
    tree.agentMib->vrfTableIs(Snmp::String("red"));
    ifTableIs(*tree.ifTables, 3, 7);
    ifTableIs(*tree.ifTables, 7, 0);
    tree.fibStatsMib->routeInc(Ip::ipVersion4, FibStatsSnmp::routeTypeStatic, 24);
    routes.fecIs(1, {{"10.1.1.1", ""}});
    routes.routeIs("10.0.0.0/24", 1);
    routes.settle();
  }

  static Words traced(const std::string& facility, const std::function<void()>& request) {
    TraceLines lines(facility);
    request();
    return withoutPointers(lines.take());
  }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  IpSnmpTest::SettledRoutes routes{tree.ipForwardMib};
  Snmp::Contexts contexts;
};

TEST_F(Traces, ofEachColumn) {
  for (const auto& table : mibObjects()) {
    if (!table.isTable() || table.is("blackbox") || table.name == "quorinSwFwdIpStatsTable") continue;
    if (table.name == "ipSystemStatsTable") continue;
    SCOPED_TRACE(table.name);
    const auto said = [&](const std::function<void()>& request) { return traced(table.facility, request); };
    const auto count = table.components.size();
    const std::string start = "2 " + table.name + "_get_first_data_point - ";
    Words begun{start + fmt::format("*hint = , number_indexes = {}", count)}, row;
    for (const auto& component : table.components) {
      const auto first = component.find('='), second = component.find('=', first + 1);
      begun.push_back(
          fmt::format("2 hint component {} is '{}'", component.substr(0, first), component.substr(second + 1)));
      row.push_back(fmt::format("2 {}IterationHelper - iterator has another value: {}", table.name,
                                component.substr(first + 1)));
    }
    begun.push_back(start + "allocated new loop context , hintMatched=1");
    begun.insert(begun.end(), row.begin(), row.end());
    unsigned number = table.firstColumn;
    for (std::string object : table.columns) {
      if (object == "-" && ++number) continue;
      const auto column = fmt::format("{}.1.{}", table.identifier, number);
      const auto cell = column + "." + table.index;
      const bool isRefusable = object.starts_with("*");
      if (isRefusable) object.erase(0, 1);
      auto got = begun;
      const auto asked = fmt::format("_handler: request GET for column {}, key {}", object, table.key);
      for (const auto& line : Words{"_handler", "_handler: request mode 160", asked}) {
        got.push_back("2 " + table.name + line);
      }
      EXPECT_EQ(said([&] { agent.get(cell); }), got);

      const auto set = said([&] { EXPECT_EQ(agent.set(cell, 1).errorStatus, SNMP_ERR_NOTWRITABLE); });
      const auto refused =
          isRefusable ? fmt::format("2 {}_handler: SET is not configured for column {}", table.name, object)
                      : fmt::format("0 {} invalid column {}", table.name, number);
      // net-snmp itself refuses a SET of a table that is read-only.
      EXPECT_EQ(std::count(set.begin(), set.end(), refused) > 0, table.is("writable"));

      const auto needed = start + fmt::format("needed {} components, found only {}", count, count == 1 ? 0 : 1);
      const auto cut = said([&] { agent.getNext(count == 1 ? column : column + "." + table.index.substr(0, 1)); });
      EXPECT_EQ(std::count(cut.begin(), cut.end(), needed), table.is("miscounted") ? 1 : 0);

      Oid below = oidOf(cell);
      --below.back();
      const auto absent = said([&] { agent.getNext(textOf(below)); });
      const auto isNotFound = [](const auto& line) { return line.ends_with("' not found in table"); };
      EXPECT_EQ(std::count_if(absent.begin(), absent.end(), isNotFound), table.is("absent") ? 1 : 0);
      ++number;
    }
  }
}

TEST_F(Traces, ofATableWithoutAnOrder) {
  const auto said = traced("Snmp", [&] { agent.getNext(textOf(enterpriseObject({3, 1, 1, 1, 1, 3}))); });
  for (const char* line : {"_get_first_data_point - allocated new loop context ",
                           "IterationHelper - iterator has another value: ipVersion=ipVersion4",
                           "_get_next_data_point - advancing loop context  ; data context 0",
                           "IterationHelper - iterator is at end", "_handler: request mode 160",
                           "_handler: request GET for column quorinSwFwdIpStatsInReceives, key ipVersion4"}) {
    EXPECT_THAT(said, Contains("2 quorinSwFwdIpStatsTable" + std::string(line)));
  }
  EXPECT_THAT(said, Not(Contains(HasSubstr("hint")))) << "such a table has no use for one";
}

TEST_F(Traces, ofScalars) {
  for (const auto& [facility, name, identifier, source, conversion] :
       {std::tuple{"IpBase", "ipForwarding", "1.3.6.1.2.1.4.1.0", "Varnix/routing/config->routing()",
                   "IpRoutingToAsnInteger"},
        {"IpBase", "ipv6IpForwarding", "1.3.6.1.2.1.4.25.0", "Varnix/routing6/config->routing()",
         "IpRoutingToAsnInteger"},
        {"IpForward", "ipCidrRouteNumber", "1.3.6.1.2.1.4.24.3.0", "snmp/ip/ipforwardmib->numRoutes()",
         "S32ToAsnInteger"}}) {
    const auto start = fmt::format("2 handle_{} - ", name);
    EXPECT_THAT(traced(facility, [&, object = identifier] { agent.get(object); }),
                ElementsAre(start + "reading " + source,
                            fmt::format("{}{} returned 4bytes for {}", start, conversion, source)));
  }
}

}  // namespace
