#include "host/agent/StockMibs.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/agent_sysORTable.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/sysORTable.h>

#include <vector>

// Exported by the module library without a header.
extern "C" {
void init_snmpEngine(void);
void init_snmpMPDStats(void);
void init_snmp_mib(void);
void init_sysORTable(void);
void init_system_mib(void);
void init_usmStats(void);
void init_usmUser(void);
void init_vacm_vars(void);
}

namespace Host {

void initStockMibs() {
  init_system_mib();
  init_sysORTable();
  init_snmp_mib();
  init_snmpEngine();
  init_snmpMPDStats();
  init_usmStats();
  init_usmUser();
  init_vacm_vars();
  // Without a value the module omits sysServices. A value from a configuration file is read later and overrides this.
  char defaultServices[] = "sysservices 76";  // internet, end-to-end and application layers (RFC 3418)
  netsnmp_config(defaultServices);
}

void initSubagentMibs() {
  init_system_mib();
  init_snmpEngine();
  std::vector<std::vector<oid>> capabilities;
  netsnmp_sysORTable_foreach(
      [](const struct sysORTable* row, void* all) {
        static_cast<std::vector<std::vector<oid>>*>(all)->emplace_back(row->OR_oid, row->OR_oid + row->OR_oidlen);
      },
      &capabilities);
  for (auto& capability : capabilities) unregister_sysORTable(capability.data(), capability.size());
  // Register the table last: net-snmp 5.9's table keeps pointers to removed capabilities.
  init_sysORTable();
}

void refuseSets() {
  for (const subtree_context_cache* context = get_top_context_cache(); context != nullptr;
       context = context->next) {
    for (const netsnmp_subtree* subtree = context->first_subtree; subtree != nullptr; subtree = subtree->next) {
      for (const netsnmp_subtree* layer = subtree; layer != nullptr; layer = layer->children) {
        if (layer->reginfo != nullptr) layer->reginfo->modes &= ~HANDLER_CAN_SET;
      }
    }
  }
}

}  // namespace Host
