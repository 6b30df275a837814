#pragma once
// The command line of quorin-mirrord.

#include <sys/types.h>

#include <iosfwd>
#include <optional>
#include <string>
#include <variant>

#include "mirror/vrf/VrfNamespaces.h"
#include "mirror/vrf/VrfSettings.h"
#include "quillo/Publisher.h"

namespace Mirror {

struct MirrorOptions {
  bool isForeground = false;
  std::string store = Quillo::defaultStoreDirectory;  // absolute
  std::string trace;                                  // as Kel::TraceConfig::setLevels takes it
  bool recreateStore = false;
  std::optional<gid_t> group;  // that may read the store; none: that of its directory
  std::string netnsDirectory = Vantu::defaultNetNsDirectory;  // absolute
  std::string settingsFile = SettingsFile::defaultFile;       // absolute
  int niceness = 5;                // added to the nice value, so that the agent takes precedence
  bool mustSettingsExist = false;  // the command line names the file, so a missing one is an error
};

// Returns the options, or the exit status of a program that is to end at once. Writes help and version to `out`, and
// one line about a faulty command line to `err`.
std::variant<MirrorOptions, int> parseOptions(int argc, const char* const* argv, std::ostream& out,
                                              std::ostream& err);

}  // namespace Mirror
