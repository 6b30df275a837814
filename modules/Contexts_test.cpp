// Entering and leaving SNMP contexts: what is registered, traced and held there, and what must end the process.

#include "snmp/Contexts.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "modules/MibModules.h"
#include "modules/testing/MibObjects.h"
#include "modules/testing/TestIpTree.h"
#include "snmp/Config.h"

namespace {

using namespace Modules;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const std::string ipForwarding = "1.3.6.1.2.1.4.1.0";
const std::string addresses = "1.3.6.1.2.1.4.20.1.1";

extern "C" int answerOne(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info*,
                         netsnmp_request_info* request) {
  return snmp_set_var_typed_integer(request->requestvb, ASN_INTEGER, 1);
}

class EnteringContexts : public ::testing::Test {
 protected:
  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  Snmp::Contexts contexts;
};

TEST_F(EnteringContexts, eachModuleRegistersAndTracesItsObjects) {
  for (const std::string context : {"", "red"}) {
    const auto ending = " in context \"" + context + "\"";
    for (auto* const registration : Snmp::AutoRegistree::registrations()) {
      const std::string module = registration->name();
      auto objects = mibObjects();
      std::erase_if(objects, [&](const MibObject& object) { return object.module != module; });
      if (objects.empty()) continue;
      TraceLines lines(objects.at(0).facility);
      registration->initHandler(context);
      Words scalars, skipped, tables;
      for (const auto& object : objects) {
        const auto function = object.isTable() ? "initialize_table_" + object.name : "init_" + module;
        auto& traced = object.isTable() ? tables : scalars;
        traced.push_back(fmt::format("1 {} initializing oid .{}{}", function, object.identifier, ending));
        const bool isServed = context.empty() || !object.is("default");
        if (isServed && object.isTable()) tables.push_back("8 Initialized table " + object.name + ending);
        if (!isServed) {
          const char* text = object.isTable() ? "2 {}{} varnixPathWithContext not specified "
                                              : "2 {}{}: varnixPathWithContext not specified for {}; skipping "
                                                "registration";
          auto& missing = object.isTable() ? tables : skipped;
          missing.push_back(fmt::format(fmt::runtime(text), function, ending, object.name));
        }
        const auto oids = oidOf(object.identifier);
        const auto* const found = netsnmp_subtree_find(oids.data(), oids.size(), nullptr, context.c_str());
        const auto* const present = found != nullptr ? found->reginfo : nullptr;
        const std::string handler = present != nullptr ? present->handlerName : "none";
        EXPECT_EQ(handler == object.name + "_" + context, isServed) << object.name << ending << " has " << handler;
        if (!isServed || present == nullptr) continue;
        EXPECT_EQ(present->priority, object.isTable() ? 127 : 64) << object.name;
        EXPECT_EQ((present->modes & HANDLER_CAN_SET) != 0, object.is("writable")) << object.name;
      }
      scalars.insert(scalars.end(), skipped.begin(), skipped.end());
      scalars.insert(scalars.end(), tables.begin(), tables.end());
      EXPECT_EQ(lines.take(), scalars);
      EXPECT_THAT(Snmp::mibContextModules(context), ElementsAre(module));
      registration->exitHandler(context);
      EXPECT_THAT(lines.take(), ElementsAre(fmt::format("2 Unregistering {}{}", module, ending)));
      EXPECT_THAT(Snmp::mibContextModules(context), IsEmpty());
      EXPECT_THAT(agent.walk("1.3.6.1", context.empty() ? "public" : context), IsEmpty());
    }
  }
  Snmp::registerMibContext("ghost", "IpBase");
  unregister_IpBase("ghost");  // which it never entered
  EXPECT_THAT(Snmp::mibContexts(), Not(Contains("ghost")));
}

TEST_F(EnteringContexts, aRequestThatRacesTheRemovalOfAVrfReadsItsOldCache) {
  contexts.enter("");
  const auto unheld = tree.redIpMib->use_count();
  for (int i = 0; i < 2; ++i) {
    contexts.enter("red");
    EXPECT_EQ(tree.redIpMib->use_count(), unheld + 14) << "one for each table, and three scalars";
    contexts.leave("red");
    EXPECT_EQ(tree.redIpMib->use_count(), unheld);
    EXPECT_EQ(netsnmp_subtree_find_first("red"), nullptr) << "the parts of net-snmp's roots are gone";
  }
  contexts.enter("red");
  addressIs(*tree.redIpMib, "10.0.0.2", 24, 8);
  tree.redConfig->routingIs(true);
  tree.vrfMibs->mibsDel("red");
  tree.vrfConfigs->vrfConfigDel("red");
  EXPECT_EQ(agent.getNext(addresses, "red").value, "10.0.0.2");
  EXPECT_EQ(agent.get(ipForwarding, "red").value, "1");
  contexts.leave("red");
  EXPECT_EQ(tree.redIpMib->use_count(), 1U) << "the registrations have let go";
  EXPECT_EQ(tree.redConfig->use_count(), 1U);
}

// Each registration takes memory in each of thousands of contexts.
TEST_F(EnteringContexts, theObjectsOfAVrfShareItsRegistrations) {
  contexts.enter("");
  contexts.enter("red");
  for (const auto& object : mibObjects()) {
    if (object.is("default")) continue;
    const auto name = oidOf(object.identifier);
    const auto* const piece = netsnmp_subtree_find(name.data(), name.size(), nullptr, "red");
    EXPECT_STREQ(piece->reginfo->handlerName, "objects") << object.name;
  }
}

TEST_F(EnteringContexts, aModuleThatLeavesTheDefaultContextLeavesTheOthersUntilItIsBack) {
  contexts.enter("");
  contexts.enter("red");
  const auto all = agent.walk("1", "red").size();
  ASSERT_EQ(agent.get(ipForwarding, "red").value, "2");
  unregister_IpBase("");
  EXPECT_LT(agent.walk("1", "red").size(), all);
  EXPECT_EQ(agent.get(ipForwarding, "red").type, SNMP_NOSUCHOBJECT);
  init_IpBase("");
  EXPECT_EQ(agent.walk("1", "red").size(), all);
  EXPECT_EQ(agent.get(ipForwarding, "red").value, "2");
}

TEST_F(EnteringContexts, aVrfKeepsTheObjectsOfAnotherWhileItComesAndGoes) {
  contexts.enter("");
  contexts.enter("red");
  for (const auto* const address : {"10.0.0.1", "10.0.0.3", "10.0.0.4"}) addressIs(*tree.redIpMib, address, 24, 8);
  const auto count = agent.walk("1", "red").size();
  const std::vector<std::string> intruders{"1.3.6.1.2.1.4.19.0", addresses + ".10.0.0.2", "1.3.6.1.2.1.4.21.0",
                                           "1.3.6.1.2.1.14.1.0", "1.3.6.1.3.1.0"};
  for (const auto& name : intruders) {
    const Oid identifier = oidOf(name);
    auto* const registration = netsnmp_create_handler_registration("intruder", answerOne, identifier.data(),
                                                                   identifier.size(), HANDLER_CAN_RONLY);
    registration->contextName = strdup("red");
    ASSERT_EQ(netsnmp_register_instance(registration), MIB_REGISTERED_OK);
  }
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(agent.walk("1", "red").size(), count + intruders.size());
    const auto rows = agent.send(SNMP_MSG_GETBULK, {addresses}, "red", 0, 4).answers;
    for (std::size_t row = 1; row < rows.size(); ++row) {
      EXPECT_LT(oidOf(rows[row - 1].name), oidOf(rows[row].name)) << "one of them is another's";
    }
    EXPECT_EQ(agent.get(ipForwarding, "red").value, "2");
    contexts.leave("red");
    EXPECT_EQ(agent.walk("1", "red").size(), intruders.size());
    EXPECT_EQ(agent.getNext(addresses, "red").name, addresses + ".10.0.0.2");
    contexts.enter("red");
  }
  for (const auto& name : intruders) {
    Oid identifier = oidOf(name);
    ASSERT_EQ(unregister_mib_context(identifier.data(), identifier.size(), DEFAULT_MIB_PRIORITY, 0, 0, "red"),
              MIB_UNREGISTERED_OK);
  }
  EXPECT_EQ(agent.walk("1", "red").size(), count);
  contexts.leave("red");
  EXPECT_EQ(netsnmp_subtree_find_first("red"), nullptr);
}

