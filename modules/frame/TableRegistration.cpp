// Registration of the tables.

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kel/Errors.h"
#include "modules/frame/ColumnCover.h"
#include "modules/frame/HeldEntity.h"
#include "modules/frame/SeekGate.h"
#include "modules/frame/TableDescription.h"
#include "snmp/HandlerRegistration.h"
#include "snmp/SnmpUtil.h"

namespace Modules {

namespace {

// Zeroed, and of the allocator with which net-snmp frees it.
template <class Record>
Record* allocated(std::size_t extraBytes = 0) {
  auto* const record = static_cast<Record*>(std::calloc(1, sizeof(Record) + extraBytes));
  if (record == nullptr) throw std::bad_alloc();
  return record;
}

// The registration, and the copies of it that net-snmp has made where its tree is divided inside the table, because
// somebody has, or had, an object there. Copies that it makes from here on have the handlers of what they are
// copied from.
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

}  // namespace

Table::Table(TableDescription description, std::vector<IndexObject> index, std::vector<ColumnBase> columns,
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

void Table::initialize(const TableFunctions& functions, const Snmp::Config::PtrConst& config,
                       const Kel::String& context) const noexcept {
  auto& module = description_.module;
  const Kel::String function = fmt::format("initialize_table_{}", name());
  if (description_.group != nullptr && SnmpUtil::objectsDisabled(config, description_.group)) {
    std::printf("%s is a noop because %s are disabled.\n", function.c_str(), description_.group);
    std::fflush(stdout);
    return;
  }
  module.traceInitializing(function.c_str(), description_.identifier, context);

  auto* const registration =
      module.registration(name(), functions.handler, description_.identifier, description_.modes, context);
  KEL_ASSERT_TEXT(registration != nullptr, fmt::format("reg_{}", name()).c_str());
  if (!description_.source.serves(context)) {
    netsnmp_handler_registration_free(registration);
    QTRACE(trace(), 2) << function << " in context \"" << context << "\" varnixPathWithContext not specified ";
    return;
  }
  module.registrationAdd(context, registration);
  const auto cache = entityAt(description_.source, context,
                              {.object = fmt::format("table {}", name()),
                               .wrongTypeEnding = ".",
                               .missingAssertion = "e",
                               .wrongTypeAssertion = "ptr"});
  heldEntityIs(registration, cache);

  auto* const table = tableRegistration(context);
  auto* const iterator = iteratorRecord(functions, cache, table);
  module.columnInfoAdd(context, table->valid_columns);
  const int result = netsnmp_register_table_iterator(registration, iterator);
  KEL_ASSERT(result == 0);
  injectHandlers(registration, context);
  // Other modules have their objects in the default context.
  if (Snmp::takesPrecedence() && context.empty()) coverColumns(registration, context);
  QTRACE(trace(), 8) << "Initialized table " << name() << " in context \"" << context << "\"";
}

netsnmp_table_registration_info* Table::tableRegistration(const Kel::String& context) const {
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

// A list, not a range. It lies behind its record, in one piece of memory, as only the record is freed.
netsnmp_column_info* Table::columnInfo() const {
  auto* const info = allocated<netsnmp_column_info>(columns_.size() * sizeof(unsigned));
  auto* const list = reinterpret_cast<unsigned*>(info + 1);
  for (std::size_t i = 0; i < columns_.size(); ++i) list[i] = columns_[i].number;
  info->isRange = 0;
  info->list_count = static_cast<char>(columns_.size());
  info->details.list = list;
  return info;
}

netsnmp_iterator_info* Table::iteratorRecord(const TableFunctions& functions, const Kel::Ptr<Kel::Entity>& cache,
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

// Puts a handler in front of those that net-snmp gave the registered table (bulk_to_next, table, table_iterator): one
// request at a time, so that the hint is of the request that is served. A table that can start at one has a seek gate
// too.
void Table::injectHandlers(netsnmp_handler_registration* registration, const Kel::String& context) const {
  for (auto* piece : registeredPieces(registration, context)) {
    const int injected = netsnmp_inject_handler(piece, netsnmp_get_serialize_handler());
    KEL_ASSERT_TEXT(injected == 0, "injected == (0)");
    const bool isGated = !isSorted_ || SeekGate::inject(piece);
    KEL_ASSERT(isGated);
  }
}

void Table::coverColumns(netsnmp_handler_registration* registration, const Kel::String& context) const {
  auto& module = description_.module;
  module.registrationForget(context, registration);
  for (const auto& column : columns_) {
    if (auto* const cover = coverColumn(registration, column.number)) {
      module.registrationAdd(context, cover);
    } else {
      QTRACE(trace(), 0) << "initialize_table_" << name() << ": the agent refuses column " << column.number
                         << " for us; does another module take precedence too?";
    }
  }
  module.registrationAdd(context, registration);  // behind its covers
}

}  // namespace Modules
