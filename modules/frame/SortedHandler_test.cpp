// What the handler of sorted tables saves. That it changes no answer, Tables_test.cpp shows.

#include "modules/frame/SortedHandler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "ipsnmp/testing/TestRoutes.h"
#include "modules/testing/TestAgent.h"
#include "modules/testing/TestIpTree.h"
#include "quillo/testing/TestArpTable.h"
#include "snmp/Contexts.h"

namespace {

using namespace Modules;

const std::string ipGroup = "1.3.6.1.2.1.4";

class SortedHandlerTest : public ::testing::Test {
 protected:
  SortedHandlerTest() { contexts.enter(""); }
  ~SortedHandlerTest() override { SortedHandler::setEnabled(true); }

  // The components of rows that a request looks at.
  std::size_t componentsOf(const std::string& facility, int command, const std::string& name) {
    TraceLines lines(facility);
    agent.send(command, {name});
    const auto said = lines.take();
    return static_cast<std::size_t>(std::count_if(said.begin(), said.end(), [](const auto& line) {
      return line.find("IterationHelper - iterator has another value") != std::string::npos;
    }));
  }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  IpSnmpTest::SettledRoutes routes{tree.ipForwardMib};
  Snmp::Contexts contexts;
};

// Prefixes whose FEC no machine knows yet: nothing passes over them, and there are too many to look at.
TEST_F(SortedHandlerTest, aWalkThatGivesUpIsAnErrorRatherThanTheEnd) {
  constexpr unsigned count = IpSnmpTest::RouteIterator::maxFruitless;
  for (unsigned i = 0; i < count; ++i) {
    routes.routes->routeIs(routes.route(Vantu::Prefix(Vantu::IpAddr(0x0A000000 + (i << 8)), 24), 2));
  }
  routes.fecIs(1, {{"10.1.1.1", ""}});
  routes.routeIs("11.0.0.0/8", 1);
  routes.settle();
  const std::string column = ipGroup + ".24.4.1.4", last = ".11.0.0.0.255.0.0.0.0.10.1.1.1";
  for (const auto* from : {"", ".10", ".10.0.0.0.255.255.255.0.0.0.0.0.0", ".9.0.0.0.255.0.0.0.0.0.0.0.999"}) {
    const auto reply = agent.send(SNMP_MSG_GETNEXT, {column + from});
    EXPECT_EQ(reply.errorStatus, SNMP_ERR_GENERR) << from;
    EXPECT_EQ(reply.errorIndex, 1) << from;
  }
  EXPECT_EQ(agent.getNext(column + ".10.0.0.1").name, column + last) << "one prefix less";
  EXPECT_EQ(agent.get(column + ".10.0.0.0.255.255.255.0.0.10.1.1.1").type, SNMP_NOSUCHINSTANCE);
  EXPECT_EQ(agent.getNext(ipGroup + ".24.4.1.16" + last).name.rfind(ipGroup + ".24.4.", 0), std::string::npos);
}

TEST_F(SortedHandlerTest, rowsWithoutAnInstanceArePassedOverUpToALimit) {
  const auto neighbours = Kel::makePtr<Arp::Table::TestStatus>();
  constexpr unsigned limit = SortedHandler::maxPassedOver / SortedHandler::rowsForStoredRow;
  for (unsigned i = 0; i < limit; ++i) {
    neighbourIs(*tree.ipMib, 3, fmt::format("10.0.{}.{}", i / 250, i % 250), neighbours);  // gone from the table
  }
  knownNeighbourIs(*tree.ipMib, 3, "10.1.0.0", neighbours);
  const std::string column = ipGroup + ".22.1.2";
  EXPECT_EQ(agent.send(SNMP_MSG_GETNEXT, {column}).errorStatus, SNMP_ERR_GENERR);
  EXPECT_EQ(agent.getNext(column + ".3.10.0.0.0").name, column + ".3.10.1.0.0") << "one row less";
  neighbours->tableIs({});
  EXPECT_EQ(agent.getNext(column + ".3.10.0.0.1").name, ipGroup + ".22.1.3.3.10.0.0.0") << "the next column";
  const auto unknown = Kel::makePtr<Interface::IntfStatus>(Vantu::IntfId("eth0"));
  for (unsigned ifIndex = 1; ifIndex <= 10'000; ++ifIndex) {
    tree.ifTables->enter(Kel::makePtr<IpSnmp::IfEntry>(ifIndex, unknown), 0);
  }
  EXPECT_EQ(agent.send(SNMP_MSG_GETNEXT, {"1.3.6.1.2.1.2.2.1.10"}).errorStatus, SNMP_ERR_NOERROR) << "no counters";
}

TEST_F(SortedHandlerTest, noRequestWalksTheTable) {
  const auto neighbours = Kel::makePtr<Arp::Table::TestStatus>();
  for (int i = 0; i < 200; ++i) {
    const auto text = fmt::format("10.{}.0.{}", i / 100, i % 100);
    addressIs(*tree.ipMib, text, 24, 3);
    knownNeighbourIs(*tree.ipMib, 3, text, neighbours);
    routes.routeIs(fmt::format("10.{}.{}.0/24", i / 100, i % 100), 1);
  }
  routes.fecIs(1, {{"10.1.1.1", ""}, {"10.1.1.2", ""}, {"10.1.1.3", ""}});
  routes.settle();
  using Indexes = std::vector<const char*>;
  // Facility, column, indexes that no row has, others for GETNEXT, and the most components of rows to look at.
  const std::tuple<const char*, const char*, Indexes, Indexes, std::size_t> cases[] = {
      {"IpBase",
       "20.1.2",
       {"10.0.0.200", "11.0.0.0", "10.0.0"},
       {"11.0.0.0", "10.1.0", "10.0.300.1", "10.1.0.1.9"},
       2},
      {"IpBase", "22.1.3", {"3.10.0.0.200", "4.10.0.0.1"}, {"4.10.0.0.1", "3.10.1", "3", "3.10.0.300"}, 4},
      {"IpBase",
       "34.1.3",
       {"1.4.10.0.0.200", "4294967295.4.10.0.0.1", "1.5.10.0.0.1.1"},
       {"1", "1.4", "1.4.10.0", "1.4.300.0.0.0", "1.5", "1.4294967295", "2147483648", "3.1.1"},
       4},
      {"IpForward",
       "24.4.1.1",
       {"10.0.5.0.255.255.255.0.1.10.1.1.1", "10.0.5.0.255.0.255.0.0.10.1.1.1", "11.0.0.0.255.0.0.0.0.0.0.0.0"},
       {"10.1", "10.1.5.0.255.255.255.0.0.10.1.1", "10.1.5.1.255.255.255.0.0.10.9.9.9",
        "11.0.0.0.255.0.0.0.0.0.0.0.0", "10.0.5.0.255.0.255.0.0.10.1.1.1"},
       16}};
  for (const auto& [facility, column, absent, above, most] : cases) {
    for (const char* index : absent) {
      EXPECT_LE(componentsOf(facility, SNMP_MSG_GET, fmt::format("{}.{}.{}", ipGroup, column, index)), most)
          << column << " " << index;
    }
    for (const char* index : above) {
      EXPECT_LE(componentsOf(facility, SNMP_MSG_GETNEXT, fmt::format("{}.{}.{}", ipGroup, column, index)), most)
          << column << " " << index;
    }
  }
  SortedHandler::setEnabled(false);
  EXPECT_GT(componentsOf("IpBase", SNMP_MSG_GET, ipGroup + ".20.1.2.10.0.0.200"), 50U);
}

}  // namespace
