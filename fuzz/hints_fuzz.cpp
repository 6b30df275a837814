// Requests for rows of the tables. Of the input, the first byte chooses the table, the second its column, the third GET
// or GETNEXT; the others are sub-identifiers of the index: a byte below 0xF0 is one, others begin one of four bytes.

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "kel/Trace.h"
#include "modules/frame/SortedHandler.h"
#include "modules/testing/MibObjects.h"
#include "modules/testing/TestAgent.h"
#include "modules/testing/TestIpTree.h"
#include "quillo/testing/TestArpTable.h"
#include "snmp/Contexts.h"

namespace {

using namespace Modules;

struct World {
  World() {
    Kel::TraceConfig::setSink([](const auto&, unsigned, const auto&) {});
    contexts.enter("");
    for (unsigned i = 1; i < 40; ++i) {
      const auto text = fmt::format("10.{}.0.{}", i % 4, i);
      addressIs(*tree.ipMib, text, 16 + i % 16, i % 5);
      addressIs(*tree.ipMib, fmt::format("2001:db8::{}", i), 64, i % 5);
      neighbourIs(*tree.ipMib, i % 5, text, neighbours);
      neighbourIs(*tree.ipMib, i % 5, fmt::format("fe80::{}", i), neighbours);
      routes.routeIs(fmt::format("10.{}.{}.0/{}", i % 4, i, 24 + i % 8), 1 + i % 3);
      Quillo::Fib6::Route route;
      route.prefix = Vantu::Ip6Prefix::fromString(fmt::format("2001:db8:{}::/{}", i, 48 + i % 80));
      route.fecId = Quillo::Fib::FecId(1 + i % 4);
      routes.routes6->routeIs(route);
      tree.ipVrfMib->vrfTableIs(Snmp::String(fmt::format("v{}", i)), nullptr, nullptr, nullptr);
      tree.agentMib->vrfTableIs(Snmp::String(fmt::format("v{}", i)));
      tree.fibStatsMib->routeInc(Ip::IpVersion(1 + i % 2), FibStatsSnmp::routeTypeStatic, i % 33);
    }
    for (unsigned ifIndex = 1; ifIndex < 8; ++ifIndex) {
      ifTableIs(*tree.ifTables, ifIndex, ifIndex % 3);
      interfaceIs(*tree.ipMib, Ip::IpVersion(1 + ifIndex % 2), ifIndex, ifIndex);
      tree.ipMib->ipDefaultRouterTableIs(IpSnmp::DefaultRouterIndex(inetAddress("10.0.0.1"), ifIndex));
      tree.ipMib->ipDefaultRouterTableIs(IpSnmp::DefaultRouterIndex(inetAddress("fe80::1"), ifIndex));
      tree.ipMib->ipIfStatsTableIs(IpSnmp::IpVersionIfIndex(Ip::ipVersion6, ifIndex));
      tree.ipVrfMib->vrfIfTableIs(ifIndex)->vrfNameIs("v1");
      routes.intfIs(fmt::format("eth{}", ifIndex), static_cast<std::int32_t>(ifIndex));
    }
    routes.fecIs(1, {{"10.1.1.1", ""}});
    routes.fecIs(2, {{"10.1.1.2", ""}, {"10.1.1.3", ""}});
    routes.fecIs(4, {{"fe80::1", "eth1"}, {"fe80::1", "eth2"}, {"2001:db8::1", ""}});
    routes.settle();
    for (const auto& object : mibObjects()) {
      if (object.isTable()) tables.push_back(object);
    }
  }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  Kel::Ptr<Arp::Table::TestStatus> neighbours = Kel::makePtr<Arp::Table::TestStatus>();
  IpSnmpTest::SettledRoutes routes{tree.ipForwardMib};
  Snmp::Contexts contexts;
  std::vector<MibObject> tables;
};

World& world() {
  static World& world = *new World;  // net-snmp's agent lives as long as the process
  return world;
}

bool isBehind(const std::string& name, const std::string& asked) {
  const Oid a = oidOf(name);
  const Oid b = oidOf(asked);
  return std::lexicographical_compare(b.begin(), b.end(), a.begin(), a.end());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3 || size > 3 + 4 * 100) return 0;
  const MibObject& table = world().tables[data[0] % world().tables.size()];
  std::string name = fmt::format("{}.1.{}", table.identifier, 1 + data[1] % 50);
  std::size_t count = 0;
  for (std::size_t at = 3; at < size && ++count <= 100;) {
    unsigned long number = data[at++];
    for (int i = 0; number >= 0xF0 && i < 4 && at < size; ++i) number = (number << 8 | data[at++]) & 0xFFFFFFFF;
    name += fmt::format(".{}", number);
  }
  const bool isNext = data[2] % 2 == 0;
  SortedHandler::setEnabled(true);
  const Answer answer = isNext ? world().agent.getNext(name) : world().agent.get(name);
  SortedHandler::setEnabled(false);
  const Answer searched = isNext ? world().agent.getNext(name) : world().agent.get(name);
  const bool isEnd = answer.type == SNMP_ENDOFMIBVIEW;
  if (answer != searched || (isNext && !isEnd && !isBehind(answer.name, name))) {
    fmt::print(stderr, "{} {}: {} {} {}, searched: {} {} {}\n", isNext ? "GETNEXT" : "GET", name, answer.name,
               answer.type, answer.value, searched.name, searched.type, searched.value);
    std::abort();
  }
  return 0;
}
