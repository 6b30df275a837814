#include "host/agent/NetSnmpAgent.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/algorithm/string.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <string_view>

#include "host/agent/Process.h"
#include "host/agent/StockMibs.h"
#include "host/composition/AgentLog.h"
#include "kel/Errors.h"
#include "kel/Trace.h"
#include "snmp/Config.h"
#include "snmp/HandlerRegistration.h"

namespace Host {

namespace {

// The library's own header does not publish its names for the roles.
constexpr int masterAgent = 0;
constexpr int subagent = 1;

// The payload of the largest datagram of UDP over IPv4.
constexpr int largestDatagram = 65507;

void setLibraryString(int which, const std::string& value) {
  netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, which, value.c_str());
}

// Returns an id from the configuration (agentUser, agentGroup); there 0 means none.
std::optional<unsigned> configuredId(int which) {
  const int id = netsnmp_ds_get_int(NETSNMP_DS_APPLICATION_ID, which);
  return id > 0 ? std::optional<unsigned>(static_cast<unsigned>(id)) : std::nullopt;
}

// Names objects by number alone, so that the library does not complain about missing MIB texts.
void useNoMibTexts() {
  setenv("MIBS", "", 1);
  setenv("MIBDIRS", "", 1);
  netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OID_OUTPUT_FORMAT, NETSNMP_OID_OUTPUT_NUMERIC);
}

void chooseConfigurationFiles(const AgentOptions& options) {
  if (!options.configurationFiles.empty()) {
    setLibraryString(NETSNMP_DS_LIB_OPTIONALCONFIG, fmt::format("{}", fmt::join(options.configurationFiles, ",")));
  }
  if (options.readsDefaultConfiguration) return;
  // The library's own switch would leave the saved state unread too, and the SNMP engine would forget its boots and
  // users; an empty search path leaves out the configuration alone.
  unsetenv("SNMPCONFPATH");
  set_configuration_directory("");
}

void chooseLog(const AgentOptions& options) {
  const bool isToStandardError = options.isForeground || options.action == AgentOptions::Action::showDirectives;
  if (!options.isLoggingChosen) {
    if (isToStandardError) {
      snmp_enable_stderrlog();
    } else {
      snmp_enable_syslog_ident(NetSnmpAgent::applicationType, LOG_DAEMON);
    }
  }
  using Output = Kel::TraceConfig::Output;
  Snmp::setDefaultTraceOutput(isToStandardError ? Output::standardError : Output::syslog,
                              NetSnmpAgent::applicationType);
}

// net-snmp silently skips a file that it may not read.
void checkReadable(const std::string& file) {
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  const int error = fd < 0 ? errno : std::filesystem::is_directory(file) ? EISDIR : 0;
  if (fd >= 0) close(fd);
  if (error == 0) return;
  throw Kel::Exception(fmt::format("cannot read the configuration file {}: {}; make it readable, or leave it out",
                                   file, std::strerror(error)));
}

// The library would create these itself and log each failure; settle() logs one line for all.
void makeStateDirectoriesQuietly() {
  std::error_code ignored;
  const std::filesystem::path directory = get_persistent_directory();
  const mode_t mask = umask(077);
  std::filesystem::create_directories(directory / "cert_indexes", ignored);
  umask(mask);
}

void forgetState() {
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
}

// Counts the configuration lines that net-snmp's messages name as wrong or unknown while it lives. The destructor logs
// the remedy once for all of them.
class RefusedLines {
 public:
  // A log handler of its own type: with debugging on, net-snmp's callbacks log while they hold a lock that a handler of
  // the type CALLBACK would wait for.
  RefusedLines() : handler_(netsnmp_register_loghandler(NETSNMP_LOGHANDLER_NONE, LOG_DEBUG)) {
    if (handler_ == nullptr) return;
    handler_->magic = this;
    handler_->handler = takeMessage;
  }
  ~RefusedLines() {
    if (handler_ != nullptr) netsnmp_remove_loghandler(handler_);
    if (lines_.empty()) return;
    const bool isOne = lines_.size() == 1;
    agentLog(LOG_WARNING, fmt::format("{} configuration line{} passed over, see above: correct or remove {}; "
                                      "quorind -H lists the directives that it knows",
                                      lines_.size(), isOne ? " was" : "s were", isOne ? "it" : "them"));
  }
  RefusedLines(const RefusedLines&) = delete;
  RefusedLines& operator=(const RefusedLines&) = delete;

 private:
  static int takeMessage(netsnmp_log_handler* handler, int, const char* message) {
    const std::string_view text = message;  // "FILE: line N: Error: ..."; a line can have several, in two readings
    const auto end = std::min(text.find(": Error: "), text.find(": Warning: Unknown token"));
    if (end != text.npos && text.substr(0, end).find(": line ") != text.npos) {
      static_cast<RefusedLines*>(handler->magic)->lines_.emplace(text.substr(0, end));
    }
    return 1;
  }

  netsnmp_log_handler* handler_;
  std::set<std::string> lines_;
};

}  // namespace

