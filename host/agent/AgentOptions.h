#pragma once
// The agent's command line. The option letters mean what they mean to net-snmp's own agent.

#include <optional>
#include <string>
#include <vector>

namespace Host {

struct AgentOptions {
  enum class Action {
    serve,
    showHelp,
    showVersion,
    showDirectives,  // -H: the directives that a configuration file may hold
  };

  Action action = Action::serve;
  bool isForeground = false;                    // -f
  bool readsDefaultConfiguration = true;        // false with -C
  std::vector<std::string> configurationFiles;  // -c, absolute paths
  std::vector<std::string> addresses;           // to listen on; empty: as configured
  std::string pidFile;                          // -p, an absolute path or empty
  std::string user;                             // -u, a name or number, or empty
  std::string group;                            // -g, likewise
  std::string storeDirectory;                   // --store, an absolute path; empty: as configured
  std::string netnsDirectory;                   // --netns-dir, likewise
  bool isSubagent = false;                      // -X
  std::string masterAddress;                    // -x; empty: as configured
  bool isLoggingChosen = false;                 // with any -L

  // Reads the command line. Logging (-L, -A), packet dumps (-d) and debug tokens (-D) take effect at once, in
  // net-snmp's own settings. Throws Kel::RangeException that names the option if it is unknown, its argument is missing
  // or wrong, or it contradicts the others (-x without -X, addresses with -X).
  static AgentOptions fromCommandLine(int argc, char* argv[]);
  // The text that -h prints.
  static std::string help();
};

}  // namespace Host
