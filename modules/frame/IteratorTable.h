#pragma once
// A table as one declaration, and the functions that net-snmp's table-iterator helper calls for it.
//
//   const auto exampleTable = Modules::makeIteratorTable<Modules::OrderedWalker<ExampleRows>>(
//       {.module = module, .name = "exampleTable", .identifier = {...}, .modes = HANDLER_CAN_RONLY, .source = ...},
//       Modules::Index("Example::Key", makeKey, Modules::integerIndex<Example::Key>(...)),
//       {Modules::column<Example::Row>(...), ...});
//   ITERATOR_TABLE(exampleTable, exampleTable)
//
// The helper asks for the first row of a walk and for each next one. It keeps the requested row in a data context, from
// which the handler reads the column. For a sorted table it passes the request itself as a hint to where the walk may
// start. A hint only saves steps: a walk from the first row gives the same answer. SortedHandler.h answers most
// requests to a sorted table without the helper.
//
// Lifetime: a loop context and a data context are each a RowCursor on the heap, which the helper owns until it calls
// the free function. Only make_data_context may allocate a data context. If getFirstDataPoint or getNextDataPoint did,
// the helper would free it once for each request that the row does not match. The helper owns `chain` (net-snmp's
// put_index_data), the variables for the index of a row.

#include <memory>

#include "modules/frame/Index.h"
#include "modules/frame/IndexFloor.h"
#include "modules/frame/MibTable.h"
#include "modules/frame/Walker.h"
#include "snmp/CBoundary.h"

namespace Modules {

// Prints a value in a trace: enumerations by name or number, other values by their own operator.
template <class Value>
void printTraced(std::ostream& out, const Value& value) {
  if constexpr (requires { out << value; }) {
    out << value;
  } else {
    out << Kel::print(value);
  }
}

template <class W, class TableIndex>
class IteratorTable final : public MibTable {
  static_assert(Walker<W> && std::convertible_to<typename TableIndex::Key, typename W::Key>);
  static constexpr bool isSeeking = SeekingWalker<W>;

 public:
  using Cache = typename W::Cache;
  using Row = typename W::Row;
  using Key = typename W::Key;
  using Parts = typename TableIndex::PartsTuple;

  IteratorTable(TableDescription description, TableIndex index, const std::vector<Column<Row>>& columns)
      : MibTable(std::move(description), indexObjects(index), {columns.begin(), columns.end()}, isSeeking),
        index_(std::move(index)) {}

  netsnmp_variable_list* getFirstDataPoint(void** loopContext, netsnmp_variable_list* chain,
                                           const netsnmp_iterator_info* iterator) const noexcept {
    const auto* hint = static_cast<const netsnmp_table_request_info*>(*loopContext);
    // The helper would free the hint as a loop context.
    *loopContext = nullptr;
    return Snmp::atCBoundary(trace(), name(), noRow, [&] {
      const Kel::Ptr<const Cache> cache(static_cast<const Cache*>(static_cast<Kel::Entity*>(iterator->myvoid)));
      auto cursor = isSeeking ? hintedStart(cache, hint) : opened(W(cache));
      auto* const row = rowFrom(*cursor, chain);
      *loopContext = cursor.release();
      return row;
    });
  }

  netsnmp_variable_list* getNextDataPoint(void** loopContext, void** dataContext,
                                          netsnmp_variable_list* chain) const noexcept {
    return Snmp::atCBoundary(trace(), name(), noRow, [&] {
      auto* const cursor = static_cast<Cursor*>(*loopContext);
      if (cursor == nullptr || cursor->isAtEnd()) {
        QTRACE(trace(), 2) << name() << "_get_next_data_point - at end of loop context " << *loopContext;
        return noRow;
      }
      QTRACE(trace(), 2) << name() << "_get_next_data_point - advancing loop context " << *loopContext
                         << " ; data context " << *dataContext;
      cursor->advance();
      auto* const row = rowFrom(*cursor, chain);
      if (*dataContext != nullptr) *static_cast<Cursor*>(*dataContext) = *cursor;
      return row;
    });
  }

  // Writes the index of the loop context's row into the chain. Returns null at the end.
  netsnmp_variable_list* iterationHelper(const void* loopContext, netsnmp_variable_list* chain) const noexcept {
    return Snmp::atCBoundary(trace(), name(), noRow, [&] {
      const auto* cursor = static_cast<const Cursor*>(loopContext);
      if (cursor == nullptr || cursor->isAtEnd()) {
        QTRACE(trace(), 2) << name() << "IterationHelper - iterator is at end";
        return noRow;
      }
      decltype(auto) key = cursor->walker().key();
      traceRow(key);
      if (!index_.write(key, chain, indexRoom()))
        throw Kel::RangeException("the key of a row does not fit its index");
      return chain;
    });
  }

