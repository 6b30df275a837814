#include "host/agent/AgentOptions.h"

#include <fmt/format.h>
#include <getopt.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <filesystem>

#include "kel/Errors.h"

namespace Host {

namespace {

// Above every character.
constexpr int storeOption = 256;
constexpr int netnsDirOption = 257;

const option longOptions[] = {{"help", no_argument, nullptr, 'h'},
                              {"version", no_argument, nullptr, 'v'},
                              {"store", required_argument, nullptr, storeOption},
                              {"netns-dir", required_argument, nullptr, netnsDirOption},
                              {nullptr, 0, nullptr, 0}};

// The agent in the background has another working directory.
std::string absolute(std::string_view path) {
  return std::filesystem::absolute(path).string();
}

std::vector<std::string> splitAtCommas(const std::string& text) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    if (end > begin) parts.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

void setFlag(int which) {
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, which, 1);
}

[[noreturn]] void refuse(const std::string& fault) {
  throw Kel::RangeException(fault + "; quorind -h lists the options");
}

// Returns the argument of an option that takes the path of a `kind`.
std::string absoluteArgument(const char* name, const char* kind) {
  if (*optarg == '\0') refuse(fmt::format("{} is empty; name a {}", name, kind));
  return absolute(optarg);
}

// Throws for an option that getopt rejects.
[[noreturn]] void refuseOption(int fault, char* argv[]) {
  const std::string name =
      optopt > 0 && optopt < storeOption ? fmt::format("-{}", static_cast<char>(optopt)) : argv[optind - 1];
  if (fault == ':') refuse(fmt::format("option {} needs an argument", name));
  refuse(fmt::format("unknown option {}", name));
}

void chooseLogging(int argc, char* argv[]) {
  const std::string chosen = optarg;
  const bool isKnown = chosen.find_first_of("eEoOfFsSnN") == 0;
  if (!isKnown || snmp_log_options(optarg, argc, argv) < 0) {
    refuse(fmt::format("option -L{} chooses no log that can be opened", chosen));
  }
}

void take(AgentOptions& options, int option, int argc, char* argv[]) {
  switch (option) {
    case 'A':
      return setFlag(NETSNMP_DS_LIB_APPEND_LOGFILES);
    case 'c':
      for (const auto& file : splitAtCommas(optarg)) options.configurationFiles.push_back(absolute(file));
      return;
    case 'C':
      options.readsDefaultConfiguration = false;
      return;
    case 'd':
      return setFlag(NETSNMP_DS_LIB_DUMP_PACKET);
    case 'D':
      debug_register_tokens(optarg != nullptr ? optarg : const_cast<char*>("ALL"));
      return snmp_set_do_debugging(1);
    case 'f':
      options.isForeground = true;
      return;
    case 'g':
      options.group = optarg;
      return;
    case 'h':
      options.action = AgentOptions::Action::showHelp;
      return;
    case 'H':
      options.action = AgentOptions::Action::showDirectives;
      return;
    case 'L':
      options.isLoggingChosen = true;
      return chooseLogging(argc, argv);
    case 'p':
      options.pidFile = absoluteArgument("-p", "file");
      return;
    case 'u':
      options.user = optarg;
      return;
    case 'v':
      options.action = AgentOptions::Action::showVersion;
      return;
    case 'x':
      if (*optarg == '\0') refuse("-x is empty; name the address of the master's AgentX socket");
      options.masterAddress = optarg;
      return;
    case 'X':
      options.isSubagent = true;
      return;
    case storeOption:
      options.storeDirectory = absoluteArgument("--store", "directory");
      return;
    case netnsDirOption:
      options.netnsDirectory = absoluteArgument("--netns-dir", "directory");
      return;
    default:
      refuseOption(option, argv);
  }
}

}  // namespace

AgentOptions AgentOptions::fromCommandLine(int argc, char* argv[]) {
  AgentOptions options;
  optind = 1;
  opterr = 0;
  for (;;) {
    const int option = getopt_long(argc, argv, ":Ac:CdD::fg:hHL:p:u:vx:X", longOptions, nullptr);
    if (option == -1) break;
    take(options, option, argc, argv);
  }
  options.addresses.assign(argv + optind, argv + argc);
  if (options.isSubagent && !options.addresses.empty()) {
    refuse(fmt::format("a subagent (-X) does not listen, so '{}' has no use; -x names the master's address",
                       options.addresses.front()));
  }
  if (!options.isSubagent && !options.masterAddress.empty()) refuse("-x has no use without -X");
  return options;
}

std::string AgentOptions::help() {
  return "usage: quorind [OPTIONS] [LISTENING ADDRESSES]\n"
         "\n"
         "  -f              stay in the foreground; log to standard error unless -L says otherwise\n"
         "  -c FILE[,...]   read these configuration files too\n"
         "  -C              do not read the default configuration files (/etc/snmp/quorind.conf ...)\n"
         "  --store DIR     the directory of the store (default: quorinStore in the\n"
         "                  configuration, or else /run/quorin)\n"
         "  --netns-dir DIR the directory of the network namespaces (default: quorinNetnsDir in the\n"
         "                  configuration, or else /run/netns)\n"
         "  -X              serve through a running snmpd, as its AgentX subagent\n"
         "  -x ADDRESS      where that snmpd listens for subagents (default: agentXSocket in the configuration, "
         "or\n"
         "                  else /var/agentx/master)\n"
         "  -p FILE         write the process id to FILE\n"
         "  -u USER         become USER (name or number) once the addresses are open\n"
         "  -g GROUP        become GROUP likewise\n"
         "  -L OPTIONS      where to log: e standard error, o standard output, n nowhere, f FILE, s FACILITY;\n"
         "                  E, O, F, S likewise with a priority first\n"
         "  -A              append to log files instead of truncating them\n"
         "  -d              dump SNMP packets sent and received\n"
         "  -D[TOKEN,...]   debugging output of net-snmp for these tokens (all without one)\n"
         "  -H              show the directives that a configuration file may hold\n"
         "  -h, --help      show this text\n"
         "  -v, --version   show the version\n"
         "\n"
         "Addresses are written as udp:HOST:PORT, udp6:[HOST]:PORT, tcp:HOST:PORT or unix:PATH. Without any, and\n"
         "without agentAddress in the configuration, the agent listens on udp:127.0.0.1:161.\n";
}

}  // namespace Host