// Somebody else's object inside a registration makes net-snmp copy it. The tree stays divided at that object for the
// life of the process, so these are objects that no other test asks for.
TEST_F(EnteringContexts, anObjectOfAnotherInsideOursLeavesOursAnswering) {
  addressIs(*tree.ipMib, "10.0.0.1", 24, 7);
  contexts.enter("");
  for (const auto& intruder : {addresses + ".10.77.77.77", ipForwarding + ".5"}) {
    const Oid name = oidOf(intruder);
    auto* registration = netsnmp_create_handler_registration(
        "intruder", [](auto...) { return SNMP_ERR_NOERROR; }, name.data(), name.size(), HANDLER_CAN_RONLY);
    ASSERT_EQ(netsnmp_register_handler(registration), MIB_REGISTERED_OK);
    EXPECT_EQ(agent.get(ipForwarding).value, "2");
    EXPECT_EQ(agent.send(SNMP_MSG_GETNEXT, {addresses + ".10", addresses}).answers.at(0).value, "10.0.0.1");
    ASSERT_EQ(netsnmp_unregister_handler(registration), SNMPERR_SUCCESS);
  }
  contexts.leave("");
  EXPECT_EQ(tree.ipMib->use_count(), 2U) << "the tree's and the test's";
}

TEST_F(EnteringContexts, disabledGroupsAreNotRegistered) {
  Snmp::registerConfigTokens();
  char line[] = "quorinDisableObjects route-tables interface-tables ip-mib-tables";
  netsnmp_config(line);
  ::testing::internal::CaptureStdout();
  contexts.enter("");
  contexts.enter("red");
  std::string once = "init_IpForward skipping scalar ipCidrRouteNumber because route-tables are disabled.\n";
  const auto noop = [&](const char* table, const char* group) {
    once += fmt::format("initialize_table_{} is a noop because {} are disabled.\n", table, group);
  };
  noop("ipCidrRouteTable", "route-tables");
  for (const char* scalar : {"ifNumber", "ifTableLastChange", "ifStackLastChange"}) {
    once += fmt::format("init_ifMIB skipping scalar {} because interface-tables are disabled.\n", scalar);
  }
  for (const char* table : {"ifTable", "ifXTable", "ifStackTable", "dot3StatsTable"})
    noop(table, "interface-tables");
  once += "init_inetCidrRoute skipping scalar inetCidrRouteNumber because route-tables are disabled.\n";
  noop("inetCidrRouteTable", "route-tables");
  for (const auto& object : mibObjects()) {
    if (object.module != "ipMIB" || object.isTable()) continue;
    once += fmt::format("init_ipMIB skipping scalar {} because ip-mib-tables are disabled.\n", object.name);
  }
  for (const char* table : {"ipv4InterfaceTable", "ipv6InterfaceTable", "ipIfStatsTable", "ipDefaultRouterTable",
                            "ipSystemStatsTable"}) {
    noop(table, "ip-mib-tables");
  }
  for (const char* table :
       {"quorinFIBStatsSummaryTable", "quorinFIBStatsByRouteTypeTable", "quorinFIBStatsByPrefixLenTable"}) {
    noop(table, "route-tables");
  }
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), once + once);
  Snmp::registerConfigTokens();  // the defaults again
  Snmp::unregisterConfigTokens();
  tree.fibStatsMib->routeInc(Ip::ipVersion4, FibStatsSnmp::routeTypeStatic, 24);
  EXPECT_THAT(agent.walk("1.3.6.1", "red"), ElementsAre(Answer{ipForwarding, ASN_INTEGER, "2"}));
  EXPECT_EQ(agent.walk("1.3.6.1.2.1.4").size(), 2U) << "the forwarding scalars";
}

