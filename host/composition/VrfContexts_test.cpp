// VRF contexts follow the VRFs that are served.

#include "host/composition/VrfContexts.h"

#include <gmock/gmock.h>

#include "host/testing/TestLog.h"
#include "kel/Attribute.h"
#include "kel/Entity.h"
#include "modules/testing/TestAgent.h"
#include "modules/testing/TestIpTree.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class Served : public Kel::Entity {
  KEL_TYPE_BEGIN("HostTest::Served", Served, Kel::Entity)
 public:
  KEL_NAMED(Served, Kel::Entity)
  KEL_VALUES(Hashed, L3::VrfName, bool, servedVrf, ServedVrf)
  KEL_TYPE_END
};

class VrfContextsTest : public ::testing::Test {
 protected:
  VrfContextsTest() { contexts.enter(""); }

  void vrfIs(const std::string& name) {
    tree.vrfConfigs->vrfConfigIs(name);
    const auto mibs = tree.vrfMibs->mibsIs(name);
    Modules::addressIs(*mibs->ipmib(), "10.0.0.1", 24, 7);
    served->servedVrfIs(L3::VrfName(name), true);
  }
  bool answers(const std::string& vrf) { return agent.get("1.3.6.1.2.1.4.20.1.2.10.0.0.1", vrf).value == "7"; }

  Modules::TestAgent& agent = Modules::TestAgent::instance();
  Modules::TestIpTree tree;
  Kel::Ptr<Served> served = Kel::makePtr<Served>("served");
  Snmp::Contexts contexts;
  Host::VrfContexts vrfContexts{contexts, tree.vrfConfigs};
  Host::TestLog log;
};

TEST_F(VrfContextsTest, contextsComeAndGoWithTheirVrfs) {
  const std::string longest(100, 'n');
  vrfIs("early");
  vrfContexts.follow<Served>(served);
  EXPECT_TRUE(answers("early"));
  for (const std::string name : {"a.b/c d", "\xc3\xa9", "red.ipmib"}) {
    vrfIs(name);
    EXPECT_TRUE(answers(name)) << name;
  }
  EXPECT_THAT(log.lines, IsEmpty());
  vrfIs(longest);
  EXPECT_TRUE(answers(longest));
  ASSERT_THAT(log.lines, ElementsAre(HasSubstr("refuses contexts of more than 32")));

  for (const std::string& name : {std::string("early"), std::string("a.b/c d"), longest}) {
    served->servedVrfDel(L3::VrfName(name));
    EXPECT_FALSE(answers(name)) << name;
  }
  EXPECT_THAT(contexts.names(), UnorderedElementsAre("", "\xc3\xa9", "red.ipmib"));
  vrfIs("early");
  EXPECT_TRUE(answers("early"));
}

TEST_F(VrfContextsTest, aMissingConfigurationIsWaitedForNotEntered) {
  vrfContexts.follow<Served>(served);
  vrfIs("blue");
  vrfIs("green");
  tree.vrfConfigs->vrfConfigDel("blue");
  EXPECT_TRUE(answers("blue")) << "what was entered serves on until the VRF goes";

  contexts.leave("");
  contexts.enter("");
  vrfContexts.reenter();
  EXPECT_FALSE(answers("blue"));
  EXPECT_TRUE(answers("green"));
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("\"blue\" has no routing configuration")));
  tree.vrfConfigs->vrfConfigIs("blue");
  EXPECT_TRUE(answers("blue"));

  tree.vrfConfigs->vrfConfigDel("green");
  served->servedVrfDel(L3::VrfName("green"));
  tree.vrfConfigs->vrfConfigIs("green");
  EXPECT_FALSE(answers("green")) << "it is gone, whatever its configuration does";
}

TEST_F(VrfContextsTest, aConfigurationInThePlaceOfAnotherIsServed) {
  vrfContexts.follow<Served>(served);
  vrfIs("blue");
  const std::string ipForwarding = "1.3.6.1.2.1.4.1.0";
  EXPECT_EQ(agent.get(ipForwarding, "blue").value, "2");
  tree.vrfConfigs->vrfConfigDel("blue");
  tree.vrfConfigs->vrfConfigIs("blue")->routingIs(true);
  EXPECT_EQ(agent.get(ipForwarding, "blue").value, "1");
  EXPECT_TRUE(answers("blue"));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(VrfContextsTest, aNameThatNoContextCanHaveIsOneLineAndNoContext) {
  vrfContexts.follow<Served>(served);
  vrfIs(std::string("a\0b", 3));
  ASSERT_THAT(log.lines, ElementsAre(HasSubstr("VRF \"a\\x00b\" has a null byte in its name")));
  EXPECT_THAT(contexts.names(), ElementsAre(""));
  vrfContexts.reenter();
  served->servedVrfDel(L3::VrfName(std::string_view("a\0b", 3)));
  EXPECT_EQ(log.lines.size(), 1U);
  tree.vrfConfigs->vrfConfigIs(std::string(300, 'x'));  // nobody's
}

}  // namespace
