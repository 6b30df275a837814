// What each table and scalar traces for a request, in full.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <sstream>

#include "ipsnmp/testing/TestRoutes.h"
#include "modules/frame/Module.h"
#include "modules/testing/TestAgent.h"
#include "modules/testing/TestIpTree.h"
#include "quillo/testing/TestArpTable.h"
#include "snmp/Contexts.h"

namespace {

using namespace Modules;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

struct Component {
  std::string object, attribute, value;
};
struct TableTexts {
  std::string name, facility, identifier, index;
  std::vector<Component> components;
  std::string key;
  bool isMiscountedTraced = false;  // hints of too few components
  bool isAbsentTraced = false;      // hinted keys without a row, even below a row
  bool isWritable = false;
  unsigned firstColumn = 0;
  std::vector<std::string> objects;  // of the columns; a SET of those with a star is refused by name
};

// Per table: name, facility, identifier ("E": our enterprise) and index of a row, with the flags above; the
// components of the index, each object=attribute=value; the key, which goes on after a comma; the first column's
// number and the objects.
constexpr const char* tableTexts = R"(
ipAddrTable IpBase 1.3.6.1.2.1.4.20 10.1.2.3
ipAdEntAddr=ipAdEntAddr=10.1.2.3
10.1.2.3
1 ipAdEntAddr ipAdEntIfIndex ipAdEntNetMask ipAdEntBcastAddr ipAdEntReasmMaxSize

ipNetToMediaTable IpBase 1.3.6.1.2.1.4.22 3.10.0.0.2 miscounted writable
ipNetToMediaIfIndex=ifIndex=3 ipNetToMediaNetAddress=netAddress=10.0.0.2
Value('IpSnmp::ArpTableIndex', ** {'ifIndex': 3, 'ipAddr': '10.0.0.2'})
1 *ipNetToMediaIfIndex *ipNetToMediaPhysAddress *ipNetToMediaNetAddress *ipNetToMediaType

ipAddressPrefixTable IpBase 1.3.6.1.2.1.4.32 5.1.4.10.1.0.0.16
ipAddressPrefixIfIndex=ifIndex=5 ipAddressPrefixType=version=ipVersion4 ipAddressPrefixPrefix=bytes=0x0a010000
ipAddressPrefixLength=length=16
Value('IpSnmp::IpAddressPrefixKey', ** {'ifIndex': 5, 'version': ipVersion4, 'bytes': '0x0a010000', 'length': 16})
5 ipAddressPrefixOrigin ipAddressPrefixOnLinkFlag ipAddressPrefixAutonomousFlag
ipAddressPrefixAdvPreferredLifetime ipAddressPrefixAdvValidLifetime

ipAddressTable IpBase 1.3.6.1.2.1.4.34 1.4.10.1.2.3 writable
ipAddressAddrType=addrVersion=ipVersion4 ipAddressAddr=addrBytes=0x0a010203
Value('IpSnmp::InetAddress', ** {'version': ipVersion4, 'bytes': '0x0a010203'})
3 *ipAddressIfIndex *ipAddressType ipAddressPrefix ipAddressOrigin *ipAddressStatus ipAddressCreated
ipAddressLastChanged *ipAddressRowStatus *ipAddressStorageType

ipNetToPhysicalTable IpBase 1.3.6.1.2.1.4.35 3.1.4.10.0.0.2 miscounted writable
ipNetToPhysicalIfIndex=ifIndex=3 ipNetToPhysicalNetAddressType=inetAddressType=ipVersion4
ipNetToPhysicalNetAddress=inetAddress=0x0a000002
Value('IpSnmp::IpNetToPhysicalTableIndex', ** {'ifIndex': 3,
'addr': Value('IpSnmp::InetAddress', ** {'version': ipVersion4, 'bytes': '0x0a000002'})})
4 *ipNetToPhysicalPhysAddress ipNetToPhysicalLastUpdated *ipNetToPhysicalType ipNetToPhysicalState
*ipNetToPhysicalRowStatus

ipCidrRouteTable IpForward 1.3.6.1.2.1.4.24.4 10.0.0.0.255.255.255.0.0.10.1.1.1 miscounted writable
ipCidrRouteDest=dest=10.0.0.0 ipCidrRouteMask=mask=255.255.255.0 ipCidrRouteTos=tos=0
ipCidrRouteNextHop=nextHop=10.1.1.1
Value('IpSnmp::IpCidrRouteTableIndex', ** {'dest': '10.0.0.0', 'mask': '255.255.255.0', 'tos': 0,
'nextHop': '10.1.1.1'})
1 ipCidrRouteDest ipCidrRouteMask ipCidrRouteTos ipCidrRouteNextHop *ipCidrRouteIfIndex *ipCidrRouteType
ipCidrRouteProto ipCidrRouteAge *ipCidrRouteInfo *ipCidrRouteNextHopAS *ipCidrRouteMetric1 *ipCidrRouteMetric2
*ipCidrRouteMetric3 *ipCidrRouteMetric4 *ipCidrRouteMetric5 *ipCidrRouteStatus

quorinVrfTable VrfBase E.3.18.1.1 3.114.101.100 miscounted
quorinVrfName=vrfName=red
red
2 quorinVrfRoutingStatus quorinVrfRouteDistinguisher quorinVrfState

quorinVrfIfTable VrfBase E.3.18.1.2 3 miscounted
ifIndex=ifIndex=3
3
1 quorinVrfIfMembership

quorinFIBStatsSummaryTable Snmp E.3.23.1.1 1 miscounted absent
quorinFIBStatsAF=addressFamily=ipVersion4
ipVersion4
2 quorinFIBStatsTotalRoutes

quorinFIBStatsByRouteTypeTable Snmp E.3.23.1.2 1.3 miscounted absent
quorinFIBStatsAF=addressFamily=ipVersion4 quorinFIBStatsRouteType=routeType=routeTypeStatic
Value('FibStatsSnmp::RouteTypeKey', ** {'addressFamily': ipVersion4, 'routeType': routeTypeStatic})
2 quorinFIBStatsTotalRoutesForRouteType

quorinFIBStatsByPrefixLenTable Snmp E.3.23.1.3 1.24 miscounted absent
quorinFIBStatsAF=addressFamily=ipVersion4 quorinFIBStatsPrefixLen=prefixLen=24
Value('FibStatsSnmp::PrefixLenKey', ** {'addressFamily': ipVersion4,
'prefixLen': Value('FibStatsSnmp::IpAddressPrefixLength', ** {'value': 24})})
2 quorinFIBStatsTotalRoutesForPrefixLen

quorinIpIfStatsTable Snmp E.3.27.1.1 2.3 miscounted absent
quorinIpIfStatsIPVersion=ipVersion=ipVersion6 quorinIpIfStatsIfIndex=ifIndex=3
Value('IpSnmp::IpVersionIfIndex', ** {'ipVersion': ipVersion6, 'ifIndex': 3})
3 quorinIpIfStatsInPkts quorinIpIfStatsInOctets quorinIpIfStatsOutPkts quorinIpIfStatsOutOctets
quorinIpIfStatsInUcastPkts quorinIpIfStatsInUcastOctets quorinIpIfStatsOutUcastPkts quorinIpIfStatsOutUcastOctets
quorinIpIfStatsInMcastPkts quorinIpIfStatsInMcastOctets quorinIpIfStatsOutMcastPkts quorinIpIfStatsOutMcastOctets
quorinIpIfStatsDiscontinuityTime quorinIpIfStatsRefreshRate
)";

