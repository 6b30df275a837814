// The settings as net-snmp reads them from a configuration file.

#include <gmock/gmock.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <filesystem>
#include <fstream>

#include "kel/Trace.h"
#include "snmp/ConfigTokens.h"
#include "snmp/SnmpUtil.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

Kel::TraceHandle configTestTrace("ConfigTestUnit");

class ConfigTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_APPTYPE, "configtest");
    Snmp::registerConfigTokens();
    snmp_enable_calllog();
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, catchLog, nullptr);
  }
  void SetUp() override { logged().clear(); }
  void TearDown() override {
    free_config();
    std::filesystem::remove(path());
  }

  static std::vector<std::string>& logged() {
    static std::vector<std::string> lines;
    return lines;
  }
  static int catchLog(int, int, void* message, void*) {
    logged().emplace_back(static_cast<const snmp_log_message*>(message)->msg);
    return 0;
  }
  static std::string path() { return ::testing::TempDir() + "quorin-config-" + std::to_string(getpid()) + ".conf"; }

  // As a reload does it: everything back to its default, then the file.
  static void read(const std::string& text) {
    std::ofstream(path()) << text;
    free_config();
    ASSERT_EQ(read_config_with_type(path().c_str(), "configtest"), SNMPERR_SUCCESS);
  }
};

TEST_F(ConfigTest, disabledObjectsAddUpAndAreResetByTheNextReading) {
  EXPECT_FALSE(SnmpUtil::objectsDisabled(SnmpUtil::getSnmpConfig(), "route-tables"));
  read("quorinDisableObjects route-tables\n");
  const auto kept = SnmpUtil::getSnmpConfig();
  EXPECT_TRUE(SnmpUtil::objectsDisabled(kept, "route-tables"));
  read("# nothing\n");
  EXPECT_FALSE(SnmpUtil::objectsDisabled(SnmpUtil::getSnmpConfig(), "route-tables"));
  EXPECT_TRUE(SnmpUtil::objectsDisabled(kept, "route-tables")) << "a configuration in hand must not change";
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ConfigTest, wrongValuesAreNamedWithFileAndLineAndTheRestCounts) {
  read(
      "\nquorinDisableObjects no-such-group\nquorinTrace nonsense\nquorinTraceOutput relative.log\n"
      "quorinDisableObjects route-tables\n");
  ASSERT_EQ(logged().size(), 3U);
  EXPECT_THAT(logged()[0], HasSubstr(path() + ": line 2: Error: quorinDisableObjects: there is no object group "
                                              "'no-such-group'; known are: route-tables"));
  EXPECT_THAT(logged()[1], HasSubstr(path() + ": line 3: Error: quorinTrace: "));
  EXPECT_THAT(logged()[1], HasSubstr("nonsense"));
  EXPECT_THAT(logged()[2],
              HasSubstr("line 4: Error: quorinTraceOutput: 'relative.log' is neither stderr nor syslog"));
  EXPECT_TRUE(SnmpUtil::objectsDisabled(SnmpUtil::getSnmpConfig(), "route-tables"));
}

TEST_F(ConfigTest, kernelIpHeaderIsStrictUnlessTheLastLineSaysAny) {
  const auto takesAny = [] { return SnmpUtil::getSnmpConfig()->takesAnyKernelIpHeader(); };
  EXPECT_FALSE(takesAny());
  read("quorinKernelIpHeader any\nquorinKernelIpHeader some\n");
  EXPECT_TRUE(takesAny());
  ASSERT_EQ(logged().size(), 1U);
  EXPECT_THAT(logged()[0], HasSubstr("line 2: Error: quorinKernelIpHeader: 'some' is neither any nor strict"));
  read("quorinKernelIpHeader any\nquorinKernelIpHeader strict\n");
  EXPECT_FALSE(takesAny());
}

TEST_F(ConfigTest, routeCountIntervalIsAMinuteUnlessAWholeNumberIsGiven) {
  const auto interval = [] { return SnmpUtil::getSnmpConfig()->routeCountInterval(); };
  read("quorinRouteCountInterval 5\n");
  EXPECT_EQ(interval(), 5U);
  read("quorinRouteCountInterval 0\nquorinRouteCountInterval 86401\nquorinRouteCountInterval 5s\n");
  EXPECT_EQ(interval(), 60U);
  ASSERT_EQ(logged().size(), 3U);
  EXPECT_THAT(logged()[2], HasSubstr("line 3: Error: quorinRouteCountInterval: '5s' is no number of seconds"));
}

TEST_F(ConfigTest, managementInterfacesAddUp) {
  read("quorinManagementInterfaces eth0 red/eth1\nquorinManagementInterfaces eth2\n");
  EXPECT_THAT(SnmpUtil::getSnmpConfig()->managementInterfaces(),
              ElementsAre(Vantu::IntfId("eth0"), Vantu::IntfId("eth2"), Vantu::IntfId("red/eth1")));
  read("");
  EXPECT_THAT(SnmpUtil::getSnmpConfig()->managementInterfaces(), IsEmpty());
}

TEST_F(ConfigTest, traceLevelsAndOutputFollowTheFile) {
  const std::string traceFile = path() + ".trace";
  read("quorinTraceOutput " + traceFile + "\nquorinTrace ConfigTest*/0,2\n");
  EXPECT_TRUE(configTestTrace.enabled(2));
  EXPECT_FALSE(configTestTrace.enabled(1));
  QTRACE(configTestTrace, 2) << "into the file";
  std::ifstream file(traceFile);
  std::string line;
  ASSERT_TRUE(std::getline(file, line));
  EXPECT_THAT(line, HasSubstr("ConfigTestUnit/2: into the file"));
  read("# nothing\n");
  EXPECT_FALSE(configTestTrace.enabled(2));
  QTRACE(configTestTrace, 0) << "to standard error again";
  EXPECT_FALSE(std::getline(file, line));
  std::filesystem::remove(traceFile);
}

}  // namespace
