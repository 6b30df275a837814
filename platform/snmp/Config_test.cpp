// The settings as net-snmp reads them from a configuration file.

#include "snmp/Config.h"

#include <gmock/gmock.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <array>
#include <filesystem>
#include <fstream>

#include "kel/Trace.h"
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
  void SetUp() override { logged_.clear(); }
  void TearDown() override {
    free_config();
    std::filesystem::remove(path());
  }

  static int catchLog(int, int, void* message, void*) {
    logged_.emplace_back(static_cast<const snmp_log_message*>(message)->msg);
    return 0;
  }
  static inline std::vector<std::string> logged_;
  static std::string path() { return ::testing::TempDir() + "quorin-config-" + std::to_string(getpid()) + ".conf"; }

  // As a reload does it: everything back to its default, then the file.
  static void read(const std::string& text) {
    std::ofstream(path()) << text;
    free_config();
    ASSERT_EQ(read_config_with_type(path().c_str(), "configtest"), SNMPERR_SUCCESS);
  }
};

TEST_F(ConfigTest, settingsFollowTheFileAndGoBackToTheirDefaults) {
  read(
      "quorinDisableObjects route-tables\nquorinKernelIpHeader strict\nquorinKernelIpHeader any\n"
      "quorinManagementInterfaces eth0 red/eth1\nquorinManagementInterfaces eth2\nquorinRouteCountInterval 5\n"
      "quorinIdleTimeout 0\nquorinStore /store\nquorinNetnsDir /ns\nquorinStaleAfter 5\nquorinControlSocket /s\n");
  const auto kept = SnmpUtil::getSnmpConfig();
  for (const bool isReset : {false, true}) {
    if (isReset) read("quorinKernelIpHeader any\nquorinKernelIpHeader strict\n");
    // The configuration in hand does not change.
    EXPECT_TRUE(SnmpUtil::objectsDisabled(kept, "route-tables"));
    EXPECT_TRUE(kept->takesAnyKernelIpHeader());
    EXPECT_THAT(kept->managementInterfaces(),
                ElementsAre(Vantu::IntfId("eth0"), Vantu::IntfId("eth2"), Vantu::IntfId("red/eth1")));
    EXPECT_EQ(kept->routeCountInterval(), 5U);
    EXPECT_EQ(kept->idleTimeout(), 0U);
    EXPECT_EQ(kept->storeDirectory() + kept->netnsDirectory(), "/store/ns");
  }
  const auto now = SnmpUtil::getSnmpConfig();
  EXPECT_FALSE(SnmpUtil::objectsDisabled(now, "route-tables") || now->takesAnyKernelIpHeader());
  EXPECT_THAT(now->managementInterfaces(), IsEmpty());
  EXPECT_EQ(now->routeCountInterval() + now->idleTimeout(), 120U);
  EXPECT_EQ(now->storeDirectory() + now->netnsDirectory(), "");
  EXPECT_THAT(logged_, IsEmpty());
}

TEST_F(ConfigTest, wrongValuesAreNamedWithFileAndLineAndTheRestCounts) {
  const std::vector<std::array<std::string, 2>> faults = {
      {"quorinDisableObjects no-such-group",
       "there is no object group 'no-such-group'; known are: route-tables, interface-tables, ip-mib-tables, "
       "mpls-l3vpn"},
      {"quorinTrace nonsense", "trace setting 'nonsense'"},
      {"quorinTraceOutput relative.log", "'relative.log' is neither stderr nor syslog nor an absolute path"},
      {"quorinKernelIpHeader some", "'some' is neither any nor strict"},
      {"quorinDefaultInterfaces some", "'some' is neither own nor all"},
      {"quorinStore store", "'store' is not an absolute path"},
      {"quorinNetnsDir ns", "'ns' is not an absolute path"},
      {"quorinRouteCountInterval 0", "'0' is no number of seconds from 1 to 86400"},
      {"quorinRouteCountInterval 86401", "'86401' is no number of seconds"},
      {"quorinRouteCountInterval 5s", "'5s' is no number of seconds"},
      {"quorinIdleTimeout 86401", "'86401' is no number of seconds from 0 to 86400"},
      {"quorinControlSocket run/s", "'run/s' is not an absolute path"},
      {"quorinContextCommunities " + std::string(9, '@'), "'@@@@@@@@@' is no separator: write 1 to 8"},
      {"quorinVrfSysName %h", "'%h' does not name the VRF: write %v"},
      {"quorinVrfSysName %v%", "'%v%' has a % before neither h nor v"},
      {"quorinControlSocket /" + std::string(108, 's'),
       "'/" + std::string(108, 's') + "' is longer than the 107 bytes of a socket's path"}};
  std::string file;
  for (const auto& [line, fault] : faults) file += line + "\n";
  read(file + "quorinDisableObjects route-tables\n");
  ASSERT_EQ(logged_.size(), faults.size());
  for (std::size_t i = 0; i < faults.size(); ++i) {
    const auto& [line, fault] = faults[i];
    EXPECT_THAT(logged_[i], HasSubstr(path() + ": line " + std::to_string(i + 1) +
                                      ": Error: " + line.substr(0, line.find(' ')) + ": " + fault));
  }
  EXPECT_TRUE(SnmpUtil::objectsDisabled(SnmpUtil::getSnmpConfig(), "route-tables"));
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