std::vector<TableTexts> parsedTableTexts() {
  std::vector<TableTexts> tables;
  std::istringstream text(tableTexts);
  std::string line;
  const auto words = [&line] {
    std::istringstream in(line);
    return std::vector<std::string>{std::istream_iterator<std::string>(in), {}};
  };
  std::getline(text, line);
  while (std::getline(text, line)) {
    auto& table = tables.emplace_back();
    const auto head = words();
    table.name = head.at(0);
    table.facility = head.at(1);
    table.identifier = head.at(2).starts_with("E.") ? textOf(enterpriseObject({})) + head[2].substr(1) : head[2];
    table.index = head.at(3);
    const auto isFlag = [&head](const char* flag) {
      return std::find(head.begin(), head.end(), flag) != head.end();
    };
    table.isMiscountedTraced = isFlag("miscounted");
    table.isAbsentTraced = isFlag("absent");
    table.isWritable = isFlag("writable");
    while (std::getline(text, line) && line.find('=') != std::string::npos) {
      for (const auto& word : words()) {
        const auto first = word.find('='), second = word.find('=', first + 1);
        table.components.push_back(
            {word.substr(0, first), word.substr(first + 1, second - first - 1), word.substr(second + 1)});
      }
    }
    table.key = line;
    while (line.ends_with(",") && std::getline(text, line)) table.key += " " + line;
    text >> table.firstColumn;
    while (std::getline(text, line) && !line.empty()) {
      const auto objects = words();
      table.objects.insert(table.objects.end(), objects.begin(), objects.end());
    }
  }
  return tables;
}

