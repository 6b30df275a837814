// The IpBase module as a manager sees it.

#include "modules/IpBase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "modules/frame/Enterprise.h"
#include "modules/testing/TestAgent.h"
#include "modules/testing/TestReference.h"
#include "snmp/Contexts.h"

namespace {

using namespace Modules;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string ipForwarding = "1.3.6.1.2.1.4.1.0";
const std::string ipCidrRouteNumber = "1.3.6.1.2.1.4.24.3.0";
const std::string ipv6IpForwarding = "1.3.6.1.2.1.4.25.0";
const std::string ipAddrTable = "1.3.6.1.2.1.4.20";
const std::string column(unsigned number) {
  return ipAddrTable + ".1." + std::to_string(number);
}

class IpBaseTest : public ::testing::Test {
 protected:
  ~IpBaseTest() override { agent.versionIs(SNMP_VERSION_2c); }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  Snmp::Contexts contexts;
};

TEST_F(IpBaseTest, everyModuleRegistersItsObjectsInTheContextsItIsEnteredIn) {
  contexts.enter("");
  contexts.enter("red");
  EXPECT_THAT(Snmp::mibContextModules("red"),
              ElementsAre("IpBase", "IpForward", "IpSwForwarding", "VrfBase", "quorinFIBStatsMIB", "quorinIpMIB"));
  // Scalars go before other modules of the same object; tables leave that to the agent's default.
  constexpr int first = 64, usual = 127, readOnly = 0, readWrite = HANDLER_CAN_SET;
  const std::tuple<std::string, Oid, int, int> objects[]{
      {"ipForwarding", oidOf(ipForwarding), first, readWrite},
      {"ipv6IpForwarding", oidOf(ipv6IpForwarding), first, readWrite},
      {"ipCidrRouteNumber", oidOf(ipCidrRouteNumber), first, readOnly},
      {"ipAddrTable", oidOf(ipAddrTable), usual, readOnly},
      {"ipNetToMediaTable", oidOf("1.3.6.1.2.1.4.22"), usual, readWrite},
      {"ipCidrRouteTable", oidOf("1.3.6.1.2.1.4.24.4"), usual, readWrite},
      {"ipAddressPrefixTable", oidOf("1.3.6.1.2.1.4.32"), usual, readOnly},
      {"ipAddressTable", oidOf("1.3.6.1.2.1.4.34"), usual, readWrite},
      {"ipNetToPhysicalTable", oidOf("1.3.6.1.2.1.4.35"), usual, readWrite},
      {"quorinSwFwdIpStatsTable", enterpriseObject({3, 1, 1, 1}), usual, readOnly},
      {"quorinVrfTable", enterpriseObject({3, 18, 1, 1}), usual, readOnly},
      {"quorinVrfIfTable", enterpriseObject({3, 18, 1, 2}), usual, readOnly},
      {"quorinFIBStatsSummaryTable", enterpriseObject({3, 23, 1, 1}), usual, readOnly},
      {"quorinIpIfStatsTable", enterpriseObject({3, 27, 1, 1}), usual, readOnly}};
  for (const auto& [name, object, priority, modes] : objects) {
    const auto* const subtree = netsnmp_subtree_find(object.data(), object.size(), nullptr, "");
    ASSERT_TRUE(subtree != nullptr && subtree->reginfo != nullptr) << name;
    EXPECT_EQ(subtree->reginfo->handlerName, name + "_");
    EXPECT_EQ(subtree->reginfo->priority, priority) << name;
    EXPECT_EQ(subtree->reginfo->modes & HANDLER_CAN_SET, modes) << name;
  }
  contexts.leave("red");
  EXPECT_THAT(Snmp::mibContextModules("red"), IsEmpty());
}

class IpAddrTableTest : public IpBaseTest {
 protected:
  IpAddrTableTest() {
    reference.add(ipForwarding, ASN_INTEGER, "2");
    reference.add(ipCidrRouteNumber, ASN_GAUGE, "0");
    reference.add(ipv6IpForwarding, ASN_INTEGER, "2");
    for (const char* addr : {"1.2.3.4", "9.255.255.255", "10.0.0.0", "10.0.0.1", "10.0.0.2", "10.0.1.0", "10.1.0.0",
                             "100.0.0.1", "127.0.0.1", "128.0.0.1", "255.255.255.255"}) {
      ip.addressIs(addr, 24, 3);
    }
    contexts.enter("");
  }

