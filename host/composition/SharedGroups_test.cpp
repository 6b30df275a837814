// What VRF contexts answer about the agent itself, where a walk does not reach.

#include "host/composition/SharedGroups.h"

#include <gmock/gmock.h>

#include "host/agent/StockMibs.h"
#include "modules/testing/TestAgent.h"
#include "modules/testing/TestIpTree.h"
#include "snmp/Contexts.h"

namespace {

TEST(SharedGroups, aVrfAnswersAsTheDefaultContextDoes) {
  auto& agent = Modules::TestAgent::instance();
  Host::initStockMibs();
  const Modules::TestIpTree tree;
  Host::SharedGroups groups{Host::SharedGroups::ofMaster()};
  Snmp::Contexts contexts;
  contexts.enter("");
  contexts.enter("red");
  for (const char* name :
       {"1.3.6.1.2.1.1", "1.3.6.1.2.1.1.5", "1.3.6.1.2.1.1.5.0", "1.3.6.1.2.1.1.5.1", "1.3.6.1.2.1.1.7.0",
        "1.3.6.1.2.1.1.7.0.1", "1.3.6.1.2.1.1.9.1.2.1", "1.3.6.1.2.1.1.9.1.2.99", "1.3.6.1.2.1.1.99.0",
        "1.3.6.1.6.3.10.2.1.5.0", "1.3.6.1.6.3.10.2.1", "1.3.6.1.6.3.11.2.1.1.0", "1.3.6.1.6.3.15.1.1.3.0"}) {
    EXPECT_EQ(agent.get(name, "red"), agent.get(name)) << name;
  }
  // The parts of one registration, and nothing between and behind them.
  auto modules = agent.walk("1.3.6.1.6.3");
  const auto gone = std::erase_if(modules, [](const auto& row) {
    return !row.name.starts_with("1.3.6.1.6.3.10.2.1.") && !row.name.starts_with("1.3.6.1.6.3.11.2.1.") &&
           !row.name.starts_with("1.3.6.1.6.3.15.1.1.");
  });
  EXPECT_GT(gone, 0U);
  const auto shared = agent.walk("1.3.6.1.6.3", "red");
  ASSERT_EQ(shared.size(), modules.size());
  for (std::size_t i = 0; i < shared.size(); ++i) EXPECT_EQ(shared[i].name, modules[i].name);
  // Several in one request, at the end of a group, in a hole, and in front of a group.
  std::vector<std::string> next;
  const std::vector<std::string> names{"1.3.6.1.2.1.1.4.0", "1.3.6.1.2.1.1.9.1.4.99", "1.3.6.1.2.1.1.5", "1"};
  for (const auto& answer : agent.send(SNMP_MSG_GETNEXT, names, "red").answers) next.push_back(answer.name);
  EXPECT_THAT(next, ::testing::ElementsAre("1.3.6.1.2.1.1.5.0", "1.3.6.1.2.1.2.1.0", "1.3.6.1.2.1.1.5.0",
                                           "1.3.6.1.2.1.1.1.0"));
  // A GETBULK goes the way of as many GETNEXT, from the values of the default context to those of the VRF and back.
  const auto bulk = agent.send(SNMP_MSG_GETBULK, {"1.3.6.1.2.1.1.4.0", "1.3.6.1.2.1.10"}, "red", 0, 30).answers;
  ASSERT_EQ(bulk.size(), 60U);
  for (std::size_t i = 2; i < bulk.size(); ++i) {
    EXPECT_EQ(bulk[i].name, agent.getNext(bulk[i - 2].name, "red").name) << bulk[i - 2].name;
  }
  for (const auto* nowhere : {"1.3.6.1.2.1.99.1.0", "1.3.6.1.2.1", "1.3.6.1.6.3.99.0", "1.3.6.1.9.1.0"}) {
    EXPECT_EQ(agent.get(nowhere, "red"), agent.get(nowhere)) << nowhere;
    EXPECT_EQ(agent.set(nowhere, 2, "red").errorStatus, agent.set(nowhere, 2).errorStatus) << nowhere;
  }
  for (const auto* writable : {"1.3.6.1.2.1.1.4.0", "1.3.6.1.2.1.11.30.0"}) {
    EXPECT_EQ(agent.set(writable, 2, "red").errorStatus, SNMP_ERR_NOTWRITABLE);
  }
  contexts.leave("red");
  EXPECT_TRUE(agent.walk("1", "red").empty());
  EXPECT_GT(agent.walk("1.3.6.1.2.1.1").size(), 7U);
}

}  // namespace
