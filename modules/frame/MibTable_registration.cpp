// Registration of the tables.

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "kel/Errors.h"
#include "modules/frame/FactsGate.h"
#include "modules/frame/MibTable.h"
#include "modules/frame/SortedHandler.h"
#include "snmp/HandlerRegistration.h"
#include "snmp/SnmpUtil.h"

namespace Modules {

namespace {

// Zeroed memory from the allocator that net-snmp frees it with.
template <class Record>
Record* allocated(std::size_t extraBytes = 0) {
  auto* const record = static_cast<Record*>(std::calloc(1, sizeof(Record) + extraBytes));
  if (record == nullptr) throw std::bad_alloc();
  return record;
}

// The registration and its copies: net-snmp copies it where another object is, or was, inside the table. A later copy
// has the handlers of its original.
std::vector<netsnmp_handler_registration*> registeredPieces(netsnmp_handler_registration* registration,
                                                            const Kel::String& context) {
  std::vector<netsnmp_handler_registration*> pieces{registration};
  for (auto* tree = netsnmp_subtree_find_first(context.c_str()); tree != nullptr; tree = tree->next) {
    for (auto* layer = tree; layer != nullptr; layer = layer->children) {
      auto* const piece = layer->reginfo;
      if (piece == nullptr || piece == registration || piece->handlerName == nullptr) continue;
      if (std::strcmp(piece->handlerName, registration->handlerName) == 0) pieces.push_back(piece);
    }
  }
  return pieces;
}

extern "C" int quorinColumnCover(netsnmp_mib_handler* handler, netsnmp_handler_registration*,
                                 netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  return netsnmp_call_handlers(static_cast<netsnmp_handler_registration*>(handler->myvoid), info, requests);
}

// Registers one column of a registered table separately, as a cover that passes every request to the table, a GETBULK
// too. Returns null if the agent refuses it. Requires: the cover is unregistered before the table.
netsnmp_handler_registration* coverColumn(netsnmp_handler_registration* table, unsigned column) {
  std::vector<oid> identifier(table->rootoid, table->rootoid + table->rootoid_len);
  identifier.insert(identifier.end(), {1, column});  // the entry, and the column in it
  const auto name = fmt::format("{}/{}", table->handlerName, column);
  auto* const cover = netsnmp_create_handler_registration(name.c_str(), quorinColumnCover, identifier.data(),
                                                          identifier.size(), table->modes | HANDLER_CAN_GETBULK);
  if (cover == nullptr) return nullptr;
  cover->priority = table->priority;
  cover->handler->myvoid = table;
  // net-snmp frees what it refuses.
  return netsnmp_register_handler(cover) == MIB_REGISTERED_OK ? cover : nullptr;
}

}  // namespace

MibTable::MibTable(TableDescription description, std::vector<IndexObject> index, std::vector<ColumnBase> columns,
                   bool isSorted)
    : description_(std::move(description)),
      index_(std::move(index)),
      columns_(std::move(columns)),
      isSorted_(isSorted) {
  const auto fallsBack = [](const ColumnBase& a, const ColumnBase& b) { return a.number >= b.number; };
  const bool columnsAscend = std::adjacent_find(columns_.begin(), columns_.end(), fallsBack) == columns_.end();
  KEL_ASSERT(!columns_.empty());
  KEL_ASSERT(columns_.size() <= maxColumns);
  KEL_ASSERT(columnsAscend);
}

void MibTable::initialize(const TableFunctions& functions, const Snmp::Config::PtrConst& config,
                          const Kel::String& context) const noexcept {
  auto& module = description_.module;
  const Kel::String function = fmt::format("initialize_table_{}", name());
  if (description_.group != nullptr && SnmpUtil::objectsDisabled(config, description_.group)) {
    std::printf("%s is a noop because %s are disabled.\n", function.c_str(), description_.group);
    std::fflush(stdout);
    return;
  }
  module.traceInitializing(function.c_str(), description_.identifier, context);

  if (!description_.source.serves(context)) {
    QTRACE(trace(), 2) << function << " in context \"" << context << "\" varnixPathWithContext not specified ";
    return;
  }
  const auto cache = entityAt(description_.source, context,
                              {.object = fmt::format("table {}", name()),
                               .wrongTypeEnding = ".",
                               .missingAssertion = "e",
                               .wrongTypeAssertion = "ptr"});
  if (!module.share(context, description_.identifier, cache)) registerTable(functions, cache, context);
  QTRACE(trace(), 8) << "Initialized table " << name() << " in context \"" << context << "\"";
}

void MibTable::registerTable(const TableFunctions& functions, const Kel::Ptr<Kel::Entity>& cache,
                             const Kel::String& context) const {
  auto& module = description_.module;
  auto* const registration =
      module.registration(name(), functions.handler, description_.identifier, description_.modes, context);
  KEL_ASSERT_TEXT(registration != nullptr, fmt::format("reg_{}", name()).c_str());
  module.addRegistration(context, registration);
  holdEntity(registration, cache);

  auto* const table = tableRegistration(context);
  auto* const iterator = iteratorRecord(functions, cache, table);
  module.addColumnInfo(context, table->valid_columns);
  const int result = netsnmp_register_table_iterator(registration, iterator);
  KEL_ASSERT(result == 0);
  injectHandlers(registration, context);
  // Only the default context has objects of other modules.
  if (Snmp::takesPrecedence() && context.empty()) coverColumns(registration, context);
  module.registered(context, description_.identifier, *registration);
}

netsnmp_table_registration_info* MibTable::tableRegistration(const Kel::String& context) const {
  auto* const table = allocated<netsnmp_table_registration_info>();
  for (const auto& component : index_) {
    if (snmp_varlist_add_variable(&table->indexes, nullptr, 0, component.asnType, nullptr, 0) != nullptr) continue;
    QTRACE(trace(), 0) << "Failed to set up " << component.object << " in netsnmp table_info in context \""
                       << context << "\"";
  }
  table->min_column = columns_.front().number;
  table->max_column = columns_.back().number;
  table->valid_columns = columnInfo();
  return table;
}

// The list of valid columns. It is in the same piece of memory as its record, since net-snmp frees only the record.
netsnmp_column_info* MibTable::columnInfo() const {
  auto* const info = allocated<netsnmp_column_info>(columns_.size() * sizeof(unsigned));
  auto* const list = reinterpret_cast<unsigned*>(info + 1);
  for (std::size_t i = 0; i < columns_.size(); ++i) list[i] = columns_[i].number;
  info->isRange = 0;
  info->list_count = static_cast<char>(columns_.size());
  info->details.list = list;
  return info;
}

netsnmp_iterator_info* MibTable::iteratorRecord(const TableFunctions& functions, const Kel::Ptr<Kel::Entity>& cache,
                                                netsnmp_table_registration_info* table) const {
  auto* const iterator = allocated<netsnmp_iterator_info>();
  iterator->get_first_data_point = functions.getFirstDataPoint;
  iterator->get_next_data_point = functions.getNextDataPoint;
  iterator->make_data_context = functions.makeDataContext;
  iterator->free_data_context = functions.freeDataContext;
  iterator->free_loop_context_at_end = functions.freeLoopContextAtEnd;
  iterator->myvoid = cache.get();
  iterator->flags = NETSNMP_HANDLER_OWNS_IINFO | (isSorted_ ? NETSNMP_ITERATOR_FLAG_SORTED : 0);
  iterator->table_reginfo = table;
  return iterator;
}

// Injects the serialize handler in front of net-snmp's own (bulk_to_next, table, table_iterator). It passes one request
// at a time, so that the hint belongs to the request being served. A sorted table gets its handler between them. The
// gate comes first.
void MibTable::injectHandlers(netsnmp_handler_registration* registration, const Kel::String& context) const {
  for (auto* piece : registeredPieces(registration, context)) {
    const bool hasHandler = !isSorted_ || SortedHandler::inject(piece, *this);
    KEL_ASSERT(hasHandler);
    const int injected = netsnmp_inject_handler(piece, netsnmp_get_serialize_handler());
    KEL_ASSERT_TEXT(injected == 0, "injected == (0)");
    const bool hasGate = injectFactsGate(piece, description_.module.isFedByPublisher());
    KEL_ASSERT(hasGate);
  }
}

// Some modules register their tables column by column, and net-snmp prefers the longer identifier over the priority.
// So a table that takes precedence registers its columns, too.
void MibTable::coverColumns(netsnmp_handler_registration* registration, const Kel::String& context) const {
  auto& module = description_.module;
  module.forgetRegistration(context, registration);
  for (const auto& column : columns_) {
    if (auto* const cover = coverColumn(registration, column.number)) {
      module.addRegistration(context, cover);
    } else {
      QTRACE(trace(), 0) << "initialize_table_" << name() << ": the agent refuses column " << column.number
                         << " for us; does another module take precedence too?";
    }
  }
  module.addRegistration(context, registration);  // unregistered after its covers
}

}  // namespace Modules
