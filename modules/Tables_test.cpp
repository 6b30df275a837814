// What every table answers in two contexts: random requests over random rows are answered as the caches say, and alike
// with the handler of sorted tables and without.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "ipsnmp/ProtocolMap.h"
#include "ipsnmp/testing/TestRoutes.h"
#include "modules/frame/SortedHandler.h"
#include "modules/testing/TestReference.h"
#include "quillo/testing/TestArpTable.h"
#include "snmp/Contexts.h"
#include "swfwdstats/Counter.h"

namespace {

using namespace Modules;
using Kel::makePtr;
using ::testing::Contains;
using ::testing::Each;
using ::testing::HasSubstr;

class Tables : public ::testing::Test {
 protected:
  // What one context serves, and what a manager must be answered there.
  struct Vrf {
    const char* community;
    Kel::Ptr<Routing::Config> config;
    Kel::Ptr<IpSnmp::IpMib> mib;
    Kel::Ptr<IpSnmp::IpForwardMib> forwardMib;
    Kel::Ptr<FibStatsSnmp::FibStatsMib> fibStats;
    IpSnmpTest::SettledRoutes routes{forwardMib};
    Kel::Ptr<Arp::Table::TestStatus> neighbours = makePtr<Arp::Table::TestStatus>();
    Reference reference{};

    bool isDefault() const { return config->name() == "config"; }
  };

  // The kernel's counters, each another number.
  static void SetUpTestSuite() {
    std::filesystem::create_directory(folder());
    std::string snmp6;
#define ADD_LINE(Class, field, name) snmp6 += fmt::format("{} {}\n", name, 5'000'000'000 + snmp6.size());
    SW_FWD_COUNTERS(ADD_LINE)
#undef ADD_LINE
    const std::string netstat = "IpExt: InNoRoutes\nIpExt: 20 21 22 23 24 25 26 27 28 29\n";
    const std::string snmp =
        "Ip: Forwarding DefaultTTL InReceives InHdrErrors InAddrErrors ForwDatagrams InUnknownProtos InDiscards "
        "InDelivers OutRequests OutDiscards OutNoRoutes ReasmTimeout ReasmReqds ReasmOKs ReasmFails FragOKs "
        "FragFails "
        "FragCreates\nIp: 1 64 4294967301 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17\n";
    for (const auto& [variable, text] :
         {std::pair{"PROC_NET_SNMP", snmp}, {"PROC_NET_NETSTAT", netstat}, {"PROC_NET_SNMP6", snmp6}}) {
      const auto file = folder() + "/" + variable;
      setenv(variable, file.c_str(), 1);
      std::ofstream(file) << text;
    }
  }
  static void TearDownTestSuite() {
    std::filesystem::remove_all(folder());
  }
  static std::string folder() {
    return ::testing::TempDir() + "quorin-tables-" + std::to_string(getpid());
  }

  Tables() {
    IpSnmp::fillProtocolMap(IpSnmp::protocolMap());
    contexts.enter("");
    contexts.enter("red");
    // Of two rows, the order of the hashed collection is that of insertion: another one in each context.
    for (const auto version : {Ip::ipVersion4, Ip::ipVersion6}) vrf.mib->ipSwFwdStatsIs(version, "default");
    for (const auto version : {Ip::ipVersion6, Ip::ipVersion4}) red.mib->ipSwFwdStatsIs(version, "default");
  }
  ~Tables() override {
    SortedHandler::setEnabled(true);
    agent.setVersion(SNMP_VERSION_2c);
    agent.hide({});
    agent.setMaxMessage(0);
  }

