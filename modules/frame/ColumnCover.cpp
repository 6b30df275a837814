#include "modules/frame/ColumnCover.h"

#include <fmt/format.h>

namespace Modules {

namespace {

extern "C" int handleColumnCover(netsnmp_mib_handler* handler, netsnmp_handler_registration*,
                                 netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  return netsnmp_call_handlers(static_cast<netsnmp_handler_registration*>(handler->myvoid), info, requests);
}

}  // namespace

netsnmp_handler_registration* coverColumn(netsnmp_handler_registration* table, unsigned column) {
  std::vector<oid> identifier(table->rootoid, table->rootoid + table->rootoid_len);
  identifier.insert(identifier.end(), {1, column});  // the entry, and the column in it
  const auto name = fmt::format("{}/{}", table->handlerName, column);
  auto* const cover = netsnmp_create_handler_registration(name.c_str(), handleColumnCover, identifier.data(),
                                                          identifier.size(), table->modes);
  if (cover == nullptr) return nullptr;
  cover->priority = table->priority;
  cover->handler->myvoid = table;
  // net-snmp frees what it refuses.
  return netsnmp_register_handler(cover) == MIB_REGISTERED_OK ? cover : nullptr;
}

}  // namespace Modules
