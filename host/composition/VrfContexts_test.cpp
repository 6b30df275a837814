#include "host/composition/VrfContexts.h"

#include <gmock/gmock.h>

#include "modules/testing/TestAgent.h"
#include "modules/testing/TestIpTree.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

class VrfContextsTest : public ::testing::Test {
 protected:
  VrfContextsTest() : logHandler(netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG)) {
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, takeLine, &log);
    contexts.enter("");
  }
  ~VrfContextsTest() override {
    snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, takeLine, &log, 1);
    netsnmp_remove_loghandler(logHandler);
  }
  static int takeLine(int, int, void* message, void* log) {
    static_cast<std::vector<std::string>*>(log)->emplace_back(static_cast<const snmp_log_message*>(message)->msg);
    return SNMPERR_SUCCESS;
  }

  void vrfIs(const std::string& name) {
    tree.vrfConfigs->vrfConfigIs(name);
    Modules::addressIs(*tree.vrfMibs->mibsIs(name)->ipmib(), "10.0.0.1", 24, 7);
    vrfContexts.setServed(name, true);
  }
  bool answers(const std::string& vrf) { return agent.get("1.3.6.1.2.1.4.20.1.2.10.0.0.1", vrf).value == "7"; }

  Modules::TestAgent& agent = Modules::TestAgent::instance();
  Modules::TestIpTree tree;
  Snmp::Contexts contexts;
  Host::VrfContexts vrfContexts{contexts, tree.vrfConfigs};
  std::vector<std::string> log;
  netsnmp_log_handler* const logHandler;
};

TEST_F(VrfContextsTest, contextsComeAndGoWithTheirVrfsWhateverTheirNames) {
  const std::string longest(100, 'n'), broken("a\0b", 3), odd = "red.ipmib/\xc3\xa9";
  for (const std::string& name : {odd, longest}) {
    EXPECT_THAT(log, ElementsAre());
    vrfIs(name);
    EXPECT_TRUE(answers(name)) << name;
  }
  vrfIs(broken);
  EXPECT_THAT(log, ElementsAre(HasSubstr("refuses contexts of more than 32"),
                               HasSubstr("VRF \"a\\x00b\" has a null byte in its name")));
  vrfContexts.reenter();
  for (const std::string& name : {longest, broken}) vrfContexts.setServed(name, false);
  EXPECT_THAT(contexts.names(), UnorderedElementsAre("", odd));
}

TEST_F(VrfContextsTest, aMissingConfigurationIsWaitedFor) {
  for (const auto* name : {"blue", "green"}) vrfIs(name);
  tree.vrfConfigs->vrfConfigDel("blue");
  EXPECT_TRUE(answers("blue")) << "what was entered serves on until the VRF is gone";
  contexts.leave("");
  contexts.enter("");
  vrfContexts.reenter();
  EXPECT_FALSE(answers("blue"));
  EXPECT_TRUE(answers("green"));
  EXPECT_THAT(log, ElementsAre(HasSubstr("\"blue\" has no routing configuration")));
  tree.vrfConfigs->vrfConfigIs("blue");
  EXPECT_TRUE(answers("blue"));

  const std::string ipForwarding = "1.3.6.1.2.1.4.1.0";
  EXPECT_EQ(agent.get(ipForwarding, "green").value, "2");
  tree.vrfConfigs->vrfConfigDel("green");
  tree.vrfConfigs->vrfConfigIs("green")->routingIs(true);
  EXPECT_EQ(agent.get(ipForwarding, "green").value, "1") << "another configuration is served";
  tree.vrfConfigs->vrfConfigDel("green");
  vrfContexts.setServed("green", false);
  tree.vrfConfigs->vrfConfigIs("green");
  EXPECT_FALSE(answers("green")) << "the VRF is gone";
}

}  // namespace