  void* makeDataContext(const void* loopContext) const noexcept {
    return Snmp::atCBoundary(trace(), name(), static_cast<void*>(nullptr), [&]() -> void* {
      if (loopContext == nullptr) return nullptr;
      auto cursor = std::make_unique<Cursor>(*static_cast<const Cursor*>(loopContext));
      QTRACE(trace(), 2) << name() << "_make_data_context - allocated data context " << cursor.get();
      return cursor.release();
    });
  }

  void freeDataContext(void* dataContext) const noexcept { freeCursor("_free_data_context ", dataContext); }
  void freeLoopContextAtEnd(void* loopContext) const noexcept {
    freeCursor("_free_loop_context_at_end ", loopContext);
  }

 private:
  static constexpr netsnmp_variable_list* noRow = nullptr;

  class Cursor final : public RowCursor {
   public:
    Cursor(const IteratorTable& table, W walker) : table_(&table), walker_(std::move(walker)) {}

    const W& walker() const { return walker_; }

    bool isAtEnd() const override { return walker_.isAtEnd(); }
    bool gaveUp() const override {
      if constexpr (requires { walker_.gaveUp(); }) return walker_.gaveUp();
      return false;
    }
    void advance() override { walker_.advance(); }
    const void* row() const override { return &static_cast<const Row&>(walker_.row()); }
    void printKey(std::ostream& out) const override { printTraced(out, walker_.key()); }
    void traceRow() const override { table_->traceRow(walker_.key()); }
    std::unique_ptr<RowCursor> clone() const override { return std::make_unique<Cursor>(*this); }
    std::size_t writeIndex(std::span<oid> to) const override {
      decltype(auto) key = walker_.key();
      const std::size_t length = table_->index_.write(key, to.first(table_->indexRoom()));
      if (length == 0) table_->traceNotServed(key);
      return length;
    }

   private:
    const IteratorTable* table_;
    W walker_;
  };
  using CursorPtr = std::unique_ptr<Cursor>;

  static std::vector<IndexObject> indexObjects(const TableIndex& index) {
    std::vector<IndexObject> objects;
    index.forEach([&](const auto& component) { objects.push_back({component.object, component.asnType}); });
    return objects;
  }

  void traceRow(const Key& key) const {
    if (!trace().enabled(2)) return;
    index_.forEach([&](const auto& component) {
      Kel::TraceLine line(trace(), 2);
      line.stream() << name() << "IterationHelper - iterator has another value: " << component.attribute << "=";
      printTraced(line.stream(), component.fromKey(key));
    });
  }

  void traceNotServed(const Key& key) const {
    if (!trace().enabled(0)) return;
    Kel::TraceLine line(trace(), 0);
    line.stream() << name() << ": the index of the row ";
    printTraced(line.stream(), key);
    line.stream() << " cannot be written; the row is not served";
  }

  // Advances to the first row, from the cursor's on, whose index can be written. Returns null only at the end, since
  // the helper takes null for the end of the table.
  netsnmp_variable_list* rowFrom(Cursor& cursor, netsnmp_variable_list* chain) const {
    auto* row = iterationHelper(&cursor, chain);
    while (row == nullptr && !cursor.isAtEnd()) {
      traceNotServed(cursor.walker().key());
      cursor.advance();
      row = iterationHelper(&cursor, chain);
    }
    return row;
  }

  void freeCursor(const char* function, void* cursor) const noexcept {
    Snmp::atCBoundary(trace(), name(), [&] {
      QTRACE(trace(), 2) << name() << function << cursor;
      delete static_cast<Cursor*>(cursor);
    });
  }

  // A new loop context. `hintMatched` is traced for tables that take hints.
  CursorPtr opened(W walker, bool hintMatched = false) const {
    auto cursor = std::make_unique<Cursor>(*this, std::move(walker));
    if (trace().enabled(2)) {
      Kel::TraceLine line(trace(), 2);
      line.stream() << name() << "_get_first_data_point - allocated new loop context " << cursor.get();
      if (isSeeking) line.stream() << ", hintMatched=" << hintMatched;
    }
    return cursor;
  }

  // The helper's hint: lower_bound of its key. The first row of the table if there is none, or the hint is not a key.
  CursorPtr hintedStart(const Kel::Ptr<const Cache>& cache, const netsnmp_table_request_info* hint) const {
    if constexpr (isSeeking) {
      traceHint(hint, hint != nullptr ? hint->number_indexes : 0);
      if (const auto parts = hintParts(hint)) {
        try {
          const Key key = index_.key(*parts);
          W walker(cache, key);
          const bool hintMatched = traceMatch(walker, key);
          if (!walker.isAtEnd()) return opened(std::move(walker), hintMatched);
        } catch (const Kel::RangeException& error) {
          traceBadHint(error);
        }
      }
    }
    return opened(W(cache));
  }

