// What VRF contexts say of the agent itself.

#include "host/composition/SharedGroups.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "host/agent/StockMibs.h"
#include "modules/testing/TestAgent.h"
#include "modules/testing/TestIpTree.h"
#include "snmp/Contexts.h"

namespace {

using Modules::Answer;
using ::testing::IsEmpty;

// As VRF operators meet the agent: "red" is entered, with the objects of every module.
class SharedGroupsTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    Modules::TestAgent::instance();
    Host::initStockMibs();
    char name[] = "sysName the router";
    netsnmp_config(name);
  }
  SharedGroupsTest() {
    Modules::addressIs(*tree.redIpMib, "10.0.0.1", 24, 7);
    contexts.enter("");
    contexts.enter("red");
  }

  Modules::TestAgent& agent = Modules::TestAgent::instance();
  Modules::TestIpTree tree;
  Host::SharedGroups groups{Host::SharedGroups::ofMaster()};
  Snmp::Contexts contexts;
};

std::vector<std::string> names(const std::vector<Answer>& answers) {
  std::vector<std::string> result;
  for (const auto& answer : answers) result.push_back(answer.name);
  return result;
}

bool countsOn(const Answer& answer) {
  return answer.type == ASN_COUNTER || answer.type == ASN_TIMETICKS;
}

TEST_F(SharedGroupsTest, aVrfHasTheGroupsOfTheDefaultContext) {
  for (const auto& group : Host::SharedGroups::ofMaster()) {
    const std::string root = Modules::textOf(group.root);
    const auto ours = agent.walk(root, "red");
    const auto theirs = agent.walk(root);
    EXPECT_EQ(names(ours), names(theirs)) << group.name;
    EXPECT_GE(ours.size(), 3U) << group.name;
    for (const auto& answer : ours) {
      // Time passes between two requests, and the requests themselves are counted.
      if (!countsOn(answer) && answer.name != "1.3.6.1.6.3.10.2.1.3.0") {
        EXPECT_EQ(answer, agent.get(answer.name)) << group.name;
      }
      EXPECT_EQ(agent.get(answer.name, "red").type, answer.type) << answer.name;
    }
  }
  EXPECT_EQ(agent.get("1.3.6.1.2.1.1.5.0", "red").value, "74686520726f75746572");
}

TEST_F(SharedGroupsTest, aWalkOfTheWholeContextIsInOrderAndComplete) {
  const auto all = agent.walk("1", "red");
  std::vector<Modules::Oid> oids;
  for (const auto& answer : all) oids.push_back(Modules::oidOf(answer.name));
  EXPECT_TRUE(std::is_sorted(oids.begin(), oids.end(), std::less_equal<>()));
  std::size_t expected = agent.walk("1.3.6.1.2.1.4", "red").size();
  EXPECT_GT(expected, 5U);
  for (const auto& group : Host::SharedGroups::ofMaster())
    expected += agent.walk(Modules::textOf(group.root)).size();
  EXPECT_EQ(all.size(), expected);

  std::vector<std::string> bulk;
  const auto reply = agent.send(SNMP_MSG_GETBULK, {"1"}, "red", 0, 20);
  for (const auto& answer : reply.answers) bulk.push_back(answer.name);
  EXPECT_EQ(bulk.size(), 20U);
  auto first = names(all);
  first.resize(20);
  EXPECT_EQ(bulk, first);
}

TEST_F(SharedGroupsTest, whatIsNotThereIsAnsweredAsInTheDefaultContext) {
  for (const char* name : {"1.3.6.1.2.1.1", "1.3.6.1.2.1.1.5", "1.3.6.1.2.1.1.5.1", "1.3.6.1.2.1.1.7.0.1",
                           "1.3.6.1.2.1.1.9.1.2.99", "1.3.6.1.2.1.1.99.0", "1.3.6.1.6.3.10.2.1.5.0"}) {
    EXPECT_EQ(agent.get(name, "red"), agent.get(name)) << name;
  }
  // Several in one request, some of them not there, in groups and outside.
  const auto reply = agent.send(
      SNMP_MSG_GETNEXT, {"1.3.6.1.2.1.1.4.0", "1.3.6.1.2.1.1.9.1.4.99", "1.3.6.1.2.1.1.5", "1.3.6.1.2.1.1"}, "red");
  EXPECT_THAT(names(reply.answers), ::testing::ElementsAre("1.3.6.1.2.1.1.5.0", "1.3.6.1.2.1.4.1.0",
                                                           "1.3.6.1.2.1.1.5.0", "1.3.6.1.2.1.1.1.0"));
}

TEST_F(SharedGroupsTest, nothingCanBeSetThere) {
  EXPECT_EQ(agent.set("1.3.6.1.2.1.1.4.0", 1, "red").errorStatus, SNMP_ERR_NOTWRITABLE);
  EXPECT_EQ(agent.set("1.3.6.1.2.1.11.30.0", 2, "red").errorStatus, SNMP_ERR_NOTWRITABLE);
  EXPECT_EQ(agent.get("1.3.6.1.2.1.11.30.0").value, agent.get("1.3.6.1.2.1.11.30.0", "red").value);
}

TEST_F(SharedGroupsTest, theyGoWithTheContext) {
  const auto before = names(agent.walk("1.3.6.1.2.1.1"));
  contexts.leave("red");
  EXPECT_THAT(agent.walk("1", "red"), IsEmpty());
  EXPECT_EQ(names(agent.walk("1.3.6.1.2.1.1")), before);
  contexts.enter("red");
  EXPECT_EQ(names(agent.walk("1.3.6.1.2.1.1", "red")), before);
}

}  // namespace
