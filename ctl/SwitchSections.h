#pragma once
// The sections of a switch file. Internal to switchFromText().

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

struct InterfaceEntry {
  InterfaceSpec spec = {};
  std::array<std::vector<MovingCounters::Counter>, 2> moving = {};  // empty unless counters move
};

// A VRF as far as it was read.
struct VrfEntry {
  using FecId = Quillo::Fib::FecId;

  VrfSpec spec{.id = VrfId()};  // unknown unless the file has it
  int line = 0;
  std::vector<InterfaceEntry> interfaces;
  std::vector<Arp::Table::ArpEntry> neighbours;  // without a VRF id
  VrfTables tables;
  // To find what is there twice.
  absl::btree_set<Vantu::Prefix> prefixes;
  absl::btree_set<Vantu::Ip6Prefix> prefixes6;
  std::set<std::pair<Vantu::IpGenAddr, Vantu::IntfId>> neighbourKeys;

  std::unordered_map<std::string, FecId> byText[2];  // FECs of one via, by IP version
  std::map<FecId, int> wanted;                       // FECs that routes name, each with the first line
};

// The interfaces that routes, FECs and neighbours name, each with the first line and key.
using UsedInterfaces = std::map<Vantu::IntfId, std::pair<int, std::string>>;

// An entry of the lists `routes`, `neighbours` and `staticRoutes`, and the list `fecs`.
void readRoute(const YamlFields& fields, const YamlNode& node, const std::string& path, VrfEntry& vrf,
               UsedInterfaces& used);
void readNeighbour(const YamlFields& fields, const YamlNode& node, const std::string& path, VrfEntry& vrf,
                   UsedInterfaces& used);
void readStaticRoute(const YamlFields& fields, const YamlNode& node, const std::string& path, VrfSpec& spec);
void readFecs(const YamlFields& fields, const YamlNode& node, const std::string& path, VrfEntry& vrf,
              UsedInterfaces& used);

// Reads the map of an interface into `entry`. `now`: since when counters have no gap, unless the file says it.
void readInterface(const YamlFields& fields, const YamlNode& node, const std::string& path, Kel::Seconds now,
                   InterfaceEntry& entry);

// Changes the documents of `tree` as the list `documents` says.
void readDocuments(const YamlFields& fields, const YamlNode& node, const Varnix::Tree& tree);

}  // namespace Ctl