  void refer(Vrf& to) {
    Reference made;
    made.add(ipObjects + ".1.0", ASN_INTEGER, to.config->routing() ? "1" : "2");
    made.add(ipObjects + ".24.3.0", ASN_GAUGE, std::to_string(to.forwardMib->numRoutes()));
    made.add("1.3.6.1.2.1.2.1.0", ASN_INTEGER, "0");
    for (const char* change : {"5", "6"})
      made.add(fmt::format("1.3.6.1.2.1.31.1.{}.0", change), ASN_TIMETICKS, "0");
    for (const auto& [object, value] : {std::pair{".2.0", std::uint32_t{to.config->defaultTtl()}},
                                        {".13.0", to.config->reasmTimeout()},
                                        {".26.0", to.config->defaultHopLimit()}}) {
      if (value != 0) made.add(ipObjects + object, ASN_INTEGER, std::to_string(value));
    }
    made.add(*to.mib);
    made.addInterfaces(*to.mib);
    made.add(to.routes.model.rows(to.routes.derived));
    made.add(ipObjects + ".24.6.0", ASN_GAUGE, std::to_string(to.forwardMib->inetNumRoutes()));
    made.add(to.routes);
    made.add(*to.fibStats);
    if (to.isDefault()) {
      made.add(ipObjects + ".25.0", ASN_INTEGER, tree.config6->routing() ? "1" : "2");
      made.add(*tree.ipVrfMib);
      made.add(*tree.agentMib);
      for (const int scalar : {1, 2, 3})
        made.add(fmt::format("1.3.6.1.2.1.10.166.11.1.1.{}.0", scalar), ASN_GAUGE, "0");
      made.addContexts(contexts.names());
    }
    to.reference = std::move(made);
  }

  void expectWalks(Vrf& of) {
    refer(of);
    for (const auto& root : {ipObjects, ourObjects}) {
      ASSERT_EQ(agent.walk(root, of.community), of.reference.below(root)) << of.community;
    }
  }

  void vrfIs(const Kel::String& name, const char* distinguisher = "", Ip::VrfState state = Ip::vrfStateActive) {
    const auto local = makePtr<Ip::VrfStatusLocal>(L3::VrfName("any"));
    const auto global = makePtr<Ip::VrfStatusGlobal>(L3::VrfName("any"));
    const auto config = makePtr<Ip::VrfConfig>(L3::VrfName("any"));
    local->stateIs(Ip::vrfStateActive);
    global->stateIs(state);
    config->routeDistinguisherIs(Vantu::RouteDistinguisher::fromString(distinguisher));
    const auto row = tree.ipVrfMib->vrfTableIs(Snmp::String(name), config, global, local);
    row->vrfRoutingStatusIs(name, vrf.config, tree.config6);
  }

  const std::vector<MibObject> served = mibObjects();
  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  Vrf vrf{"public", tree.config, tree.ipMib, tree.ipForwardMib, tree.fibStatsMib};
  Vrf red{"red", tree.redConfig, tree.redIpMib, tree.vrfMibs->mibsIs("red")->ipforwardmib(),
          tree.vrfMibs->mibsIs("red")->fibstatsmib()};
  Snmp::Contexts contexts;
};

class RandomTables : public Tables {
 protected:
  unsigned below(unsigned count) { return static_cast<unsigned>(random.engine() % count); }
  template <class T>
  T any(std::initializer_list<T> values) {
    return *(values.begin() + below(static_cast<unsigned>(values.size())));
  }
  std::string address() {
    if (below(2) == 0) return fmt::format("{}.0.{}.{}", any({0, 10, 44, 255}), below(3), any({0, 1, 44, 255}));
    if (below(4) == 0) return fmt::format("169.254.1.{}", below(4));
    return fmt::format("{}::{:x}", any({"fe80", "2001:db8", "ff02"}), below(4));
  }
  // Net-snmp's INTEGER is signed, interface indexes are not.
  unsigned ifIndex() { return any({0U, 1U, 300U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}); }

