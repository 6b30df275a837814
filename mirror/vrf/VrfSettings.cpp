#include "mirror/vrf/VrfSettings.h"

#include <fmt/format.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <yaml-cpp/yaml.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <set>
#include <sstream>

#include "kel/Errors.h"
#include "kel/Trace.h"
#include "mirror/routes/RouteContents.h"
#include "varnix/ByteText.h"

namespace Mirror {

namespace {

// Throws for bits beyond the length.
template <class Prefix>
Prefix prefixFromText(std::string_view text) {
  const auto prefix = Prefix::fromString(text);
  const auto whole = std::remove_cvref_t<decltype(prefix.addrWithMask())>::fromString(text);
  if (whole != prefix.addrWithMask()) {
    throw Kel::RangeException(fmt::format("{:?} has bits beyond its length", text));
  }
  return prefix;
}

class Reader {
 public:
  explicit Reader(const std::string& file) : file_(file) {}

  AllVrfSettings all(const YAML::Node& root) const {
    AllVrfSettings settings;
    if (root.IsNull()) return settings;
    keysAre(root, "the file", {"vrfs"});
    const YAML::Node vrfs = root["vrfs"];
    if (!vrfs || vrfs.IsNull()) return settings;
    mapIs(vrfs, "vrfs", "write the names of VRFs below it, each with a colon");
    for (const auto& entry : vrfs) {
      const L3::VrfName name = vrfName(entry.first);
      if (settings.contains(name)) fail(entry.first, pathOf(name), "the VRF is there twice", "put both together");
      settings[name] = vrf(name, entry.second);
    }
    return settings;
  }

  [[noreturn]] void fail(const YAML::Mark& mark, const std::string& key, const std::string& what,
                         const std::string& advice) const {
    const std::string place = mark.is_null() ? file_ : fmt::format("{}:{}", file_, mark.line + 1);
    throw Kel::Exception(fmt::format("{}: {}: {}; {}", place, key, what, advice));
  }

 private:
  [[noreturn]] void fail(const YAML::Node& node, const std::string& key, const std::string& what,
                         const std::string& advice) const {
    fail(node.Mark(), key, what, advice);
  }

  static std::string pathOf(const L3::VrfName& name) { return "vrfs." + Varnix::escapeBytes(name.stringValue()); }

  L3::VrfName vrfName(const YAML::Node& node) const {
    const std::string text = node.IsScalar() ? node.Scalar() : "";
    if (text.empty() || text.size() > L3::VrfName::maxLength) {
      fail(node, "vrfs", "a VRF's name of no or of too many bytes", "use 1 to 100 bytes");
    }
    return L3::VrfName(text);
  }

  template <class Read>
  auto read(const YAML::Node& node, const std::string& key, const char* advice, const Read& from) const {
    if (!node.IsScalar()) fail(node, key, "it is no text", advice);
    try {
      return from(node.Scalar());
    } catch (const Kel::RangeException& error) {
      fail(node, key, error.what(), advice);
    }
  }

  VrfSettings vrf(const L3::VrfName& name, const YAML::Node& node) const {
    VrfSettings settings;
    const std::string path = pathOf(name);
    if (node.IsNull()) return settings;
    keysAre(node, path, {"routeDistinguisher", "staticRoutes"});
    if (const auto value = node["routeDistinguisher"]) {
      const std::string key = path + ".routeDistinguisher";
      if (name.isDefault()) fail(value, key, "the default VRF has none", "remove the line");
      settings.routeDistinguisher =
          read(value, key, "write it as \"65000:1\" or \"192.0.2.1:1\"", Vantu::RouteDistinguisher::fromString);
      if (!settings.routeDistinguisher.isSet()) fail(value, key, "it is empty", "remove the line, or fill it in");
    }
    if (const auto routes = node["staticRoutes"]) staticRoutes(routes, path + ".staticRoutes", settings);
    return settings;
  }

  void staticRoutes(const YAML::Node& node, const std::string& path, VrfSettings& settings) const {
    if (node.IsNull()) return;
    if (!node.IsSequence()) fail(node, path, "it is no list", "begin each route with '- prefix: ...'");
    for (const auto& route : node) staticRoute(route, path, settings);
  }

  void staticRoute(const YAML::Node& node, const std::string& path, VrfSettings& settings) const {
    keysAre(node, path, {"prefix", "preference", "nexthopGroup", "persistent"});
    const YAML::Node prefix = node["prefix"];
    if (!prefix) fail(node, path, "a route without prefix", "add 'prefix: ADDRESS/LENGTH'");
    const auto preference = distance(node["preference"], path + ".preference");
    const Routing::StaticRouteFacts facts(flag(node["nexthopGroup"], path + ".nexthopGroup", false),
                                          flag(node["persistent"], path + ".persistent", true));
    const std::string key = path + ".prefix";
    const bool isIpv6 = prefix.IsScalar() && prefix.Scalar().find(':') != std::string::npos;
    const bool isNew = isIpv6 ? add<Vantu::Ip6Prefix>(settings.staticRoutes6, prefix, key, preference, facts)
                              : add<Vantu::Prefix>(settings.staticRoutes, prefix, key, preference, facts);
    if (!isNew) fail(node, path, "the route is there twice", "remove one of them");
  }

