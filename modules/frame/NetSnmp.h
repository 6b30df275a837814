#pragma once
// net-snmp's agent headers, in the order that they require.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// Requires the two above.
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <span>

namespace Modules {

// The sub-identifiers of an object's name.
using Name = std::span<const oid>;

inline int compare(Name a, Name b) {
  return snmp_oid_compare(a.data(), a.size(), b.data(), b.size());
}

inline Name nameOf(const netsnmp_variable_list& variable) {
  return {variable.name, variable.name_length};
}

}  // namespace Modules
