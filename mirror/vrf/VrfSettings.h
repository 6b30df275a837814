#pragma once
// The operator's settings of VRFs, which the kernel does not know, and the configuration file that has them.

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

// Parses a configuration file (YAML; docs/mirror.md describes it). Throws Kel::Exception with one line:
// "FILE:LINE: KEY: what is wrong; what to do".
AllVrfSettings vrfSettingsFromText(const std::string& text, const std::string& file);

// Reads and watches the configuration file. A new version of the file takes effect as soon as it is written or renamed
// into place. While the file is missing or wrong, the last good settings stay in effect, and one line is traced.
class SettingsFile {
 public:
  static constexpr const char* defaultFile = "/etc/quorin/mirror.yaml";

  // An empty name means no file. Throws Kel::Exception if the file is wrong, or missing although it must exist.
  SettingsFile(std::string file, bool mustExist);
  ~SettingsFile();
  SettingsFile(const SettingsFile&) = delete;
  SettingsFile& operator=(const SettingsFile&) = delete;

  // Readable when the file may have changed; -1 without a file.
  int fd() const { return inotify_; }
  // Reads the file if it changed. Returns whether other settings are now in effect.
  bool update();
  // The same for changes without a notification, such as behind a symbolic link, or in a directory that did not exist
  // before. Call it once a second.
  bool poll();

  const AllVrfSettings& settings() const { return settings_; }

 private:
  // Differs between states of the file; none: no file.
  using Signature = std::optional<std::string>;

  void watch();
  Signature signature() const;
  std::string text() const;
  bool reread();

  std::string file_;
  int inotify_ = -1;
  int watch_ = -1;
  Signature read_;     // of the version read last
  Signature pending_;  // of a version seen once, which may be half written
  AllVrfSettings settings_;
};

}  // namespace Mirror
