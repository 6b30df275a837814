#include "host/composition/ModuleCapabilities.h"

// The agent headers need the library's.
#include <net-snmp/agent/agent_sysORTable.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/sysORTable.h>

#include <algorithm>

#include "snmp/Config.h"

namespace Host {

namespace {

struct Capability {
  std::vector<oid> identity;  // of the MIB module
  const char* description;
  const char* group = nullptr;  // the object group that disables it; null: none
};

const std::vector<Capability>& capabilities() {
  static const std::vector<Capability> all{
      {{1, 3, 6, 1, 2, 1, 31}, "IF-MIB: the interfaces of each VRF", "interface-tables"},
      {{1, 3, 6, 1, 2, 1, 35}, "EtherLike-MIB: the duplex mode of each interface", "interface-tables"},
      {{1, 3, 6, 1, 2, 1, 48}, "IP-MIB: the IP addresses, prefixes and neighbours of each VRF"},
      {{1, 3, 6, 1, 2, 1, 4, 24}, "IP-FORWARD-MIB: the routes of each VRF", "route-tables"},
      {{1, 3, 6, 1, 2, 1, 10, 166, 11}, "MPLS-L3VPN-STD-MIB: the VRFs and their interfaces", "mpls-l3vpn"},
      {{1, 3, 6, 1, 4, 1, QUORIN_ENTERPRISE, 3, 1}, "QUORIN-SW-FWD-IP-MIB: the kernel's IP counters of each VRF"},
      {{1, 3, 6, 1, 4, 1, QUORIN_ENTERPRISE, 3, 18}, "QUORIN-VRF-MIB: the VRFs and their interfaces"},
      {{1, 3, 6, 1, 4, 1, QUORIN_ENTERPRISE, 3, 23}, "QUORIN-FIB-STATS-MIB: counts of routes", "route-tables"},
      {{1, 3, 6, 1, 4, 1, QUORIN_ENTERPRISE, 3, 27}, "QUORIN-IP-MIB: the IP counters of each interface"},
      {{1, 3, 6, 1, 4, 1, QUORIN_ENTERPRISE, 4}, "QUORIN-AGENT-MIB: the state of the agent"}};
  return all;
}

}  // namespace

ModuleCapabilities::ModuleCapabilities() {
  update();
}

ModuleCapabilities::~ModuleCapabilities() {
  for (auto& identity : registered_) unregister_sysORTable(identity.data(), identity.size());
}

void ModuleCapabilities::update() {
  const auto config = Snmp::currentConfig();
  for (const auto& [identity, description, group] : capabilities()) {
    const bool isServed = group == nullptr || !config->disabledObjects().contains(group);
    const auto at = std::find(registered_.begin(), registered_.end(), identity);
    auto id = identity;  // net-snmp takes no constant
    if (isServed && at == registered_.end()) {
      if (register_sysORTable(id.data(), id.size(), description) == SYS_ORTABLE_REGISTERED_OK)
        registered_.push_back(id);
    } else if (!isServed && at != registered_.end()) {
      unregister_sysORTable(id.data(), id.size());
      registered_.erase(at);
    }
  }
}

}  // namespace Host