  // The components of a hint; none unless it is a complete index of this table.
  std::optional<Parts> hintParts(const netsnmp_table_request_info* hint) const {
    if (hint == nullptr || !isWholeHint(hint->number_indexes)) return std::nullopt;
    return index_.parts(hint->indexes,
                        [this](const auto& component, auto* value, auto& part, std::size_t position) {
                          return this->hintPart(component, value, part, position);
                        });
  }

  // The key that the sub-identifiers of a request mean.
  struct Asked {
    // Of the nearest complete index (IndexFloor.h); none if its components form no key.
    std::optional<Key> key;
    bool isExact = false;  // the key has exactly these sub-identifiers
    bool isHint = false;   // the helper would have passed the key as a hint
  };

  // How many components of the index the table helper finds, and whether sub-identifiers are left.
  struct Count {
    std::size_t components = 0;
    bool hasMore = false;
  };

  Count count(std::span<const oid> index) const {
    Count count;
    IndexFloor floor(index);
    index_.forEach([&](const auto& component) {
      const bool hasMore = floor.hasMore();
      floor.next(component.asnType);
      if (hasMore && !floor.isCapped()) ++count.components;
    });
    count.hasMore = floor.hasMore();
    return count;
  }

  bool isWholeIndex(std::span<const oid> index) const override {
    const auto found = count(index);
    return found.components == TableIndex::size && !found.hasMore;
  }

  Asked askedKey(std::span<const oid> index) const {
    const std::size_t given = count(index).components;
    traceHint(index.data(), given);
    Asked asked;
    asked.isHint = isWholeHint(given);
    IndexFloor floor(index);
    const auto parts = index_.parts(nullptr, [&](const auto& component, auto*, auto& part, std::size_t position) {
      auto* const value = floor.next(component.asnType);
      if (asked.isHint) {
        asked.isHint = hintPart(component, value, part, position);
        if (asked.isHint) return true;
      }
      try {
        part = component.fromAsn(value);
      } catch (const Kel::RangeException&) {
        part = component.fromAsn(floor.highestInstead());
      }
      return true;
    });
    try {
      asked.key = index_.key(*parts);
      asked.isExact = floor.isExact();
    } catch (const Kel::RangeException& error) {
      if (asked.isHint) traceBadHint(error);
    }
    return asked;
  }

  std::unique_ptr<RowCursor> find(const Kel::Entity* entity, std::span<const oid> index,
                                  bool isForNext) const override {
    if constexpr (isSeeking) {
      const Kel::Ptr<const Cache> cache(static_cast<const Cache*>(entity));
      const auto asked = askedKey(index);
      if (!isForNext && !asked.isExact) return nullptr;  // no row has such an index
      if (!index.empty() && asked.key) {
        try {
          const bool hintMatched =
              asked.isHint && trace().enabled(2) && traceMatch(W(cache, *asked.key), *asked.key);
          return opened(isForNext ? above(cache, asked) : W(cache, *asked.key), hintMatched);
        } catch (const Kel::RangeException& error) {
          traceBadHint(error);
        }
      }
      return opened(W(cache));
    } else {
      return nullptr;
    }
  }

  // A walker at or before the first row above the requested index.
  static W above(const Kel::Ptr<const Cache>& cache, const Asked& asked) {
    const Key& key = *asked.key;
    constexpr bool mayPassOver = requires {
      W::passingOverNone(cache, key);
    };
    if constexpr (mayPassOver) {
      if (!asked.isHint) return W::passingOverNone(cache, key);
      W walker = asked.isExact ? W::behind(cache, key) : W(cache, key);
      return walker.isAtEnd() && !walker.gaveUp() ? W::passingOverNone(cache, key) : std::move(walker);
    } else {
      return W(cache, key);
    }
  }

  bool isWholeHint(std::size_t count) const {
    if (count == TableIndex::size) return true;
    if (miscountedHintIsTraced()) traceNeeded(count);
    return false;
  }

  void traceHint(const void* hint, std::size_t count) const {
    QTRACE(trace(), 2) << name() << "_get_first_data_point - *hint = " << hint << ", number_indexes = " << count;
  }

