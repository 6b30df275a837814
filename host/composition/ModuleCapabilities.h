#pragma once
// Names our MIB modules in sysORTable (RFC 3418) while it exists: one row for each, with the identity of the MIB module.
// The contexts of VRFs share the table (SharedGroups.h).

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <vector>

namespace Host {

class ModuleCapabilities {
 public:
  ModuleCapabilities();
  ~ModuleCapabilities();
  ModuleCapabilities(const ModuleCapabilities&) = delete;
  ModuleCapabilities& operator=(const ModuleCapabilities&) = delete;

  // Names the modules that the current configuration serves. Keeps the rows of those that it served before.
  void update();

 private:
  std::vector<std::vector<oid>> registered_;
};

}  // namespace Host
