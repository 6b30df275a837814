// The routes of a VRF as a manager sees them.

#include "modules/IpForward.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ipsnmp/ProtocolMap.h"
#include "ipsnmp/testing/TestRoutes.h"
#include "modules/testing/TestReference.h"
#include "modules/testing/TestTableTraces.h"
#include "snmp/Config.h"

namespace {

using namespace Modules;
using IpSnmpTest::SettledRoutes;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string routeNumber = "1.3.6.1.2.1.4.24.3";
const std::string routeTable = "1.3.6.1.2.1.4.24.4";
constexpr unsigned routeColumns = 16;

std::string routeCell(unsigned column, const std::string& index) {
  return fmt::format("{}.1.{}.{}", routeTable, column, index);
}

class IpForward : public ::testing::Test {
 protected:
  IpForward() {
    IpSnmp::fillProtocolMap(IpSnmp::protocolMap());
    init_IpForward("");
    init_IpForward("red");
    lines.take();
  }
  ~IpForward() override {
    unregister_IpForward("red");
    unregister_IpForward("");
  }

  std::vector<std::string> said(const std::string& name, int command = SNMP_MSG_GET) {
    lines.take();
    agent.send(command, {name});
    return withoutPointers(lines.take());
  }
  // The whole table, as the rows say.
  static std::vector<Answer> answersFor(const std::vector<IpSnmp::IpCidrRouteTableEntry>& rows) {
    const std::map<unsigned, int> protocols{{7, 3},   {10, 8},  {11, 2},  {15, 13}, {16, 13}, {17, 13},
                                            {18, 13}, {19, 13}, {20, 13}, {21, 14}, {22, 14}, {23, 14}};
    std::vector<Answer> answers;
    for (unsigned column = 1; column <= routeColumns; ++column) {
      for (const auto& row : rows) {
        const auto dest = row.index().dest().stringValue();
        const auto mask = row.index().mask().stringValue();
        const auto nextHop = row.index().nextHop().stringValue();
        const auto protocol = protocols.find(row.protocol().value());
        const std::string values[routeColumns] = {
            dest,
            mask,
            "0",
            nextHop,
            std::to_string(static_cast<int>(row.ifIndex())),
            std::to_string(row.type()),
            std::to_string(protocol == protocols.end() ? 1 : protocol->second),
            "-1",
            "0.0",
            "0",
            std::to_string(static_cast<int>(row.metric().value())),
            std::to_string(row.preference().value()),
            "-1",
            "-1",
            "-1",
            "1"};
        const bool isAddress = column == 1 || column == 2 || column == 4;
        const int type = isAddress ? ASN_IPADDRESS : column == 9 ? ASN_OBJECT_ID : ASN_INTEGER;
        const auto index = fmt::format("{}.{}.0.{}", dest, mask, nextHop);
        answers.push_back({routeCell(column, index), type, values[column - 1]});
      }
    }
    return answers;
  }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  SettledRoutes routes{tree.ipForwardMib};
  SettledRoutes redRoutes{tree.vrfMibs->mibsIs("red")->ipforwardmib()};
  TraceLines lines{"IpForward"};
};

TEST_F(IpForward, everyColumnOfEveryRowInBothContexts) {
  EXPECT_THAT(agent.walk(routeTable), IsEmpty());
  routes.intfIs("eth0", 3);
  routes.fecIs(1, {{"10.1.1.9", "eth0"}, {"0.0.0.0", "eth0"}, {"10.1.1.1", ""}});
  routes.routeIs("10.0.0.0/24", 1, 22);
  routes.routeIs("0.0.0.0/0", 1, 4);
  auto far = SettledRoutes::route(IpSnmpTest::prefixOf("255.255.255.255/32"), 1, 11);
  far.metric = Routing::RouteMetric(0xFFFFFFFF);
  far.routePreference = Routing::RoutePreference(255);
  routes.routes->routeIs(far);
  routes.settle();
  routes.mib->numRoutesIs(2147483647);
  const auto rows = routes.model.rows(routes.derived);
  ASSERT_EQ(rows.size(), 9U);
  EXPECT_EQ(agent.walk(routeTable), answersFor(rows));
  EXPECT_EQ(agent.get(routeNumber + ".0"), (Answer{routeNumber + ".0", ASN_GAUGE, "2147483647"}));
  EXPECT_THAT(agent.walk(routeTable, "red"), IsEmpty());
  EXPECT_EQ(agent.get(routeNumber + ".0", "red").value, "0");

  redRoutes.fecIs(1, {{"10.1.1.1", ""}});
  redRoutes.routeIs("10.0.0.0/24", 1);
  redRoutes.settle();
  EXPECT_EQ(agent.walk(routeTable, "red"), answersFor(redRoutes.model.rows(redRoutes.derived)));
}

TEST_F(IpForward, aWalkOfRandomRoutesIsTheModels) {
  IpSnmpTest::RandomRoutes random(11);
  random.intfs(routes);
  for (int round = 0; round < 12; ++round) {
    for (int change = 0; change < 30; ++change) random.change(routes);
    routes.settle();
    const auto rows = routes.model.rows(routes.derived);
    const auto all = answersFor(rows);
    ASSERT_EQ(agent.walk(routeTable), all) << "round " << round;
    for (int i = 0; i < 40; ++i) {
      const auto index = random.index();
      const auto expected = routes.model.fetch(routes.derived, index, true);
      if (!expected || !(index < expected->index())) continue;  // what the next column begins with; a tos
      const auto from = fmt::format("{}.{}.{}.{}", index.dest().stringValue(), index.mask().stringValue(),
                                    index.tos(), index.nextHop().stringValue());
      EXPECT_EQ(agent.getNext(routeCell(4, from)), answersFor({*expected})[3]) << from;
    }
    for (const auto& answer : all) ASSERT_EQ(agent.get(answer.name), answer);
  }
}

TEST_F(IpForward, theNumberIsAnIpForwardMibsAlone) {
  EXPECT_THAT(said(routeNumber + ".0"),
              ElementsAre("2 handle_ipCidrRouteNumber - reading snmp/ip/ipforwardmib->numRoutes()",
                          "2 handle_ipCidrRouteNumber - S32ToAsnInteger returned 4bytes for "
                          "snmp/ip/ipforwardmib->numRoutes()"));
  netsnmp_handler_registration registration{};
  netsnmp_agent_request_info info{};
  netsnmp_request_info request{};
  registration.my_reg_void = static_cast<Kel::Entity*>(tree.ipMib.get());
  const auto handled = [&](int mode) {
    info.mode = mode;
    request = {};
    request.agent_req_info = &info;
    lines.take();
    return handle_ipCidrRouteNumber(nullptr, &registration, &info, &request);
  };
  EXPECT_EQ(handled(MODE_GET), SNMP_ERR_GENERR);
  EXPECT_THAT(lines.take(), ElementsAre("2 handle_ipCidrRouteNumber - entity /<sysname>/snmp/ip/ipforwardmib is "
                                        "not of type IpSnmp::IpForwardMib"));
  EXPECT_EQ(handled(MODE_SET_COMMIT), SNMP_ERR_NOERROR);
  EXPECT_EQ(request.status, SNMP_ERR_NOTWRITABLE);
  EXPECT_THAT(lines.take(),
              ElementsAre("2 handle_ipCidrRouteNumber - SET is not configured for ipCidrRouteNumber"));
  EXPECT_EQ(handled(MODE_GETNEXT), SNMP_ERR_GENERR);
  EXPECT_THAT(lines.take(), ElementsAre("2 handle_ipCidrRouteNumber - unknown mode from request: 161"));
  EXPECT_EQ(agent.set(routeNumber + ".0", 1).errorStatus, SNMP_ERR_NOTWRITABLE);
}

TEST_F(IpForward, aRequestSaysWhatItDoes) {
  routes.fecIs(1, {{"10.1.1.1", ""}});
  routes.routeIs("10.0.0.0/24", 1);
  routes.settle();
  const IndexTexts hint{{"ipCidrRouteDest", "10.0.0.0"},
                        {"ipCidrRouteMask", "255.255.255.0"},
                        {"ipCidrRouteTos", "0"},
                        {"ipCidrRouteNextHop", "10.1.1.1"}};
  const IndexTexts row{{"dest", "10.0.0.0"}, {"mask", "255.255.255.0"}, {"tos", "0"}, {"nextHop", "10.1.1.1"}};
  const std::string index = "10.0.0.0.255.255.255.0.0.10.1.1.1";
  EXPECT_EQ(said(routeCell(7, index)),
            tracesOfGet("ipCidrRouteTable", hint, row, "ipCidrRouteProto",
                        Kel::print(IpSnmpTest::indexOf("10.0.0.0", "255.255.255.0", "10.1.1.1"))));
  const std::string get = "2 ipCidrRouteTable_get_first_data_point - ";
  EXPECT_THAT(said(routeCell(7, "10.0.0.0.255.255"), SNMP_MSG_GETNEXT),
              Contains(get + "needed 4 components, found only 2"));
  EXPECT_THAT(said(routeCell(7, "10.0.0.0.255.255.255.0.0.10.1.1.2"), SNMP_MSG_GETNEXT),
              Contains(get + "key '" + Kel::print(IpSnmpTest::indexOf("10.0.0.0", "255.255.255.0", "10.1.1.2")) +
                       "' not found in table"));
  EXPECT_THAT(said(routeCell(7, "9" + index.substr(2))),
              Contains("2 ipCidrRouteTable_handler: null data context in request"));
}

TEST_F(IpForward, setIsRefusedColumnByColumn) {
  const char* const objects[] = {"",
                                 "",
                                 "",
                                 "",
                                 "ipCidrRouteIfIndex",
                                 "ipCidrRouteType",
                                 "",
                                 "",
                                 "ipCidrRouteInfo",
                                 "ipCidrRouteNextHopAS",
                                 "ipCidrRouteMetric1",
                                 "ipCidrRouteMetric2",
                                 "ipCidrRouteMetric3",
                                 "ipCidrRouteMetric4",
                                 "ipCidrRouteMetric5",
                                 "ipCidrRouteStatus"};
  for (unsigned column = 1; column <= routeColumns; ++column) {
    lines.take();
    EXPECT_EQ(agent.set(routeCell(column, "1.2.3.4.255.255.255.255.0.0.0.0.0"), 1).errorStatus,
              SNMP_ERR_NOTWRITABLE);
    const std::string object = objects[column - 1];
    EXPECT_THAT(
        lines.take(),
        Contains(object.empty() ? fmt::format("0 ipCidrRouteTable invalid column {}", column)
                                : "2 ipCidrRouteTable_handler: SET is not configured for column " + object));
  }
}

TEST_F(IpForward, namesOfRegistrationsAndWhatIsSaidOfThem) {
  for (const std::string context : {"", "red"}) {
    unregister_IpForward(context);
    const auto ending = " in context \"" + context + "\"";
    EXPECT_THAT(lines.take(), ElementsAre("2 Unregistering IpForward" + ending));
    init_IpForward(context);
    EXPECT_THAT(lines.take(),
                ElementsAre("1 init_IpForward initializing oid .1.3.6.1.2.1.4.24.3" + ending,
                            "1 initialize_table_ipCidrRouteTable initializing oid .1.3.6.1.2.1.4.24.4" + ending,
                            "8 Initialized table ipCidrRouteTable" + ending));
    for (const auto& [object, name] :
         {std::pair{routeNumber, "ipCidrRouteNumber_"}, {routeTable, "ipCidrRouteTable_"}}) {
      const auto identifier = oidOf(object);
      const auto* found = netsnmp_subtree_find(identifier.data(), identifier.size(), nullptr, context.c_str());
      ASSERT_NE(found, nullptr);
      ASSERT_NE(found->reginfo, nullptr);
      EXPECT_EQ(found->reginfo->handlerName, name + context);
    }
  }
}

TEST_F(IpForward, disabledRouteTablesAreNotRegistered) {
  unregister_IpForward("");
  unregister_IpForward("red");
  Snmp::registerConfigTokens();
  char line[] = "quorinDisableObjects route-tables";
  netsnmp_config(line);
  ::testing::internal::CaptureStdout();
  init_IpForward("");
  init_IpForward("red");
  const std::string both =
      "init_IpForward skipping scalar ipCidrRouteNumber because route-tables are disabled.\n"
      "initialize_table_ipCidrRouteTable is a noop because route-tables are disabled.\n";
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), both + both);
  Snmp::registerConfigTokens();  // the defaults again
  Snmp::unregisterConfigTokens();
  for (const char* context : {"public", "red"}) {
    EXPECT_THAT(agent.walk("1.3.6.1.2.1.4.24", context), IsEmpty());
    EXPECT_EQ(agent.get(routeNumber + ".0", context).value, "noSuchObject");
  }
}

}  // namespace