  // Whether the walker, at lower_bound(key), is on the row of the key.
  bool traceMatch(const W& walker, const Key& key) const {
    const bool isMatched = !walker.isAtEnd() && walker.key() == key;
    if (!trace().enabled(2) || !(walker.isAtEnd() || (!isMatched && absentKeyIsTraced()))) return isMatched;
    Kel::TraceLine line(trace(), 2);
    line.stream() << name() << "_get_first_data_point - key '";
    printTraced(line.stream(), key);
    line.stream() << "' not found in table";
    return isMatched;
  }

  void traceBadHint(const Kel::RangeException& error) const {
    QTRACE(trace(), 0) << "Bad hint for " << name() << ": " << index_.keyType()
                       << " ctor threw exception: " << error.what();
  }

  void traceNeeded(std::size_t found) const {
    QTRACE(trace(), 2) << name() << "_get_first_data_point - needed " << TableIndex::size << " components, "
                       << "found only " << found;
  }

  // Reads one component of a hint. Returns false if the value is missing, or of another type or range.
  template <class Part>
  bool hintPart(const IndexComponent<typename TableIndex::Key, Part>& component, netsnmp_variable_list* value,
                Part& part, std::size_t position) const {
    if (value != nullptr && value->type != component.asnType) {
      QTRACE(trace(), 0) << "hint for " << component.object << " has incorrect type! Expecting "
                         << int{component.asnType} << " but got " << int{value->type};
    } else if (value != nullptr) {
      try {
        part = component.fromAsn(value);
        if (trace().enabled(2)) {
          Kel::TraceLine line(trace(), 2);
          line.stream() << "hint component " << component.object << " is '";
          printTraced(line.stream(), part);
          line.stream() << "'";
        }
        return true;
      } catch (const Kel::RangeException& error) {
        QTRACE(trace(), 0) << "hint for index " << component.object << " of " << name() << " is out of range! "
                           << error.what();
      }
    }
    traceNeeded(position);
    return false;
  }

  const TableIndex index_;
};

template <class W, class TableIndex>
IteratorTable<W, TableIndex> makeIteratorTable(TableDescription description, TableIndex index,
                                               const std::vector<Column<typename W::Row>>& columns) {
  return {std::move(description), std::move(index), columns};
}

}  // namespace Modules

// Defines the functions of the IteratorTable `table`, and initialize_table_<T>, which registers it in a context. A
// macro, because each function has its own name, and C linkage where net-snmp calls it.
#define ITERATOR_TABLE(T, table)                                                                                \
  extern "C" {                                                                                                  \
  netsnmp_variable_list* T##_get_first_data_point(void** loopContext, void**, netsnmp_variable_list* chain,     \
                                                  netsnmp_iterator_info* iterator) {                            \
    QTRACE_ENTRY((table).trace(), iterator);                                                                    \
    return (table).getFirstDataPoint(loopContext, chain, iterator);                                             \
  }                                                                                                             \
  netsnmp_variable_list* T##_get_next_data_point(void** loopContext, void** dataContext,                        \
                                                 netsnmp_variable_list* chain, netsnmp_iterator_info*) {        \
    QTRACE_ENTRY((table).trace(), *loopContext);                                                                \
    return (table).getNextDataPoint(loopContext, dataContext, chain);                                           \
  }                                                                                                             \
  void* T##_make_data_context(void* loopContext, netsnmp_iterator_info*) {                                      \
    return (table).makeDataContext(loopContext);                                                                \
  }                                                                                                             \
  void T##_free_data_context(void* dataContext, netsnmp_iterator_info*) {                                       \
    (table).freeDataContext(dataContext);                                                                       \
  }                                                                                                             \
  void T##_free_loop_context_at_end(void* loopContext, netsnmp_iterator_info*) {                                \
    (table).freeLoopContextAtEnd(loopContext);                                                                  \
  }                                                                                                             \
  int T##_handler(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* requestInfo, \
                  netsnmp_request_info* requests) {                                                             \
    QTRACE_ENTRY((table).trace(), requests);                                                                    \
    return (table).handle(requestInfo, requests);                                                               \
  }                                                                                                             \
  }                                                                                                             \
  netsnmp_variable_list* T##IterationHelper(void* loopContext, netsnmp_variable_list* chain) {                  \
    return (table).iterationHelper(loopContext, chain);                                                         \
  }                                                                                                             \
  void initialize_table_##T(::Snmp::Config::PtrConst config, ::Kel::String context) {                           \
    (table).initialize({.handler = T##_handler,                                                                 \
                        .getFirstDataPoint = T##_get_first_data_point,                                          \
                        .getNextDataPoint = T##_get_next_data_point,                                            \
                        .makeDataContext = T##_make_data_context,                                               \
                        .freeDataContext = T##_free_data_context,                                               \
                        .freeLoopContextAtEnd = T##_free_loop_context_at_end},                                  \
                       config, context);                                                                        \
  }
