#pragma once
// Registers our MIB modules in sysORTable (RFC 3418) while it exists: one row for each, with the OID of the MIB
// module's identity. The contexts of VRFs share the table (SharedGroups.h).

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <vector>

namespace Host {

class ModuleCapabilities {
 public:
  // Calls update(). Requires: net-snmp's agent is initialized until the destructor returns.
  ModuleCapabilities();
  ~ModuleCapabilities();
  ModuleCapabilities(const ModuleCapabilities&) = delete;
  ModuleCapabilities& operator=(const ModuleCapabilities&) = delete;

  // Adds and removes rows so that the table names the modules that the current configuration serves. Rows that remain
  // keep their sysORUpTime.
  void update();

 private:
  std::vector<std::vector<oid>> registered_;
};

}  // namespace Host
