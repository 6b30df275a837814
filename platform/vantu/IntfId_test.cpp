#include "vantu/IntfId.h"

#include <gtest/gtest.h>

#include "vantu/DynamicTunnelIntfId.h"
#include "vantu/MgmtIntfId.h"

namespace Vantu {
namespace {

TEST(IntfIds, onlyTheEmptyIdIsInvalid) {
  EXPECT_FALSE(IntfId("").isValid());
  EXPECT_TRUE(IntfId("").empty());
  EXPECT_TRUE(IntfId("/").isValid());
  EXPECT_EQ(IntfId("red/blue/eth0").localName(), "eth0");
  EXPECT_EQ(IntfId("eth0").localName(), "eth0");
}

TEST(IntfIds, kindIsReadAfterTheLastSlash) {
  EXPECT_TRUE(MgmtIntfId::isMgmtIntfId(IntfId("Management1")));
  EXPECT_TRUE(MgmtIntfId::isMgmtIntfId(IntfId("red/Management1")));
  EXPECT_TRUE(MgmtIntfId::isMgmtIntfId(IntfId("a/b/Management0")));
  for (const char* id : {"", "Ethernet1", "management1", "Management/eth0", "xManagement1", "DynamicTunnel1"}) {
    EXPECT_FALSE(MgmtIntfId::isMgmtIntfId(IntfId(id))) << id;
  }
  EXPECT_TRUE(DynamicTunnelIntfId::isDynamicTunnelIntfId(IntfId("DynamicTunnel1.7")));
  EXPECT_TRUE(DynamicTunnelIntfId::isDynamicTunnelIntfId(IntfId("red/DynamicTunnel1")));
  for (const char* id : {"", "Tunnel1", "DynamicTunnel1/eth0", "Management1"}) {
    EXPECT_FALSE(DynamicTunnelIntfId::isDynamicTunnelIntfId(IntfId(id))) << id;
  }
}

TEST(IntfIds, configuredManagementInterfacesReplaceEarlierOnes) {
  MgmtIntfId::configuredIs({IntfId("eth0"), IntfId("red/eth1"), IntfId()});
  EXPECT_EQ(MgmtIntfId::configured().size(), 2U);
  for (const char* id : {"eth0", "red/eth0", "red/eth1", "Management1"}) {
    EXPECT_TRUE(MgmtIntfId::isMgmtIntfId(IntfId(id))) << id;
  }
  for (const char* id : {"", "red/", "eth1", "blue/eth1", "eth00"}) {
    EXPECT_FALSE(MgmtIntfId::isMgmtIntfId(IntfId(id))) << id;
  }
  MgmtIntfId::configuredIs({});
  EXPECT_FALSE(MgmtIntfId::isMgmtIntfId(IntfId("eth0")));
}

}  // namespace
}  // namespace Vantu