  void fillAddresses(IpSnmp::IpMib& mib) {
    mib.ipAddrTableDelAll();
    mib.ipAddressTableDelAll();
    mib.ipAddressPrefixTableDelAll();
    for (unsigned count = below(30); count > 0; --count) {
      const auto text = address();
      if (mib.ipAddressTableHas(inetAddress(text))) continue;
      addressIs(mib, text, below(33), ifIndex(), any({IpSnmp::addressSourceStatus, IpSnmp::addressSourceConfig}));
      if (below(8) > 0) continue;
      const auto row = mib.ipAddressTableIs(inetAddress(text));
      row->intfDelAll();
      row->intfIs({IpSnmp::IntfDataKey(IpSnmp::addressSourceStatus, Vantu::IntfId("eth0")), nullptr});
    }
  }
  void fillInterfaces(Vrf& to) {
    to.config->defaultTtlIs(any({0U, 64U}));
    to.config->defaultHopLimitIs(any({0U, 255U}));
    to.mib->ipInterfaceTableDelAll();
    to.mib->ipIfTrafficTableDelAll();
    to.mib->ipDefaultRouterTableDelAll();
    for (unsigned count = below(8); count > 0; --count) {
      interfaceIs(*to.mib, any({Ip::ipVersion4, Ip::ipVersion6}), ifIndex(), 1 + below(6));
      const IpSnmp::DefaultRouterIndex index(inetAddress(address()), ifIndex());
      to.mib->ipDefaultRouterTableIs(index)->preferenceIs(any({-1, 0, 1}));
    }
  }
  // Some of which are gone from the shared table, or cannot be read there.
  void fillNeighbours(Vrf& to) {
    to.mib->ipNetToPhysicalTableDelAll();
    to.neighbours->tableIs({});
    to.neighbours->damage.reset();
    to.neighbours->reports.clear();
    for (unsigned count = below(30); count > 0; --count) {
      const auto text = address();
      const unsigned number = ifIndex();
      const auto mac = fmt::format("02:00:00:00:{:02x}:{:02x}", below(256), below(256));
      const auto row = neighbourIs(*to.mib, number, text, to.neighbours);
      row->lastUpdatedIs(0);
      if (below(8) == 0) continue;
      const auto physAddress = Vantu::EthAddr::fromString(mac);
      to.neighbours->entryIs({{neighbourVrfId, row->ipGenAddr(), row->intfId()}, physAddress, {below(2) == 0}});
    }
    if (below(3) == 0) to.neighbours->damage = "a record that does not fit its checksum";
  }
  void fillRoutes(Vrf& to) {
    auto& routes = to.routes;
    random.intfs(routes);
    for (unsigned count = below(80); count > 0; --count) random.change(routes);
    auto far = routes.route(IpSnmpTest::prefixOf("255.255.255.255/32"), 20, 11);
    far.metric = Routing::RouteMetric(0xFFFFFFFF);
    far.routePreference = Routing::RoutePreference(255);
    routes.routes->routeIs(far);
    routes.fecIs(20, {{"10.1.1.9", "eth0"}, {"0.0.0.0", ""}});
    routes.settle();
    to.forwardMib->numRoutesIs(any({0, 1, 2147483647}));
    to.forwardMib->inetNumRoutesIs(any({0U, 1U, 4294967295U}));
    for (const auto version : {Ip::ipVersion4, Ip::ipVersion6}) to.fibStats->routeDelAll(version);
    for (unsigned count = below(20); count > 0; --count) {
      const auto version = any({Ip::ipVersion4, Ip::ipVersion6});
      const auto type = static_cast<FibStatsSnmp::RouteType>(any({1U, 3U, 14U, 200U, 205U}));
      to.fibStats->routeInc(version, type, below(version == Ip::ipVersion4 ? 33 : 129));
      if (below(8) == 0) to.fibStats->summaryTableIs(version)->totalRoutesIs(0xFFFFFFFF);
    }
  }
  void fillVrfs() {
    tree.ipVrfMib->vrfTableDelAll();
    tree.ipVrfMib->vrfIfTableDelAll();
    for (unsigned count = below(12); count > 0; --count) {
      const std::string name(any({0U, 1U, 1U, 2U, 2U, 3U, 100U}),
                             any({'\0', ' ', 'a', '.', '\x7f', '\x80', '\xff'}));
      if (tree.ipVrfMib->vrfTableHas(Snmp::String(name))) continue;
      vrfIs(name, any({"", "65000:1", "10.0.0.1:7"}), any({Ip::vrfStateActive, Ip::vrfStateDeleting}));
      if (below(4) == 0) tree.ipVrfMib->vrfTable(Snmp::String(name))->vrfRoutingStatusDel();
      tree.ipVrfMib->vrfIfTableIs(ifIndex())->vrfNameIs(name);
    }
    tree.ipMib->ipIfStatsTableDelAll();
    for (unsigned count = below(5); count > 0; --count) {
      const auto version = any({Ip::ipVersion4, Ip::ipVersion6});
      const auto row = tree.ipMib->ipIfStatsTableIs(IpSnmp::IpVersionIfIndex(version, ifIndex()));
      for (const auto& counter : countersOf("quorinIpIfStatsTable")) {
        Kel::callOperation(*row, "ipIfStats" + counter + "Is", {Kel::Datum(std::uint64_t{random.engine()} << 31)});
      }
    }
  }

