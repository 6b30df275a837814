// That the seek gate changes no answer, and that it saves what it is there to save.

#include "modules/frame/SeekGate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "ipsnmp/testing/TestRoutes.h"
#include "modules/frame/Enterprise.h"
#include "modules/testing/TestReference.h"
#include "snmp/Contexts.h"

namespace {

using namespace Modules;

const std::string ipGroup = "1.3.6.1.2.1.4";
const std::string vrfGroup = textOf(enterpriseObject({3, 18, 1}));

class SeekGateTest : public ::testing::Test {
 protected:
  SeekGateTest() {
    contexts.enter("");
    contexts.enter("red");
  }
  ~SeekGateTest() override {
    SeekGate::isOnIs(true);
    agent.versionIs(SNMP_VERSION_2c);
  }

  // The requests of a walk that go on to a further row.
  std::size_t stepsOf(const std::string& facility, int command, const std::string& name) {
    TraceLines lines(facility);
    agent.send(command, {name});
    const auto said = lines.take();
    return static_cast<std::size_t>(std::count_if(said.begin(), said.end(), [](const auto& line) {
      return line.find("_get_next_data_point - advancing") != std::string::npos;
    }));
  }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  TestIpRows rows{tree.ipMib};
  TestIpRows redRows{tree.redIpMib};
  IpSnmpTest::SettledRoutes routes{tree.ipForwardMib};
  IpSnmpTest::SettledRoutes redRoutes{tree.vrfMibs->mibsIs("red")->ipforwardmib()};
  Snmp::Contexts contexts;
};

// Prefixes whose FEC no machine knows yet: nothing passes over them, and there are too many to look at.
TEST_F(SeekGateTest, aWalkThatGivesUpIsAnErrorRatherThanTheEnd) {
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

// Tables of every kind of index, at random, and requests near their rows.
class SeekGateAtRandom : public SeekGateTest {
 protected:
  unsigned below(unsigned count) { return static_cast<unsigned>(random.engine() % count); }
  template <class T>
  T any(std::initializer_list<T> values) {
    return *(values.begin() + below(static_cast<unsigned>(values.size())));
  }
  std::string address() {
    if (below(2) == 0) return fmt::format("{}.0.{}.{}", any({0, 10, 44, 255}), below(3), any({0, 1, 44, 255}));
    return fmt::format("{}::{:x}", any({"fe80", "2001:db8", "ff02"}), below(4));
  }
  void fill(TestIpRows& into) {
    for (unsigned count = below(30); count > 0; --count) {
      const auto text = address();
      const unsigned ifIndex = any({0U, 1U, 300U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU});
      if (!into.mib->ipAddressTableHas(TestIpRows::inetAddress(text))) into.addressIs(text, below(33), ifIndex);
      into.neighbourIs(ifIndex, address(), "0a01");
    }
  }
  void fill(IpSnmpTest::SettledRoutes& into) {
    random.intfs(into);
    for (unsigned count = below(80); count > 0; --count) random.change(into);
    into.settle();
  }
  void fillVrfs() {
    for (unsigned count = below(10); count > 0; --count) {
      const std::string name(below(4), any({'\0', 'a', ',', '\xff'}));
      if (tree.ipVrfMib->vrfTableHas(Snmp::String(name))) continue;
      tree.ipVrfMib->vrfTableIs(Snmp::String(name), nullptr, nullptr, nullptr)
          ->vrfRoutingStatusIs(name, nullptr, nullptr);
      tree.ipVrfMib->vrfIfTableIs(any({0U, 1U, 300U, 0x80000000U, 0xFFFFFFFFU}))->vrfNameIs(name);
    }
  }

  // An object's name or an identifier near it.
  std::string near(const std::vector<Answer>& objects) {
    Oid name = objects.empty() ? oidOf(ipGroup + ".24.4.1.1")
                               : oidOf(objects[below(static_cast<unsigned>(objects.size()))].name);
    for (unsigned changes = below(4); changes > 0; --changes) {
      // Behind the group, so often enough behind the column.
      const std::size_t fixed = 7;
      const std::size_t at = fixed + below(static_cast<unsigned>(name.size() - fixed + 1));
      switch (below(5)) {
        case 0:
          name.resize(at);
          break;
        case 1:
          for (unsigned left = below(3) + 1; left > 0; --left) name.push_back(any<oid>({0, 1, 255, 4294967295}));
          break;
        case 2:
          if (at < name.size())
            name[at] = any<oid>({0, 1, 2, 4, 16, 44, 127, 128, 129, 255, 256, 300, 2147483648, 4294967295});
          break;
        default:
          if (at < name.size()) name[at] = (name[at] + below(2) * 2 - 1) & 0xFFFFFFFF;
      }
    }
    return textOf(name);
  }

  // What is wrong when the answers differ with the gates and without.
  void expectSame(int command, const std::vector<std::string>& names, const std::string& community) {
    const long nonRepeaters = below(3);
    const long repetitions = below(6);
    const auto answered = [&](bool isOn) {
      SeekGate::isOnIs(isOn);
      return agent.send(command, names, community, nonRepeaters, repetitions);
    };
    const auto with = answered(true);
    const auto without = answered(false);
    const auto what = fmt::format("command {} of {} in {}", command, fmt::join(names, " "), community);
    ASSERT_EQ(with.errorStatus, without.errorStatus) << what;
    ASSERT_EQ(with.errorIndex, without.errorIndex) << what;
    ASSERT_EQ(with.answers, without.answers) << what;
  }

  IpSnmpTest::RandomRoutes random{29};
};

TEST_F(SeekGateAtRandom, changesNoAnswer) {
  for (int round = 0; round < 20 && !HasFailure(); ++round) {
    for (auto* each : {&rows, &redRows}) {
      each->mib->ipAddrTableDelAll();
      each->mib->ipAddressTableDelAll();
      each->mib->ipAddressPrefixTableDelAll();
      each->mib->ipNetToPhysicalTableDelAll();
      fill(*each);
    }
    fill(routes);
    fill(redRoutes);
    fillVrfs();
    for (const auto* community : {"public", "red"}) {
      SeekGate::isOnIs(false);
      auto objects = agent.walk(ipGroup, community);
      for (const auto& object : agent.walk(vrfGroup, community)) objects.insert(objects.end(), 10, object);
      for (int i = 0; i < 120 && !HasFailure(); ++i) {
        std::vector<std::string> names;
        for (unsigned count = 1 + below(2) * below(4); count > 0; --count) names.push_back(near(objects));
        const bool isFirstVersion = below(3) == 0;
        agent.versionIs(isFirstVersion ? SNMP_VERSION_1 : SNMP_VERSION_2c);
        expectSame(SNMP_MSG_GET, names, community);
        expectSame(SNMP_MSG_GETNEXT, names, community);
        if (!isFirstVersion) expectSame(SNMP_MSG_GETBULK, names, community);
      }
      agent.versionIs(SNMP_VERSION_2c);
    }
  }
}

TEST_F(SeekGateTest, noRequestWalksTheTable) {
  for (int i = 0; i < 200; ++i) {
    rows.addressIs(fmt::format("10.{}.0.{}", i / 100, i % 100), 24, 3);
    rows.neighbourIs(3, fmt::format("10.{}.0.{}", i / 100, i % 100), "0001");
    routes.routeIs(fmt::format("10.{}.{}.0/24", i / 100, i % 100), 1);
  }
  routes.fecIs(1, {{"10.1.1.1", ""}, {"10.1.1.2", ""}, {"10.1.1.3", ""}});
  routes.settle();
  struct Case {
    const char* facility;
    const char* column;
    std::vector<const char*> absent, above;
    std::size_t most;  // steps
  };
  const Case cases[] = {
      {"IpBase",
       "20.1.2",
       {"10.0.0.200", "11.0.0.0", "10.0.0"},
       {"11.0.0.0", "10.1.0", "10.0.300.1", "10.1.0.1.9"},
       1},
      {"IpBase", "22.1.3", {"3.10.0.0.200", "4.10.0.0.1"}, {"4.10.0.0.1", "3.10.1", "3", "3.10.0.300"}, 1},
      {"IpBase",
       "34.1.3",
       {"1.4.10.0.0.200", "4294967295.4.10.0.0.1", "1.5.10.0.0.1.1"},
       {"1", "1.4", "1.4.10.0", "1.4.300.0.0.0", "1.5", "1.4294967295", "2147483648", "3.1.1"},
       1},
      {"IpForward",
       "24.4.1.1",
       {"10.0.5.0.255.255.255.0.1.10.1.1.1", "10.0.5.0.255.0.255.0.0.10.1.1.1", "11.0.0.0.255.0.0.0.0.0.0.0.0"},
       {"10.1", "10.1.5.0.255.255.255.0.0.10.1.1", "10.1.5.1.255.255.255.0.0.10.9.9.9",
        "11.0.0.0.255.0.0.0.0.0.0.0.0", "10.0.5.0.255.0.255.0.0.10.1.1.1"},
       3}};
  for (const auto& [facility, column, absent, above, most] : cases) {
    for (const char* index : absent) {
      EXPECT_EQ(stepsOf(facility, SNMP_MSG_GET, fmt::format("{}.{}.{}", ipGroup, column, index)), 0U)
          << column << " " << index;
    }
    for (const char* index : above) {
      EXPECT_LE(stepsOf(facility, SNMP_MSG_GETNEXT, fmt::format("{}.{}.{}", ipGroup, column, index)), most)
          << column << " " << index;
    }
  }
  SeekGate::isOnIs(false);
  EXPECT_GT(stepsOf("IpBase", SNMP_MSG_GET, ipGroup + ".20.1.2.10.0.0.200"), 50U);
}

}  // namespace
