// Entering and leaving contexts, and the scalars' handlers as net-snmp calls them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "modules/IpBaseTables.h"
#include "modules/frame/Scalar.h"
#include "modules/testing/TestAgent.h"
#include "modules/testing/TestIpTree.h"
#include "snmp/Contexts.h"

namespace {

using namespace Modules;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class IpBaseEntry : public ::testing::Test {
 protected:
  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  TraceLines lines{"IpBase"};

  // Adds what is said of the tables, in the order in which they are registered.
  static void tablesInitialized(std::vector<std::string>& said, const std::string& context) {
    for (const auto& [table, number] : {std::pair{"ipAddrTable", "20"},
                                        {"ipNetToMediaTable", "22"},
                                        {"ipAddressPrefixTable", "32"},
                                        {"ipAddressTable", "34"},
                                        {"ipNetToPhysicalTable", "35"}}) {
      const std::string where = " in context \"" + context + "\"";
      said.push_back("1 initialize_table_" + std::string(table) + " initializing oid .1.3.6.1.2.1.4." + number +
                     where);
      said.push_back("8 Initialized table " + std::string(table) + where);
    }
  }
};

TEST_F(IpBaseEntry, theDefaultContextAnnouncesWhatItServes) {
  const auto unheld = tree.config->use_count();
  init_IpBase("");
  std::vector<std::string> expected{"1 init_IpBase initializing oid .1.3.6.1.2.1.4.1 in context \"\"",
                                    "1 init_IpBase initializing oid .1.3.6.1.2.1.4.25 in context \"\""};
  tablesInitialized(expected, "");
  EXPECT_EQ(lines.take(), expected);
  EXPECT_THAT(Snmp::mibContextModules(""), ElementsAre("IpBase"));
  EXPECT_GT(tree.config->use_count(), unheld);
  unregister_IpBase("");
  EXPECT_THAT(lines.take(), ElementsAre("2 Unregistering IpBase in context \"\""));
  EXPECT_EQ(tree.config->use_count(), unheld);
  EXPECT_THAT(Snmp::mibContextModules(""), IsEmpty());
}

TEST_F(IpBaseEntry, aVrfContextHasNoIpv6ForwardingAndSaysSo) {
  init_IpBase("red");
  std::vector<std::string> expected{"1 init_IpBase initializing oid .1.3.6.1.2.1.4.1 in context \"red\"",
                                    "1 init_IpBase initializing oid .1.3.6.1.2.1.4.25 in context \"red\"",
                                    "2 init_IpBase in context \"red\": varnixPathWithContext not specified for "
                                    "ipv6IpForwarding; skipping registration"};
  tablesInitialized(expected, "red");
  EXPECT_EQ(lines.take(), expected);
  unregister_IpBase("red");
}

TEST_F(IpBaseEntry, leavingAnUnknownContextHarmsNothing) {
  Snmp::registerMibContext("ghost", "IpBase");
  unregister_IpBase("ghost");
  EXPECT_THAT(lines.take(), ElementsAre("2 Unregistering IpBase in context \"ghost\""));
  EXPECT_THAT(Snmp::mibContexts(), Not(Contains("ghost")));
}

TEST_F(IpBaseEntry, enteringAgainAfterLeavingRegistersOnce) {
  const auto unheld = tree.redIpMib->use_count();
  std::vector<unsigned> held;
  for (int i = 0; i < 3; ++i) {
    init_IpBase("red");
    EXPECT_EQ(agent.walk("1.3.6.1.2.1.4", "red").size(), 1U);
    held.push_back(tree.redIpMib->use_count());
    unregister_IpBase("red");
    EXPECT_THAT(agent.walk("1.3.6.1.2.1.4", "red"), IsEmpty());
    EXPECT_EQ(tree.redIpMib->use_count(), unheld);
  }
  EXPECT_THAT(held, ElementsAre(unheld + 5, unheld + 5, unheld + 5)) << "one for each table";
}

TEST_F(IpBaseEntry, netSnmpDebuggingTellsWhichContextIsEntered) {
  static std::vector<std::string> logged;
  logged.clear();
  const auto collect = [](int, int, void* message, void*) {
    logged.emplace_back(static_cast<const snmp_log_message*>(message)->msg);
    return 0;
  };
  snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, collect, nullptr);
  auto* const handler = netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG);
  char tokens[] = "trace,IpBase";
  debug_register_tokens(tokens);
  snmp_set_do_debugging(1);
  init_IpBase("red");
  snmp_set_do_debugging(0);
  netsnmp_remove_loghandler(handler);
  snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, collect, nullptr, 0);
  std::string all;
  for (const auto& line : logged) all += line;
  EXPECT_THAT(all, ::testing::ContainsRegex("trace: init_IpBase\\(\\): IpBase.cpp, [0-9]+:\n"));
  EXPECT_THAT(all, HasSubstr("IpBase: Initializing in context \"red\"\n"));
  unregister_IpBase("red");
}

