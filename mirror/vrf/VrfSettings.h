#pragma once
// What an operator states of VRFs that the kernel cannot tell, and the configuration file that states it.

#include <map>
#include <optional>
#include <string>

#include "vantu/RouteDistinguisher.h"
#include "varnix/Values.h"

namespace Mirror {

struct VrfSettings {
  Vantu::RouteDistinguisher routeDistinguisher;
  std::map<Routing::StaticRouteKey, Routing::StaticRouteFacts> staticRoutes;
  std::map<Routing6::StaticRouteKey, Routing::StaticRouteFacts> staticRoutes6;
  friend bool operator==(const VrfSettings&, const VrfSettings&) = default;
};

using AllVrfSettings = std::map<L3::VrfName, VrfSettings>;

// From the text of a configuration file (YAML); docs/mirror.md describes it. Throws Kel::Exception of one line:
// "FILE:LINE: KEY: what is wrong; what to do".
AllVrfSettings vrfSettingsFromText(const std::string& text, const std::string& file);

// Reads and watches the configuration file. A new version of the file takes effect as soon as it is written or renamed
// into place. While the file is missing or wrong, the last good settings stay in effect, and one line is traced.
class SettingsFile {
 public:
  static constexpr const char* defaultFile = "/etc/quorin/mirror.yaml";

  // An empty name: there is no file, ever. Throws Kel::Exception when the file is wrong, or missing though it must
  // exist.
  SettingsFile(std::string file, bool mustExist);
  ~SettingsFile();
  SettingsFile(const SettingsFile&) = delete;
  SettingsFile& operator=(const SettingsFile&) = delete;

  // Readable when there may be something new; -1 without a file.
  int fd() const { return inotify_; }
  // Reads what is new. True when other settings are in effect than before.
  bool update();
  // The same, for changes that are not told of (the file is a link, the directory came later). Once a second.
  bool poll();

  const AllVrfSettings& settings() const { return settings_; }

 private:
  // What tells one state of the file from another; none: there is no file.
  using Signature = std::optional<std::string>;

  void watch();
  Signature signature() const;
  std::string text() const;
  bool reread();

  std::string file_;
  int inotify_ = -1;
  int watch_ = -1;
  Signature read_;     // of what was read last
  Signature pending_;  // of what is not read yet, since it may be half written
  AllVrfSettings settings_;
};

}  // namespace Mirror