TEST_F(EnteringContexts, aMissingOrMisplacedEntityEndsTheProcess) {
  using Init = void (*)(Kel::String context);
  // The last one follows "e" and "ptr" in the assertion.
  for (const auto& [init, object, dir, name, type, assertion] :
       {std::tuple{Init{init_quorinFIBStatsMIB}, "table quorinFIBStatsSummaryTable", "snmp/ip", "fibstatsmib",
                   "FibStatsSnmp::FibStatsMib", std::string()},
        {init_VrfBase, "table quorinVrfTable", "snmp/ip", "ipvrfmib", "IpSnmp::IpVrfMib", ""},
        {init_IpForward, "scalar ipCidrRouteNumber", "snmp/ip", "ipforwardmib", "IpSnmp::IpForwardMib",
         "_ipCidrRouteNumber"},
        {init_IpBase, "table ipAddrTable", "snmp/ip", "ipmib", "IpSnmp::IpMib", ""},
        {init_IpBase, "scalar ipv6IpForwarding", "Varnix/routing6", "config", "Routing6::Config",
         "_ipv6IpForwarding"},
        {init_IpBase, "scalar ipForwarding", "Varnix/routing", "config", "Routing::Config", "_ipForwarding"}}) {
    const auto path = fmt::format("{}/{}", dir, name);
    const auto place = Kel::dynamicPtr<Kel::Dir>(SnmpUtil::getEntityRelative(dir));
    place->entityDel(name);
    EXPECT_DEATH(init(""), fmt::format("^Can not getEntityRelative\\( {} \\) for {}. Is this path correct\\?\n"
                                       "[^\n]*: assertion failed: e{}\n",
                                       path, object, assertion));
    place->entityIs(Kel::makePtr<Kel::Dir>(name));
    EXPECT_DEATH(init(""),
                 fmt::format("^{} does not appear to be of type {}{}.\n[^\n]*: assertion failed: ptr{}\n", path,
                             type, assertion.empty() ? "" : fmt::format(" for {}", object), assertion));
  }
  EXPECT_DEATH(
      init_IpBase("blue"),
      "^Can not getEntityRelative\\( Varnix/routing/vrf/config.vrfConfig/blue \\) for scalar ipForwarding");
}

TEST_F(EnteringContexts, enteringAContextTwiceIsRefusedByTheAgent) {
  contexts.enter("");
  EXPECT_DEATH(init_VrfBase(""), "assertion failed: result == 0");
}

}  // namespace
