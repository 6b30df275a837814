#pragma once
// Answers the groups of objects about the agent itself, such as the system group, in every VRF's context. net-snmp's
// modules register these groups only in the default context. A request in a VRF's context gets the values of the
// default context, except for sysName if the configuration gives VRFs names of their own. The groups are read-only.
//
// It is called for each context like a MIB module (snmp/HandlerRegistration.h), and does nothing in the default one.
// Lifetime: construct it before the first context is entered, since it does not serve contexts entered earlier. It must
// outlive all contexts: net-snmp's registrations refer to it until each context is left.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <map>
#include <vector>

#include "snmp/HandlerRegistration.h"

namespace Host {

class SharedGroups : public Snmp::HandlerRegistration {
 public:
  struct Group {
    const char* name;
    std::vector<oid> root;                // registered once in each context, which takes 2 KiB
    std::vector<std::vector<oid>> parts;  // the subtrees at or below the root that are answered, in ascending order
  };
  // The groups of an agent that answers managers itself: system with sysORTable, snmp, and the SNMP engine's identity
  // and counters. Users, groups and views stay in the default context: only the device's operator controls access.
  static std::vector<Group> ofMaster();
  // The groups that a subagent can answer.
  static std::vector<Group> ofSubagent();

  explicit SharedGroups(std::vector<Group> groups);
  ~SharedGroups() override;

  void initHandler(Kel::String context) override;
  void exitHandler(Kel::String context) override;
  const char* name() const override { return "SharedGroups"; }

 private:
  void registerGroup(const Group& group, const Kel::String& context);

  const std::vector<Group> groups_;
  std::map<Kel::String, std::vector<const Group*>> registered_;
  Snmp::AutoRegistree registree_;
};

}  // namespace Host