// What must end the process, with the line that says why.
class IpBaseFaults : public IpBaseEntry {
 protected:
  void dies(const std::string& context, const std::string& line, const std::string& assertion) {
    EXPECT_DEATH(init_IpBase(context), "^" + line + "\n[^\n]*: assertion failed: " + assertion + "\n");
  }
  Kel::Ptr<Kel::Dir> dir(const char* path) { return Kel::dynamicPtr<Kel::Dir>(SnmpUtil::getEntityRelative(path)); }
};

TEST_F(IpBaseFaults, pathsThatLeadNowhere) {
  dies("blue",
       "Can not getEntityRelative\\( Varnix/routing/vrf/config.vrfConfig/blue \\) for scalar ipForwarding. "
       "Is this path correct\\?",
       "e_ipForwarding");
  tree.vrfConfigs->vrfConfigIs("blue");
  dies("blue",
       "Can not getEntityRelative\\( snmp/ip/vrf.mibs/blue.ipmib \\) for table ipAddrTable. Is this path "
       "correct\\?",
       "e");
  dir("snmp/ip")->entityDel("ipmib");
  dies("", "Can not getEntityRelative\\( snmp/ip/ipmib \\) for table ipAddrTable. Is this path correct\\?", "e");
  dir("Varnix/routing6")->entityDel("config");
  dies("",
       "Can not getEntityRelative\\( Varnix/routing6/config \\) for scalar ipv6IpForwarding. Is this path "
       "correct\\?",
       "e_ipv6IpForwarding");
  dir("Varnix/routing")->entityDel("config");
  dies("",
       "Can not getEntityRelative\\( Varnix/routing/config \\) for scalar ipForwarding. Is this path correct\\?",
       "e_ipForwarding");
}

TEST_F(IpBaseFaults, pathsThatLeadToSomethingElse) {
  const auto misplace = [this](const char* place, const char* name) {
    dir(place)->entityDel(name);
    dir(place)->entityIs(Kel::makePtr<Kel::Dir>(name));
  };
  misplace("snmp/ip", "ipmib");
  dies("", "snmp/ip/ipmib does not appear to be of type IpSnmp::IpMib.", "ptr");
  misplace("Varnix/routing6", "config");
  dies("", "Varnix/routing6/config does not appear to be of type Routing6::Config for scalar ipv6IpForwarding.",
       "ptr_ipv6IpForwarding");
  misplace("Varnix/routing", "config");
  dies("", "Varnix/routing/config does not appear to be of type Routing::Config for scalar ipForwarding.",
       "ptr_ipForwarding");
}

TEST_F(IpBaseFaults, enteringAContextTwiceIsRefusedByTheAgent) {
  init_IpBase("");
  EXPECT_DEATH(init_IpBase(""), "assertion failed: result == 0");
  unregister_IpBase("");
}

// The scalars' handlers.
class ForwardingHandler : public IpBaseEntry {
 protected:
  ForwardingHandler() {
    requestInfo.mode = MODE_GET;
    request.agent_req_info = &requestInfo;
    request.requestvb = &variable;
    registration.my_reg_void = static_cast<Kel::Entity*>(tree.config.get());
    lines.take();
  }
  ~ForwardingHandler() override { snmp_free_var_internals(&variable); }

  int call(Netsnmp_Node_Handler* handler, int mode) {
    requestInfo.mode = mode;
    request.status = 0;
    return handler(nullptr, &registration, &requestInfo, &request);
  }