// How gtest names the cases that fail.
std::ostream& operator<<(std::ostream& out, const TableTexts& table) {
  return out << table.name;
}

// One row of each table.
class Traces : public ::testing::Test {
 protected:
  Traces() {
    contexts.enter("");
    addressIs(*tree.ipMib, "10.1.2.3", 16, 5);
    const IpSnmp::IpNetToPhysicalTableIndex neighbour(3, inetAddress("10.0.0.2"));
    tree.ipMib->ipNetToPhysicalTableIs(neighbour, Vantu::IntfId("eth3"), Vantu::IpGenAddr::fromString("10.0.0.2"),
                                       Kel::makePtr<Arp::Table::TestStatus>(), Vrf::VrfIdMap::VrfId(7));
    tree.ipMib->ipIfStatsTableIs(IpSnmp::IpVersionIfIndex(Ip::ipVersion6, 3));
    tree.ipMib->ipSwFwdStatsIs(Ip::ipVersion4, "default");
    tree.ipVrfMib->vrfTableIs(Snmp::String("red"), nullptr, nullptr, nullptr);
    tree.ipVrfMib->vrfIfTableIs(3U)->vrfNameIs("red");
    tree.fibStatsMib->routeInc(Ip::ipVersion4, FibStatsSnmp::routeTypeStatic, 24);
    routes.fecIs(1, {{"10.1.1.1", ""}});
    routes.routeIs("10.0.0.0/24", 1);
    routes.settle();
  }

  static std::vector<std::string> traced(const std::string& facility, const std::function<void()>& request) {
    TraceLines lines(facility);
    request();
    return withoutPointers(lines.take());
  }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  IpSnmpTest::SettledRoutes routes{tree.ipForwardMib};
  Snmp::Contexts contexts;
};

class TableTraces : public Traces, public ::testing::WithParamInterface<TableTexts> {};

TEST_P(TableTraces, ofEachColumn) {
  const TableTexts& table = GetParam();
  const auto said = [&](const std::function<void()>& request) { return traced(table.facility, request); };
  const std::string start = "2 " + table.name + "_get_first_data_point - ";
  unsigned number = table.firstColumn;
  for (std::string object : table.objects) {
    const auto column = fmt::format("{}.1.{}", table.identifier, number);
    const auto cell = column + "." + table.index;
    const bool isRefusable = object.starts_with("*");
    if (isRefusable) object.erase(0, 1);
    std::vector<std::string> got{start + fmt::format("*hint = , number_indexes = {}", table.components.size())};
    for (const auto& part : table.components)
      got.push_back(fmt::format("2 hint component {} is '{}'", part.object, part.value));
    got.push_back(start + "allocated new loop context , hintMatched=1");
    for (const auto& part : table.components) {
      got.push_back(fmt::format("2 {}IterationHelper - iterator has another value: {}={}", table.name,
                                part.attribute, part.value));
    }
    for (const std::string line : {"_make_data_context - allocated data context ", "_free_loop_context_at_end ",
                                   "_handler", "_handler: request mode 160"}) {
      got.push_back("2 " + table.name + line);
    }
    got.push_back(fmt::format("2 {}_handler: request GET for column {}, key {}", table.name, object, table.key));
    got.push_back("2 " + table.name + "_free_data_context ");
    EXPECT_EQ(said([&] { agent.get(cell); }), got);

    const auto set = said([&] { EXPECT_EQ(agent.set(cell, 1).errorStatus, SNMP_ERR_NOTWRITABLE); });
    const auto refused = isRefusable
                             ? fmt::format("2 {}_handler: SET is not configured for column {}", table.name, object)
                             : fmt::format("0 {} invalid column {}", table.name, number);
    // net-snmp itself refuses a SET of a table that is read-only.
    EXPECT_EQ(std::count(set.begin(), set.end(), refused) > 0, table.isWritable);

    const bool isSingle = table.components.size() == 1;
    const auto needed =
        start + fmt::format("needed {} components, found only {}", table.components.size(), isSingle ? 0 : 1);
    const auto cut = said([&] { agent.getNext(isSingle ? column : column + "." + table.index.substr(0, 1)); });
    EXPECT_EQ(std::count(cut.begin(), cut.end(), needed), table.isMiscountedTraced ? 1 : 0);

    Oid below = oidOf(cell);
    --below.back();
    const auto absent = said([&] { agent.getNext(textOf(below)); });
    const auto isNotFound = [](const auto& line) { return line.ends_with("' not found in table"); };
    EXPECT_EQ(std::count_if(absent.begin(), absent.end(), isNotFound), table.isAbsentTraced ? 1 : 0);
    ++number;
  }
}

