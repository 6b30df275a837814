#pragma once
// Has the groups of objects about the agent itself, such as the system group, answered in every VRF's context. net-snmp's
// modules register these groups only in the default context. A request in a VRF's context gets the values of the
// default context (modules/frame/ContextObjects.h), except for sysName if the configuration gives VRFs names of their
// own. The groups are read-only.
//
// Lifetime: construct it before the first context is entered, since it does not serve contexts entered earlier. It must
// outlive all contexts.

#include <vector>

#include "modules/frame/NetSnmp.h"

namespace Host {

class SharedGroups {
 public:
  using Groups = std::vector<std::vector<oid>>;  // their roots
  // The groups of an agent that answers managers itself: system with sysORTable, snmp, and the SNMP engine's identity
  // and counters. Users, groups and views stay in the default context: only the device's operator controls access.
  static Groups ofMaster();
  // The groups that a subagent can answer.
  static Groups ofSubagent();

  explicit SharedGroups(const Groups& groups);
  ~SharedGroups();
  SharedGroups(const SharedGroups&) = delete;
  SharedGroups& operator=(const SharedGroups&) = delete;
};

}  // namespace Host
