#pragma once
// The command line of quorin-mirrord.

#include <iosfwd>
#include <string>
#include <variant>

#include "mirror/vrf/VrfNamespaces.h"
#include "mirror/vrf/VrfSettings.h"
#include "quillo/Publisher.h"

namespace Mirror {

struct MirrorOptions {
  bool isForeground = false;
  std::string store = Quillo::defaultStoreDirectory;  // absolute
  std::string trace;                                  // as Kel::TraceConfig::levelsAre takes it
  bool recreateStore = false;
  std::string netnsDirectory = Vantu::defaultNetNsDirectory;  // absolute
  std::string settingsFile = SettingsFile::defaultFile;       // absolute
  bool mustSettingsExist = false;                             // they were asked for
};

// The options, or the program's exit status when there is nothing more to do: help and version are written to
// `out`, what is wrong with the command line to `err` (one line).
std::variant<MirrorOptions, int> parseOptions(int argc, const char* const* argv, std::ostream& out,
                                              std::ostream& err);

}  // namespace Mirror
