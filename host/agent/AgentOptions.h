#pragma once
// The agent's command line, in the manner of net-snmp's own agent.

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
  bool readsDefaultConfiguration = true;        // until -C
  std::vector<std::string> configurationFiles;  // -c, absolute paths
  std::vector<std::string> addresses;           // to listen on; none: what the configuration says
  std::string pidFile;                          // -p, an absolute path or empty
  std::string user;                             // -u, a name or number, or empty
  std::string group;                            // -g
  std::string storeDirectory;                   // --store, an absolute path or empty: what the configuration says
  std::string netnsDirectory;                   // --netns-dir, likewise
  bool isSubagent = false;                      // -X
  std::string masterAddress;                    // -x, or empty: what the configuration says
  bool isLoggingChosen = false;                 // some -L was given

  // Reads the command line. Logging (-L), packet dumps (-d) and debug tokens (-D) are net-snmp's own options and
  // take effect at once, through its own parser. Throws Kel::RangeException for an unknown option, a missing or a
  // wrong argument; the text names the option.
  static AgentOptions fromCommandLine(int argc, char* argv[]);
  static std::string help();
};

}  // namespace Host