  netsnmp_agent_request_info requestInfo{};
  netsnmp_request_info request{};
  netsnmp_variable_list variable{};
  netsnmp_handler_registration registration{};
};

TEST_F(ForwardingHandler, readsTheFlagOfTheEntityItHolds) {
  tree.config->routingIs(true);
  EXPECT_EQ(call(handle_ipForwarding, MODE_GET), SNMP_ERR_NOERROR);
  EXPECT_EQ(variable.type, ASN_INTEGER);
  EXPECT_EQ(*variable.val.integer, 1);
  EXPECT_THAT(lines.take(), ElementsAre("2 handle_ipForwarding - reading Varnix/routing/config->routing()",
                                        "2 handle_ipForwarding - IpRoutingToAsnInteger returned 4bytes for "
                                        "Varnix/routing/config->routing()"));
}

TEST_F(ForwardingHandler, refusesEveryPhaseOfASet) {
  for (int mode = MODE_SET_RESERVE1; mode <= MODE_SET_UNDO; ++mode) {
    EXPECT_EQ(call(handle_ipForwarding, mode), SNMP_ERR_NOERROR) << mode;
    EXPECT_EQ(call(handle_ipv6IpForwarding, mode), SNMP_ERR_NOERROR) << mode;
    EXPECT_THAT(lines.take(), ElementsAre("2 handle_ipForwarding - SET is not configured for ipForwarding",
                                          "2 handle_ipv6IpForwarding - SET is not configured for "
                                          "ipv6IpForwarding"));
    EXPECT_EQ(request.status, SNMP_ERR_NOTWRITABLE) << mode;
  }
  EXPECT_FALSE(tree.config->routing());
}

TEST_F(ForwardingHandler, answersGenErrWithoutAnEntityOrInAnUnknownMode) {
  EXPECT_EQ(call(handle_ipv6IpForwarding, MODE_GET), SNMP_ERR_GENERR) << "an entity of another type";
  EXPECT_EQ(request.status, SNMP_ERR_GENERR);
  registration.my_reg_void = nullptr;
  EXPECT_EQ(call(handle_ipForwarding, MODE_GET), SNMP_ERR_GENERR);
  EXPECT_EQ(request.status, SNMP_ERR_GENERR);
  EXPECT_EQ(call(handle_ipForwarding, MODE_GETNEXT), SNMP_ERR_GENERR);
  EXPECT_EQ(request.status, SNMP_ERR_GENERR);
  EXPECT_THAT(lines.take(),
              ElementsAre("2 handle_ipv6IpForwarding - entity /<sysname>/Varnix/routing6/config is not of type "
                          "Routing6::Config",
                          "2 handle_ipForwarding - entity /<sysname>/Varnix/routing/config is not of type "
                          "Routing::Config",
                          "2 handle_ipForwarding - unknown mode from request: 161"));
}

TEST_F(ForwardingHandler, answersGenErrWhenTheFlagCannotBeEncoded) {
  const Scalar unencodable{.module = IpBase::module,
                           .name = "ipForwarding",
                           .identifier = {},
                           .modes = HANDLER_CAN_RONLY,
                           .priority = scalarPriority,
                           .source = entitySource<Routing::Config>("Varnix/routing/config", nullptr),
                           .attribute = "routing",
                           .asnType = ASN_INTEGER,
                           .conversion = "IpRoutingToAsnInteger",
                           .encode = [](const Kel::Entity&, unsigned char*, int) { return -1; }};
  EXPECT_EQ(handleScalar(unencodable, "handle_ipForwarding", nullptr, &registration, &requestInfo, &request),
            SNMP_ERR_GENERR);
  EXPECT_EQ(request.status, SNMP_ERR_GENERR);
  EXPECT_THAT(lines.take(), ElementsAre("2 handle_ipForwarding - reading Varnix/routing/config->routing()",
                                        "2 handle_ipForwarding - IpRoutingToAsnInteger returned -1bytes for "
                                        "Varnix/routing/config->routing()",
                                        "2 handle_ipForwarding - IpRoutingToAsnInteger failed for: routing"));
}

}  // namespace
