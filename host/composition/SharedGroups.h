#pragma once
// The groups of objects that tell about the agent itself, such as the system group: stock modules register them in
// the default context, and here they are answered in every VRF's context too, with the same values at the same
// moment. They are read-only there.
//
// They enter and leave contexts as MIB modules do (snmp/HandlerRegistration.h).

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
    std::vector<oid> root;  // everything below it belongs to the group
  };
  // Those of an agent that answers managers itself: system with sysORTable, snmp, and the SNMP engine's identity
  // and counters. Users, groups and views are not among them: who may ask is nothing that a VRF's operator needs.
  static std::vector<Group> ofMaster();
  // Those that a subagent can tell the truth about.
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