NetSnmpAgent::NetSnmpAgent(const AgentOptions& options) : options_(options) {
  useNoMibTexts();
  if (std::getenv("SNMP_PERSISTENT_DIR") == nullptr) set_persistent_directory(stateDirectory);
  setLibraryString(NETSNMP_DS_LIB_APPTYPE, applicationType);
  chooseLog(options);
  chooseConfigurationFiles(options);
  for (const auto& address : options.addresses) {
    std::string all = address;
    const char* earlier = netsnmp_ds_get_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS);
    if (earlier != nullptr) all = fmt::format("{},{}", earlier, address);
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS, all.c_str());
  }
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE,
                         options.isSubagent ? subagent : masterAgent);
  netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_TIMEOUT, -1);
  netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_RETRIES, -1);
  netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_CACHE_TIMEOUT, 5);
  if (options.isSubagent) {
    // It has neither users nor an engine of its own, and would erase those of an agent that has the same directory.
    set_persistent_directory(fmt::format("{}/subagent", get_persistent_directory()).c_str());
  }
  // Do not log each datagram by default.
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_DONT_LOG_TCPWRAPPERS_CONNECTS, 1);
  // The library would open the port of SMUX (RFC 1227), a protocol without a use here.
  char withoutSmux[] = "-smux";
  add_to_init_list(withoutSmux);
  if (init_agent(applicationType) != 0) throw Kel::Exception("net-snmp's agent library does not start");
  if (options.isSubagent) {
    initSubagentMibs();
    masterSession_.emplace(options.masterAddress);
    Snmp::setTakesPrecedence(true);
  } else {
    // Limits the answer to a GETBULK. The library's own limit is 2 GB, more than a datagram takes.
    netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_MSG_SEND_MAX, largestDatagram);
    initStockMibs();
  }
  refuseSets();
  Snmp::registerConfigTokens();
}

NetSnmpAgent::~NetSnmpAgent() {
  logLimit_.reset();
  communityContexts_.reset();
  // An agent that never served must not change the state of one that does.
  if (!keepsState_) forgetState();
  masterSession_.reset();
  snmp_shutdown(applicationType);
  shutdown_master_agent();
  shutdown_agent();
}

void NetSnmpAgent::readConfiguration() {
  checkConfigurationFiles();
  makeStateDirectoriesQuietly();
  const RefusedLines listener;
  init_snmp(applicationType);
  if (masterSession_) masterSession_->configured();
}

void NetSnmpAgent::readConfigurationAgain() {
  checkConfigurationFiles();
  logLimit_.reset();
  netsnmp_logging_restart();
  {
    const RefusedLines listener;
    update_config();
  }
  logLimit_.emplace();
  notify(SNMP_TRAP_ENTERPRISESPECIFIC, 3);
}

void NetSnmpAgent::notify(int trap, int specific) const {
  if (!masterSession_) send_easy_trap(trap, specific);
}

void NetSnmpAgent::goToBackground() {
  // Report a wrong name while the starter still waits.
  userId(options_.user);
  groupId(options_.group);
  if (netsnmp_daemonize(1, snmp_stderrlog_status()) != 0) {
    throw Kel::Exception(fmt::format("cannot go to the background: {}", std::strerror(errno)));
  }
}

void NetSnmpAgent::settle() {
  auto user = userId(options_.user);
  auto group = groupId(options_.group);
  if (!user) user = configuredId(NETSNMP_DS_AGENT_USERID);
  if (!group) group = configuredId(NETSNMP_DS_AGENT_GROUPID);
  try {
    makeStateDirectory(get_persistent_directory(), user, group);
  } catch (const Kel::Exception& error) {
    agentLog(LOG_WARNING, std::string(error.what()) +
                              "; SNMPv3 users and engine boots will be forgotten at the next start: name another "
                              "directory with SNMP_PERSISTENT_DIR");
    forgetState();
  }
  becomeUser(user, group);
  keepsState_ = true;
  if (!options_.isSubagent) communityContexts_.emplace();
  snmp_store(applicationType);
  logLimit_.emplace();
}

void NetSnmpAgent::printDirectives() {
  init_snmp(applicationType);
  fmt::print(stderr, "Directives of a configuration file:\n");
  read_config_print_usage("  ");
}

void NetSnmpAgent::checkConfigurationFiles() const {
  for (const auto& file : options_.configurationFiles) checkReadable(file);
  if (!options_.readsDefaultConfiguration) return;
  const char* path = std::getenv("SNMPCONFPATH");
  std::vector<std::string> directories;
  boost::split(directories, path != nullptr ? path : get_configuration_directory(), boost::is_any_of(":"));
  for (const auto& directory : directories) {
    for (const char* name : {"quorind.conf", "quorind.local.conf", "snmp.conf", "snmp.local.conf"}) {
      const std::string file = directory + "/" + name;
      if (access(file.c_str(), F_OK) == 0) checkReadable(file);
    }
  }
}

}  // namespace Host