  // The name of an object of any table, or one near it.
  std::string near(const Reference& reference) {
    const auto root = served[below(static_cast<unsigned>(served.size()))].identifier;
    const auto objects = reference.below(root);
    Oid name = oidOf(objects.empty() ? root : objects[below(static_cast<unsigned>(objects.size()))].name);
    const std::size_t fixed = below(8) > 0 ? oidOf(root).size() : 7;
    for (unsigned changes = below(4); changes > 0; --changes) {
      if (name.size() < fixed) return textOf(name);
      const std::size_t place = fixed + below(static_cast<unsigned>(name.size() - fixed + 1));
      switch (below(5)) {
        case 0:
          name.resize(place);
          break;
        case 1:
          for (unsigned left = below(3) + 1; left > 0; --left) name.push_back(any<oid>({0, 1, 255, 4294967295}));
          break;
        case 2:
          if (place < name.size()) {
            name[place] = any<oid>({0, 1, 2, 4, 5, 16, 44, 127, 128, 129, 255, 256, 300, 2147483648, 4294967295});
          }
          break;
        default:
          if (place < name.size()) name[place] = (name[place] + below(2) * 2 - 1) & 0xFFFFFFFF;
      }
    }
    if (name.size() > MAX_OID_LEN) name.resize(MAX_OID_LEN);
    return textOf(name);
  }

  // The object of the same row in the next column, if the name is one of a table of IP-MIB or IP-FORWARD-MIB.
  static std::string columnAfter(const std::string& name) {
    Oid other = oidOf(name);
    const std::size_t column = other.size() > 7 && other[7] == 24 ? 10 : 9;
    if (other.size() > column) other[column] = (other[column] + 1) & 0xFFFFFFFF;
    return textOf(other);
  }

  void ask(const Vrf& of, int command, const std::vector<std::string>& names) {
    const long nonRepeaters = command == SNMP_MSG_GETBULK ? long{below(3)} : 0;
    const long repetitions = command == SNMP_MSG_GETBULK ? any({0L, 1L, long{below(6)}, 25L, 1000L}) : 0;
    const auto answered = [&](bool isHandled) {
      SortedHandler::setEnabled(isHandled);
      return command == SNMP_MSG_SET ? agent.set(names[0], 1, of.community)
                                     : agent.send(command, names, of.community, nonRepeaters, repetitions);
    };
    const auto reply = answered(true);
    SCOPED_TRACE(fmt::format("command {} ({}, {}) of {} in {}", command, nonRepeaters, repetitions,
                             fmt::join(names, " "), of.community));
    if (!isLimited || command != SNMP_MSG_GETBULK) {  // where net-snmp may answer hidden rows, or never
      const auto helped = answered(false);
      ASSERT_EQ(reply.errorStatus, helped.errorStatus);
      ASSERT_EQ(reply.errorIndex, helped.errorIndex);
      ASSERT_EQ(reply.answers, helped.answers);
      if (isLimited) return;
    }
    if (command == SNMP_MSG_SET) {
      const int refused = isFirstVersion ? SNMP_ERR_NOSUCHNAME : SNMP_ERR_NOTWRITABLE;
      ASSERT_NE(reply.errorStatus, SNMP_ERR_NOERROR);
      ASSERT_TRUE(of.reference.get(names[0]) == nullptr || reply.errorStatus == refused);
      return;
    }
    // SNMPv1 passes over the counters of 64 bits.
    if (reply.errorStatus != SNMP_ERR_NOERROR || isFirstVersion) return;
    if (command == SNMP_MSG_GET) {
      for (std::size_t i = 0; i < names.size(); ++i) {
        if (const auto* expected = of.reference.get(names[i])) {
          ASSERT_EQ(reply.answers[i], *expected);
        } else {
          ASSERT_EQ(reply.answers[i].value.substr(0, 6), "noSuch");
        }
      }
      return;
    }
    auto at = names;
    const std::size_t once = std::min(static_cast<std::size_t>(nonRepeaters), names.size());
    for (std::size_t i = 0; i < reply.answers.size(); ++i) {
      // Past an end net-snmp fills up a bulk as it pleases. When a bulk outgrows the message, it stops between two
      // empty tables, and sends a null.
      const auto type = reply.answers[i].type;
      if (command == SNMP_MSG_GETBULK && (type == SNMP_ENDOFMIBVIEW || type == ASN_NULL)) return;
      auto& from = at[i < once ? i : once + (i - once) % (names.size() - once)];
      // Where a whole index that is no row's leads to among the routes, their iterator's own test shows.
      const bool isRouteIndex = from.starts_with(ipObjects + ".24.4.1.") && oidOf(from).size() >= 24;
      if (!isRouteIndex || of.reference.get(from) != nullptr) {
        Answer expected = of.reference.next(from);
        while (expected.type != SNMP_ENDOFMIBVIEW && TestAgent::isHidden(expected.name)) {
          expected = of.reference.next(expected.name);
        }
        ASSERT_EQ(reply.answers[i], expected) << "after " << from;
      }
      from = reply.answers[i].name;
    }
  }