  // Near the objects of the ipAddrTable: partial, complete and over-long indexes, numbers that are no address bytes.
  std::string randomName() {
    const auto any = [this](std::initializer_list<oid> values) {
      return *(values.begin() + static_cast<std::ptrdiff_t>(random() % values.size()));
    };
    Oid name = oidOf(ipAddrTable);
    if (random() % 20 != 0) name.push_back(any({0, 1, 1, 1, 1, 1, 1, 2}));
    name.push_back(any({0, 1, 2, 3, 4, 5, 6, 4294967295}));
    for (auto length = random() % 7; length > 0; --length) {
      name.push_back(
          any({0, 0, 0, 1, 1, 2, 3, 4, 9, 10, 10, 10, 100, 127, 128, 254, 255, 255, 256, 300, 4294967295}));
    }
    return textOf(name);
  }

  std::mt19937 random{20};
  TestIpRows ip{tree.ipMib};
  Reference& reference = ip.reference;
};

TEST_F(IpAddrTableTest, getNextAgreesWithTheOrderOfIdentifiers) {
  EXPECT_EQ(agent.getNext(ipAddrTable), reference.next(ipAddrTable));
  for (int i = 0; i < 2000; ++i) {
    const auto name = randomName();
    ASSERT_EQ(agent.getNext(name), reference.next(name)) << "after " << name;
  }
}

TEST_F(IpAddrTableTest, getAnswersOnlyWhatIsThere) {
  for (int i = 0; i < 2000; ++i) {
    const auto name = randomName();
    const auto expected = reference.get(name);
    const auto answer = agent.get(name);
    if (expected.type != 0) {
      ASSERT_EQ(answer, expected);
    } else {
      ASSERT_THAT(answer.type, ::testing::AnyOf(SNMP_NOSUCHOBJECT, SNMP_NOSUCHINSTANCE)) << answer;
    }
  }
  EXPECT_EQ(agent.get(column(2) + ".10.9.9.9").value, "noSuchInstance");
  EXPECT_EQ(agent.get(column(0) + ".10.0.0.1").value, "noSuchObject");
  EXPECT_EQ(agent.get(column(6) + ".10.0.0.1").value, "noSuchObject");
}

TEST_F(IpAddrTableTest, getBulkGivesTheSameAsGetNext) {
  for (const auto& from : {ipAddrTable, column(3) + ".10.0.0.0", column(5) + ".128.0.0.1"}) {
    const auto reply = agent.send(SNMP_MSG_GETBULK, {from}, "public", 0, 25);
    EXPECT_EQ(reply.errorStatus, SNMP_ERR_NOERROR);
    auto expected = reference.next(from);
    for (const auto& answer : reply.answers) {
      EXPECT_EQ(answer, expected);
      expected = reference.next(answer.name);
    }
    EXPECT_TRUE(reply.answers.size() == 25 || reply.answers.back().type == SNMP_ENDOFMIBVIEW);
  }
  const auto rows = agent.send(SNMP_MSG_GETBULK, {ipForwarding, column(1), column(2)}, "public", 1, 2).answers;
  ASSERT_EQ(rows.size(), 5U);
  EXPECT_EQ(rows[3].name, column(1) + ".9.255.255.255");
  EXPECT_EQ(rows[4].name, column(2) + ".9.255.255.255");
}

TEST_F(IpAddrTableTest, oneRequestWithManyVariables) {
  const auto reply = agent.send(SNMP_MSG_GETNEXT, {column(5) + ".255.255.255.255", column(1),
                                                   column(2) + ".10.0.0.1", column(2) + ".10.0.0.1"});
  ASSERT_EQ(reply.answers.size(), 4U);
  for (const auto& [answer, name] :
       {std::pair{reply.answers[0], ipCidrRouteNumber}, std::pair{reply.answers[1], column(1) + ".1.2.3.4"},
        std::pair{reply.answers[2], column(2) + ".10.0.0.2"},
        std::pair{reply.answers[3], column(2) + ".10.0.0.2"}}) {
    EXPECT_EQ(answer.name, name);
  }
}

TEST_F(IpAddrTableTest, setIsRefused) {
  for (const auto& name : {column(2) + ".10.0.0.1", column(2) + ".10.9.9.9", column(6) + ".10.0.0.1", ipForwarding,
                           ipv6IpForwarding}) {
    const auto reply = agent.set(name, 1);
    EXPECT_EQ(reply.errorStatus, SNMP_ERR_NOTWRITABLE) << name;
    EXPECT_EQ(reply.errorIndex, 1) << name;
  }
  EXPECT_FALSE(tree.config->routing());
  agent.versionIs(SNMP_VERSION_1);
  for (const auto& name : {column(2) + ".10.0.0.1", ipForwarding}) {
    EXPECT_EQ(agent.set(name, 1).errorStatus, SNMP_ERR_NOSUCHNAME) << "what SNMPv1 has for notWritable";
  }
}

TEST_F(IpBaseTest, forwardingIsReadAnewPerContext) {
  contexts.enter("");
  contexts.enter("red");
  EXPECT_EQ(agent.get(ipForwarding).value, "2");
  tree.config->routingIs(true);
  tree.config6->routingIs(true);
  EXPECT_EQ(agent.get(ipForwarding), (Answer{ipForwarding, ASN_INTEGER, "1"}));
  EXPECT_EQ(agent.get(ipv6IpForwarding).value, "1");
  EXPECT_EQ(agent.getNext("1.3.6.1.2.1.4.1").name, ipForwarding);
  EXPECT_EQ(agent.get(ipForwarding, "red").value, "2");
  tree.redConfig->routingIs(true);
  tree.config->routingIs(false);
  EXPECT_EQ(agent.get(ipForwarding, "red").value, "1");
  EXPECT_EQ(agent.get(ipForwarding).value, "2");
  EXPECT_EQ(agent.get(ipv6IpForwarding, "red").value, "noSuchObject");
}

TEST_F(IpBaseTest, aContextThatIsLeftAndEnteredAgainServesTheNewCache) {
  contexts.enter("");
  contexts.enter("red");
  addressIs(*tree.redIpMib, "10.0.0.2", 24, 8);
  contexts.leave("red");
  EXPECT_THAT(agent.walk("1.3.6.1.2.1.4", "red"), IsEmpty());
  tree.vrfMibs->mibsDel("red");
  addressIs(*tree.vrfMibs->mibsIs("red")->ipmib(), "10.0.0.3", 24, 8);
  addressIs(*tree.ipMib, "10.0.0.1", 24, 7);
  contexts.enter("red");
  EXPECT_EQ(agent.walk(column(1), "red"),
            (std::vector{Answer{column(1) + ".10.0.0.3", ASN_IPADDRESS, "10.0.0.3"}}));
  EXPECT_EQ(agent.walk(column(1)).size(), 1U) << "each context has its own rows";
  EXPECT_EQ(agent.getNext(column(1)).value, "10.0.0.1");
}

TEST_F(IpBaseTest, aRequestThatRacesTheRemovalOfAVrfReadsItsOldCache) {
  contexts.enter("");
  contexts.enter("red");
  addressIs(*tree.redIpMib, "10.0.0.2", 24, 8);
  tree.redConfig->routingIs(true);
  tree.vrfMibs->mibsDel("red");
  tree.vrfConfigs->vrfConfigDel("red");
  EXPECT_EQ(agent.getNext(column(1), "red").value, "10.0.0.2");
  EXPECT_EQ(agent.get(ipForwarding, "red").value, "1");
  EXPECT_GT(tree.redIpMib->use_count(), 1U);
  EXPECT_GT(tree.redConfig->use_count(), 1U);
  contexts.leave("red");
  EXPECT_EQ(tree.redIpMib->use_count(), 1U) << "the registrations have let go";
  EXPECT_EQ(tree.redConfig->use_count(), 1U);
}

// Somebody else's object inside a registration makes net-snmp copy it. The tree stays divided at that object for
// the life of the process, so these are objects that no other test asks for.
TEST_F(IpBaseTest, anObjectOfAnotherInsideOursLeavesOursAnswering) {
  addressIs(*tree.ipMib, "10.0.0.1", 24, 7);
  addressIs(*tree.ipMib, "11.0.0.1", 24, 7);
  const auto expectAnswers = [&] {
    EXPECT_EQ(agent.get(ipForwarding).value, "2");
    EXPECT_EQ(agent.get(column(1) + ".10.0.0.1").value, "10.0.0.1");
    EXPECT_EQ(agent.getNext(column(1) + ".10.0.0.1").value, "11.0.0.1");
    const auto twice = agent.send(SNMP_MSG_GETNEXT, {column(2) + ".10.0.0.1", column(2)}).answers;
    EXPECT_EQ(twice.at(0).name, column(2) + ".11.0.0.1");
    EXPECT_EQ(twice.at(1).name, column(2) + ".10.0.0.1");
  };
  contexts.enter("");
  for (const auto& intruder : {column(1) + ".10.77.77.77", ipForwarding + ".5"}) {
    const Oid name = oidOf(intruder);
    auto* registration = netsnmp_create_handler_registration(
        "intruder", [](auto...) { return SNMP_ERR_NOERROR; }, name.data(), name.size(), HANDLER_CAN_RONLY);
    ASSERT_EQ(netsnmp_register_handler(registration), MIB_REGISTERED_OK);
    expectAnswers();
    ASSERT_EQ(netsnmp_unregister_handler(registration), SNMPERR_SUCCESS);
  }
  contexts.leave("");
  EXPECT_THAT(agent.walk("1.3.6.1.2.1.4"), IsEmpty());
  EXPECT_EQ(tree.ipMib->use_count(), 2U) << "the tree's and the test's";
  contexts.enter("");
  expectAnswers();
}

}  // namespace
