#include "snmp/Config.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/un.h>

#include <algorithm>

#include "kel/Errors.h"

namespace Snmp {
namespace {

const Kel::String& absolute(const Kel::String& path) {
  if (!path.starts_with('/')) throw Kel::RangeException("'" + path + "' is not an absolute path");
  return path;
}

// Throws for a text that is no number from `least` to a day.
unsigned secondsOf(const Kel::String& text, unsigned least) {
  constexpr unsigned longest = 86400;
  const auto value = Kel::numberFromText<unsigned>(text);
  if (!value || *value < least || *value > longest) {
    throw Kel::RangeException(fmt::format("'{}' is no number of seconds from {} to {}", text, least, longest));
  }
  return *value;
}

}  // namespace

const std::vector<Kel::String>& Config::objectGroups() {
  static const std::vector<Kel::String> groups = {"route-tables", "interface-tables", "ip-mib-tables",
                                                  "mpls-l3vpn"};
  return groups;
}

void Config::disableObjects(const Kel::String& group) {
  const auto& known = objectGroups();
  if (std::find(known.begin(), known.end(), group) == known.end()) {
    throw Kel::RangeException(
        fmt::format("there is no object group '{}'; known are: {}", group, fmt::join(known, ", ")));
  }
  disabledObjects_.insert(group);
}

void Config::setStoreDirectory(const Kel::String& directory) {
  storeDirectory_ = absolute(directory);
}

void Config::netnsDirectoryIs(const Kel::String& directory) {
  netnsDirectory_ = absolute(directory);
}

void Config::setKernelIpHeader(const Kel::String& word) {
  if (word != "any" && word != "strict") throw Kel::RangeException("'" + word + "' is neither any nor strict");
  takesAnyKernelIpHeader_ = word == "any";
}

void Config::setDefaultInterfaces(const Kel::String& word) {
  if (word != "own" && word != "all") throw Kel::RangeException("'" + word + "' is neither own nor all");
  areAllInterfacesInDefault_ = word == "all";
}

void Config::addManagementInterface(const Kel::String& name) {
  managementInterfaces_.insert(Vantu::IntfId(name));
}

void Config::routeCountIntervalIs(const Kel::String& seconds) {
  routeCountInterval_ = secondsOf(seconds, 1);
}

void Config::idleTimeoutIs(const Kel::String& seconds) {
  idleTimeout_ = secondsOf(seconds, 0);
}

void Config::staleAfterIs(const Kel::String& seconds) {
  staleAfter_ = secondsOf(seconds, 0);
}

void Config::contextCommunitiesIs(const Kel::String& separator) {
  constexpr std::size_t longest = 8;
  const bool isPrintable =
      std::all_of(separator.begin(), separator.end(), [](char c) { return c > ' ' && c < 127; });
  if (separator.empty() || separator.size() > longest || !isPrintable) {
    throw Kel::RangeException(
        fmt::format("'{}' is no separator: write 1 to {} printable characters without blanks, "
                    "such as @, or none",
                    separator, longest));
  }
  contextCommunities_ = separator == "none" ? "" : separator;
}

void Config::vrfSysNameIs(const Kel::String& text) {
  if (text == "none") {
    vrfSysName_.clear();
    return;
  }
  bool hasVrf = false;
  for (auto at = text.find('%'); at != Kel::String::npos; at = text.find('%', at + 2)) {
    const char letter = at + 1 < text.size() ? text[at + 1] : '\0';
    if (letter != 'h' && letter != 'v') {
      throw Kel::RangeException(fmt::format("'{}' has a % before neither h nor v", text));
    }
    hasVrf = hasVrf || letter == 'v';
  }
  if (!hasVrf) throw Kel::RangeException(fmt::format("'{}' does not name the VRF: write %v, as in %h-%v", text));
  vrfSysName_ = text;
}

void Config::controlSocketIs(const Kel::String& path) {
  if (path == "none") {
    controlSocket_.clear();
    return;
  }
  constexpr std::size_t longest = sizeof(sockaddr_un::sun_path) - 1;
  if (path.size() > longest) {
    throw Kel::RangeException(fmt::format("'{}' is longer than the {} bytes of a socket's path", path, longest));
  }
  controlSocket_ = absolute(path);
}

}  // namespace Snmp