INSTANTIATE_TEST_SUITE_P(Tables, TableTraces, ::testing::ValuesIn(parsedTableTexts()),
                         [](const auto& table) { return table.param.name; });

TEST_F(Traces, ofAHintThatIsNoKey) {
  EXPECT_THAT(traced("Snmp",
                     [&] {
                       agent.getNext(textOf(enterpriseObject({3, 23, 1, 3, 1, 2, 1, 200})));
                     }),
              Contains("0 Bad hint for quorinFIBStatsByPrefixLenTable: FibStatsSnmp::PrefixLenKey ctor threw "
                       "exception: IpAddressPrefixLength::value < 0 or > 128 not allowed"));
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
  struct ScalarTexts {
    const char* facility;
    const char* name;
    const char* identifier;
    const char* attribute;
    const char* type;
    const char* conversion;
  };
  for (const auto& [facility, name, identifier, attribute, type, conversion] :
       {ScalarTexts{"IpBase", "ipForwarding", "1.3.6.1.2.1.4.1", "Varnix/routing/config->routing()",
                    "Routing::Config", "IpRoutingToAsnInteger"},
        {"IpBase", "ipv6IpForwarding", "1.3.6.1.2.1.4.25", "Varnix/routing6/config->routing()", "Routing6::Config",
         "IpRoutingToAsnInteger"},
        {"IpForward", "ipCidrRouteNumber", "1.3.6.1.2.1.4.24.3", "snmp/ip/ipforwardmib->numRoutes()",
         "IpSnmp::IpForwardMib", "S32ToAsnInteger"}}) {
    const auto start = fmt::format("2 handle_{} - ", name);
    const std::string source = attribute;
    EXPECT_THAT(traced(facility, [&, object = identifier] { agent.get(std::string(object) + ".0"); }),
                ElementsAre(start + "reading " + source,
                            fmt::format("{}{} returned 4bytes for {}", start, conversion, source)));
    // The handler, as net-snmp calls it.
    const Oid oids = oidOf(identifier);
    auto* handler = netsnmp_subtree_find(oids.data(), oids.size(), nullptr, "")->reginfo->handler;
    while (handler->next != nullptr) handler = handler->next;
    netsnmp_handler_registration registration{};
    netsnmp_agent_request_info info{};
    netsnmp_request_info request{};
    const auto call = [&](int mode, int result, int status, const std::string& line) {
      info.mode = mode;
      request = {};
      request.agent_req_info = &info;
      const auto said = traced(facility, [&] {
        EXPECT_EQ(handler->access_method(handler, &registration, &info, &request), result) << mode;
      });
      EXPECT_EQ(request.status, status) << mode;
      EXPECT_THAT(said, ElementsAre(start + line));
    };
    const auto wrongType =
        fmt::format("entity /<sysname>/{} is not of type {}", source.substr(0, source.find("->")), type);
    registration.my_reg_void = static_cast<Kel::Entity*>(tree.ipMib.get());
    call(MODE_GET, SNMP_ERR_GENERR, SNMP_ERR_GENERR, wrongType);
    call(MODE_GETNEXT, SNMP_ERR_GENERR, SNMP_ERR_GENERR, "unknown mode from request: 161");
    for (int mode = MODE_SET_RESERVE1; mode <= MODE_SET_UNDO; ++mode) {
      call(mode, SNMP_ERR_NOERROR, SNMP_ERR_NOTWRITABLE, fmt::format("SET is not configured for {}", name));
    }
  }
}

}  // namespace