  template <class Prefix, class Routes>
  bool add(Routes& routes, const YAML::Node& node, const std::string& key, Routing::RoutePreference preference,
           const Routing::StaticRouteFacts& facts) const {
    const auto prefix = read(node, key, "write it as ADDRESS/LENGTH, such as 10.0.0.0/8", prefixFromText<Prefix>);
    return routes.try_emplace({prefix, preference}, facts).second;
  }

  Routing::RoutePreference distance(const YAML::Node& node, const std::string& key) const {
    if (!node) return Routing::RoutePreference(staticDistance);
    int value = 0;
    if (!YAML::convert<int>::decode(node, value) || value < 0 || value > 255) {
      fail(node, key, "it is no administrative distance",
           fmt::format("use 0 to 255, or leave it out for {}", staticDistance));
    }
    return Routing::RoutePreference(static_cast<std::uint8_t>(value));
  }

  bool flag(const YAML::Node& node, const std::string& key, bool absent) const {
    if (!node) return absent;
    bool value = false;
    if (!YAML::convert<bool>::decode(node, value)) fail(node, key, "it is neither", "use true or false");
    return value;
  }

  void mapIs(const YAML::Node& node, const std::string& path, const std::string& advice) const {
    if (!node.IsMap()) fail(node, path, "it has no keys", advice);
  }

  void keysAre(const YAML::Node& node, const std::string& path,
               std::initializer_list<std::string_view> known) const {
    const std::string list = fmt::format("the keys are {}", fmt::join(known, ", "));
    mapIs(node, path, list);
    std::set<std::string> seen;
    for (const auto& entry : node) {
      const std::string key = entry.first.IsScalar() ? entry.first.Scalar() : "";
      if (std::find(known.begin(), known.end(), key) == known.end()) {
        fail(entry.first, path, fmt::format("'{}' is no key of it", Varnix::escapeBytes(key)), list);
      }
      if (!seen.insert(key).second)
        fail(entry.first, path, fmt::format("'{}' is there twice", Varnix::escapeBytes(key)), "remove one");
    }
  }

  const std::string& file_;
};

Kel::TraceHandle settingsFileTrace("MirrorSettings");

// A configuration has a few lines for each VRF; a larger file is a mistake.
constexpr off_t maxBytes = 16 << 20;

}  // namespace

AllVrfSettings vrfSettingsFromText(const std::string& text, const std::string& file) {
  const Reader reader(file);
  try {
    return reader.all(YAML::Load(text));
  } catch (const YAML::Exception& error) {
    reader.fail(error.mark, "YAML", Varnix::escapeBytes(error.msg), "mend it");
  }
}

SettingsFile::SettingsFile(std::string file, bool mustExist) : file_(std::move(file)) {
  if (file_.empty()) return;
  inotify_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  watch();
  read_ = pending_ = signature();
  if (!read_ && mustExist) {
    throw Kel::Exception(fmt::format("cannot read {}: {}; name another file with --config, or make it", file_,
                                     std::strerror(errno)));
  }
  if (read_) settings_ = vrfSettingsFromText(text(), file_);
}

SettingsFile::~SettingsFile() {
  if (inotify_ >= 0) close(inotify_);
}

// Watches the directory, since the file may be replaced. Without a watch, poll() finds changes.
void SettingsFile::watch() {
  const std::string directory = std::filesystem::path(file_).parent_path().string();
  watch_ = inotify_add_watch(inotify_, directory.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_ONLYDIR);
}

SettingsFile::Signature SettingsFile::signature() const {
  struct stat status {};
  if (stat(file_.c_str(), &status) != 0) return std::nullopt;
  return fmt::format("{} {} {} {}.{}", status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                     status.st_mtim.tv_nsec);
}

std::string SettingsFile::text() const {
  struct stat status {};
  if (stat(file_.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > maxBytes) {
    throw Kel::Exception(
        fmt::format("cannot read {}: it is no file of at most 16 MiB; put a configuration there", file_));
  }
  std::ifstream in(file_, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  if (!in) throw Kel::Exception(fmt::format("cannot read {}: {}", file_, std::strerror(errno)));
  return text.str();
}

bool SettingsFile::update() {
  alignas(inotify_event) char buffer[4096];
  bool isConcerned = false;
  const std::string name = std::filesystem::path(file_).filename().string();
  for (ssize_t size = 0; (size = read(inotify_, buffer, sizeof(buffer))) > 0;) {
    for (ssize_t at = 0; at < size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      isConcerned |= event->len == 0 || name == event->name;
    }
  }
  return isConcerned && reread();
}

bool SettingsFile::poll() {
  if (file_.empty()) return false;
  if (inotify_ >= 0) watch();
  const Signature now = signature();
  if (now == read_) return false;
  // A version must stay the same for a second.
  if (std::exchange(pending_, now) != now) return false;
  return reread();
}

bool SettingsFile::reread() {
  const Signature now = signature();
  if (now == read_) return false;
  read_ = pending_ = now;
  if (!now) {
    QTRACE(settingsFileTrace, 0) << file_ << " is gone; what was in effect stays until there is another one";
    return false;
  }
  try {
    auto settings = vrfSettingsFromText(text(), file_);
    QTRACE(settingsFileTrace, 1) << file_ << " is in effect";
    if (settings == settings_) return false;
    settings_ = std::move(settings);
    return true;
  } catch (const Kel::Exception& error) {
    QTRACE(settingsFileTrace, 0) << error.what() << "; what was in effect stays";
    return false;
  }
}

}  // namespace Mirror