  IpSnmpTest::RandomRoutes random{31};
  // Hides objects, or limits the agent's messages.
  void limit(const Reference& reference) {
    std::vector<Oid> hidden;
    for (unsigned count = below(4); count > 0; --count) {
      Oid subtree = oidOf(near(reference));
      if (below(2) == 0) subtree.resize(std::min<std::size_t>(subtree.size(), 7 + below(6)));
      if (below(2) == 0) subtree[below(static_cast<unsigned>(subtree.size()))] = TestAgent::any;
      hidden.push_back(std::move(subtree));
    }
    agent.hide(std::move(hidden));
    agent.setMaxMessage(any({484, 1000, 1472, 10000, 0}));
  }
  void unlimit() {
    agent.hide({});
    agent.setMaxMessage(0);
  }

  bool isFirstVersion = false;
  bool isLimited = false;
};

TEST_F(RandomTables, answerAsTheCachesSayWithTheSortedHandlerAndWithout) {
  bool wasDamaged = false;
  for (int round = 0; round < 12 && !HasFatalFailure(); ++round) {
    if (round > 0) fillVrfs();
    for (auto* each : {&vrf, &red}) {
      if (round > 0) {  // empty at first
        each->config->routingIs(below(2) == 0);
        tree.config6->routingIs(below(2) == 0);
        fillAddresses(*each->mib);
        fillInterfaces(*each);
        fillNeighbours(*each);
        fillRoutes(*each);
      }
    }
    for (auto* each : {&vrf, &red}) {
      expectWalks(*each);
      for (int i = 0; i < 100 && !HasFatalFailure(); ++i) {
        std::vector<std::string> names;
        for (unsigned count = 1 + below(2) * below(8); count > 0; --count) names.push_back(near(each->reference));
        if (below(3) == 0 && names.size() > 1) names[1] = columnAfter(names[0]);
        isLimited = i >= 60;
        if (isLimited) limit(each->reference);
        isFirstVersion = below(4) == 0;
        agent.setVersion(isFirstVersion ? SNMP_VERSION_1 : SNMP_VERSION_2c);
        for (const unsigned command : {SNMP_MSG_GET, SNMP_MSG_GETNEXT, SNMP_MSG_GETBULK, SNMP_MSG_SET}) {
          if (command != SNMP_MSG_GETBULK || !isFirstVersion) ask(*each, static_cast<int>(command), names);
        }
      }
      unlimit();
      agent.setVersion(SNMP_VERSION_2c);
      expectWalks(*each);  // nothing was set
      const auto& reports = each->neighbours->reports;
      if (!reports.empty()) {
        EXPECT_THAT(reports, Each(HasSubstr("a record that does not fit its checksum")));
        wasDamaged = true;
      }
    }
  }
  EXPECT_TRUE(wasDamaged);
}

TEST_F(Tables, timesAreUpTimes) {
  const auto neighbour = neighbourIs(*vrf.mib, 3, "10.0.0.1", vrf.neighbours);
  const auto counters = vrf.mib->ipIfStatsTableIs(IpSnmp::IpVersionIfIndex(Ip::ipVersion6, 3));
  const auto now = static_cast<double>(netsnmp_get_agent_uptime());
  for (const auto& [from, ticks] : {std::pair{0.0, now}, {1000.0, now + 100'000}, {-1e6, 0.0}}) {
    neighbour->lastUpdatedIs(Kel::System::currentTime() + from);
    counters->discontinuityTimeIs(Kel::System::currentTime() + from);
    for (const auto& cell : {ipObjects + ".35.1.5.3.1.4.10.0.0.1", ourObjects + ".27.1.1.1.15.2.3"}) {
      EXPECT_NEAR(std::stod(agent.get(cell).value), ticks, 100) << cell;
    }
  }
}

TEST_F(Tables, aNameThatDoesNotFitAnOidHidesNoOther) {
  const auto cell = [](unsigned column, const std::string& name) {
    return fmt::format("{}.18.1.1.1.{}.{}", ourObjects, column, Reference::index(Snmp::String(name)));
  };
  for (const std::size_t length : {3U, 114U, 115U, 128U, 2000U}) vrfIs(std::string(length, 'l'));
  expectWalks(vrf);  // which leaves out what does not fit
  TraceLines lines("VrfBase");
  EXPECT_EQ(agent.getNext(cell(2, std::string(114, 'l'))).name, cell(3, "lll"));
  EXPECT_THAT(lines.take(), Contains("0 quorinVrfTable: the index of the row " + std::string(115, 'l') +
                                     " cannot be written; the row is not served"));
  // An index that claims to be longer than it is, and one of the longest that a request may have.
  EXPECT_EQ(agent.getNext(ourObjects + ".18.1.1.1.2.120.108").name, cell(3, "lll"));
  EXPECT_EQ(agent.get(cell(4, std::string(114, 'z'))).value, "noSuchInstance");
}

TEST_F(Tables, aMembershipOfMoreThanAHundredBytesIsGenErr) {
  tree.ipVrfMib->vrfIfTableIs(3U)->vrfNameIs(std::string(100, 'r'));
  expectWalks(vrf);
  tree.ipVrfMib->vrfIfTableIs(4U)->vrfNameIs(std::string(101, 'r'));
  EXPECT_EQ(agent.send(SNMP_MSG_GET, {ourObjects + ".18.1.2.1.1.4"}).errorStatus, SNMP_ERR_GENERR);
}

// As the MIB texts have it, also without the standard modules.
TEST_F(Tables, netSnmpsToolsShowThemByName) {
  vrfIs("red", "65000:1");
  tree.ipVrfMib->vrfIfTableIs(3U)->vrfNameIs("red");
  tree.agentMib->vrfTableIs(Snmp::String("red"));
  tree.ipMib->ipIfStatsTableIs(IpSnmp::IpVersionIfIndex(Ip::ipVersion6, 3))->ipIfStatsOutMcastOctetsIs(18);
  vrf.fibStats->routeInc(Ip::ipVersion4, FibStatsSnmp::routeTypeStatic, 24);
  vrf.fibStats->routeInc(Ip::ipVersion6, FibStatsSnmp::routeTypeStaticNexthopGroup, 48);
  refer(vrf);
  Words expected{"VrfRoutingStatus.\"red\" = \"00 \"",
                 "VrfRouteDistinguisher.\"red\" = 65000:1",
                 "VrfState.\"red\" = active",
                 "VrfIfMembership.3 = red",
                 "FIBStatsTotalRoutes.ipv4 = 1",
                 "FIBStatsTotalRoutesForRouteType.ipv4.static = 1",
                 "FIBStatsTotalRoutesForRouteType.ipv6.staticNexthopGroup = 1",
                 "FIBStatsTotalRoutesForPrefixLen.ipv6.48 = 1",
                 "IpIfStatsOutMcastOctets.ipv6.3 = 18",
                 "IpIfStatsDiscontinuityTime.ipv6.3 = 0:0:00:00.00",
                 "IpIfStatsRefreshRate.ipv6.3 = 2000 milliseconds",
                 "SwFwdIpStatsRefreshRate.ipv4 = 500 milliseconds"};
  unsigned column = 3;
  for (const auto& counter : countersOf("quorinSwFwdIpStatsTable")) {
    const auto* const answer = vrf.reference.get(fmt::format("{}.1.1.1.1.{}.2", ourObjects, column++));
    expected.push_back(fmt::format("SwFwdIpStats{}.ipv6 = {}", counter, answer->value));
  }
  for (const auto& object : served) {
    for (const auto& name : object.columns) {
      if (name.starts_with("quorin")) expected.push_back(name.substr(6) + ".");
    }
  }
  for (const char* path : {QUORIN_MIB_DIR ":" QUORIN_MIB_DIR "/standard", QUORIN_MIB_DIR}) {
    const auto walked =
        agent.outputOf(fmt::format("env -u MIBS -u MIBDIRS snmpwalk -v2c -c public -OQ -M {} -m ALL AGENT {}", path,
                                   textOf(enterpriseObject({}))));
    for (const auto& line : expected) EXPECT_THAT(walked, HasSubstr("::quorin" + line)) << path;
  }
}

}  // namespace
