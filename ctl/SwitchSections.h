#pragma once
// Readers of the sections of a switch file. Internal to switchFromText(). All throw YamlException.

#include <absl/container/btree_set.h>

#include <array>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ctl/SwitchState.h"
#include "ctl/YamlFields.h"

namespace Ctl {

// The end of InterfaceIndex.
constexpr std::uint32_t mostIfIndex = 0x7fffffff;

// An interface while its VRF is read.
struct InterfaceEntry {
  InterfaceSpec spec = {};
  std::array<std::vector<MovingCounters::Counter>, 2> moving = {};  // IPv4, IPv6; empty unless a counter moves
  std::vector<MovingCounters::Counter> linkMoving = {};             // likewise
};

// A VRF while its section is read.
struct VrfEntry {
  using FecId = Quillo::Fib::FecId;

  VrfSpec spec{.id = VrfId()};  // the id is unknown until one is assigned, unless the file has it
  int line = 0;
  std::vector<InterfaceEntry> interfaces;
  std::vector<Arp::Table::ArpEntry> neighbours;  // their VRF id is set once it is known
  VrfTables tables;
  // For detecting duplicates.
  absl::btree_set<Vantu::Prefix> prefixes;
  absl::btree_set<Vantu::Ip6Prefix> prefixes6;
  std::set<std::pair<Vantu::IpGenAddr, Vantu::IntfId>> neighbourKeys;

  std::unordered_map<std::string, FecId> byText[2];  // FECs of one via, by IP version
  std::map<FecId, int> wanted;                       // FECs that routes name by id, with the line of the first
};

// The interfaces that routes, FECs and neighbours name, each with line and KEY of its first use.
using UsedInterfaces = std::map<Vantu::IntfId, std::pair<int, std::string>>;

// Read one entry of the list `routes`, `neighbours` or `staticRoutes`, or the whole list `fecs`, into `vrf` or `spec`.
// `path` is the KEY of messages. The interfaces named are added to `used`.
void readRoute(const YamlFields& fields, const YamlNode& node, const std::string& path, VrfEntry& vrf,
               UsedInterfaces& used);
void readNeighbour(const YamlFields& fields, const YamlNode& node, const std::string& path, VrfEntry& vrf,
                   UsedInterfaces& used);
void readStaticRoute(const YamlFields& fields, const YamlNode& node, const std::string& path, VrfSpec& spec);
void readFecs(const YamlFields& fields, const YamlNode& node, const std::string& path, VrfEntry& vrf,
              UsedInterfaces& used);

// Reads the map of an interface into `entry`, except `count`. `now`: the discontinuity time of the counters, unless the
// file gives one. Requires: the caller has checked the keys of the map.
void readInterface(const YamlFields& fields, const YamlNode& node, const std::string& path, Kel::Seconds now,
                   InterfaceEntry& entry);

// Applies the list `documents` to `tree`: creates documents, sets attributes, and at last removes those marked as
// absent. Entries may refer to documents of later entries.
void readDocuments(const YamlFields& fields, const YamlNode& node, const Varnix::Tree& tree);

}  // namespace Ctl
