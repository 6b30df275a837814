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
// start. A hint only saves steps: a walk from the first row gives the same answer. SeekGate.h saves more.
//
// Lifetime: a loop context and a data context are each a walker on the heap, which the helper owns until it calls the
// free function. Only make_data_context makes a data context: the helper would free an earlier one once for every
// request that the row does not match. The helper owns `chain` (net-snmp's put_index_data), the variables for the index
// of a row.

#include <memory>

#include "modules/frame/Index.h"
#include "modules/frame/IndexFloor.h"
#include "modules/frame/MibTable.h"
#include "modules/frame/SeekGate.h"
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
      const Kel::Ptr<const Cache> cache(cacheOf(iterator));
      if constexpr (isSeeking) {
        auto start = startOf(cache, hint);
        auto* const walker = new W(std::move(start.walker));
        *loopContext = walker;
        if (gaveUp(*walker)) SeekGate::walkGaveUp();
        QTRACE(trace(), 2) << name() << "_get_first_data_point - allocated new loop context " << walker
                           << ", hintMatched=" << start.hintMatched;
        return start.isAnswerable ? rowFrom(*walker, chain) : noRow;
      } else {
        auto* const walker = new W(cache);
        *loopContext = walker;
        QTRACE(trace(), 2) << name() << "_get_first_data_point - allocated new loop context " << walker;
        return rowFrom(*walker, chain);
      }
    });
  }

  netsnmp_variable_list* getNextDataPoint(void** loopContext, void** dataContext,
                                          netsnmp_variable_list* chain) const noexcept {
    return Snmp::atCBoundary(trace(), name(), noRow, [&] {
      auto* const walker = static_cast<W*>(*loopContext);
      if (walker == nullptr || walker->isAtEnd()) {
        QTRACE(trace(), 2) << name() << "_get_next_data_point - at end of loop context " << *loopContext;
        return noRow;
      }
      QTRACE(trace(), 2) << name() << "_get_next_data_point - advancing loop context " << *loopContext
                         << " ; data context " << *dataContext;
      walker->advance();
      if (gaveUp(*walker)) SeekGate::walkGaveUp();
      auto* const row = rowFrom(*walker, chain);
      if (*dataContext != nullptr) *static_cast<W*>(*dataContext) = *walker;
      return row;
    });
  }

  // Writes the index of the loop context's row into the chain. Returns null at the end.
  netsnmp_variable_list* iterationHelper(const void* loopContext, netsnmp_variable_list* chain) const noexcept {
    return Snmp::atCBoundary(trace(), name(), noRow, [&] {
      const auto* walker = static_cast<const W*>(loopContext);
      if (walker == nullptr || walker->isAtEnd()) {
        QTRACE(trace(), 2) << name() << "IterationHelper - iterator is at end";
        return noRow;
      }
      decltype(auto) key = walker->key();
      index_.forEach([&](const auto& component) {
        if (!trace().enabled(2)) return;
        Kel::TraceLine line(trace(), 2);
        line.stream() << name() << "IterationHelper - iterator has another value: " << component.attribute << "=";
        printTraced(line.stream(), component.fromKey(key));
      });
      if (!index_.write(key, chain, indexRoom()))
        throw Kel::RangeException("the key of a row does not fit its index");
      return chain;
    });
  }

  void* makeDataContext(const void* loopContext) const noexcept {
    return Snmp::atCBoundary(trace(), name(), static_cast<void*>(nullptr), [&]() -> void* {
      if (loopContext == nullptr) return nullptr;
      auto walker = std::make_unique<W>(*static_cast<const W*>(loopContext));
      QTRACE(trace(), 2) << name() << "_make_data_context - allocated data context " << walker.get();
      return walker.release();
    });
  }

  void freeDataContext(void* dataContext) const noexcept { freeWalker("_free_data_context ", dataContext); }
  void freeLoopContextAtEnd(void* loopContext) const noexcept {
    freeWalker("_free_loop_context_at_end ", loopContext);
  }

 private:
  static constexpr netsnmp_variable_list* noRow = nullptr;

  static std::vector<IndexObject> indexObjects(const TableIndex& index) {
    std::vector<IndexObject> objects;
    index.forEach([&](const auto& component) { objects.push_back({component.object, component.asnType}); });
    return objects;
  }

  static bool gaveUp([[maybe_unused]] const W& walker) {
    if constexpr (requires { walker.gaveUp(); }) return walker.gaveUp();
    return false;
  }

  static const Cache* cacheOf(const netsnmp_iterator_info* iterator) {
    return static_cast<const Cache*>(static_cast<Kel::Entity*>(iterator->myvoid));
  }

  // Advances the walker to the first row from here on whose index can be written; null would end the table before the
  // later rows. Returns null at the end.
  netsnmp_variable_list* rowFrom(W& walker, netsnmp_variable_list* chain) const {
    auto* row = iterationHelper(&walker, chain);
    while (row == nullptr && !walker.isAtEnd()) {
      Snmp::atCBoundary(trace(), name(), [&] {
        if (!trace().enabled(0)) return;
        Kel::TraceLine line(trace(), 0);
        line.stream() << name() << ": the index of the row ";
        printTraced(line.stream(), walker.key());
        line.stream() << " cannot be written; the row is not served";
      });
      walker.advance();
      row = iterationHelper(&walker, chain);
    }
    return row;
  }

  void freeWalker(const char* function, void* walker) const noexcept {
    Snmp::atCBoundary(trace(), name(), [&] {
      QTRACE(trace(), 2) << name() << function << walker;
      delete static_cast<W*>(walker);
    });
  }

  const void* row(const void* dataContext) const override {
    const auto* walker = static_cast<const W*>(dataContext);
    return walker->isAtEnd() ? nullptr : static_cast<const void*>(&static_cast<const Row&>(walker->row()));
  }

  void printKey(std::ostream& out, const void* dataContext) const override {
    printTraced(out, static_cast<const W*>(dataContext)->key());
  }

  // The start of a walk.
  struct Start {
    W walker;
    bool isHinted = false;     // at the hint; otherwise on the first row of the table
    bool hintMatched = false;  // on the hinted row itself
    bool isAnswerable = true;  // this row or a later one may answer the request
  };

  Start startOf(const Kel::Ptr<const Cache>& cache, const netsnmp_table_request_info* hint) const {
    const auto asked = SeekGate::asked(hint);
    if (!asked) return hintedStart(cache, hint);
    if constexpr (requires(const Key& key) { W::behind(cache, key); }) {
      if (auto start = startBehind(cache, *asked)) return std::move(*start);
    }
    auto start = hintedStart(cache, hint);
    narrow(start, cache, *asked);
    return start;
  }

  // upper_bound of a complete index, for a GETNEXT. None if hintedStart must search or trace instead.
  std::optional<Start> startBehind(const Kel::Ptr<const Cache>& cache, const SeekGate::Asked& asked) const {
    if (!asked.isForNext || trace().enabled(2)) return std::nullopt;
    try {
      IndexFloor floor(asked.index);
      const Key key = floorKey(floor);
      if (!floor.isExact()) return std::nullopt;
      W walker = W::behind(cache, key);
      if (walker.isAtEnd() && !gaveUp(walker)) return std::nullopt;
      return Start{std::move(walker), true};
    } catch (const Kel::RangeException&) {
      return std::nullopt;  // hintedStart traces what is wrong with the hint
    }
  }

  // lower_bound(hint); the first row of the table if there is none, or the hint is not a key.
  Start hintedStart(const Kel::Ptr<const Cache>& cache, const netsnmp_table_request_info* hint) const {
    if (const auto parts = hintParts(hint)) {
      try {
        const Key key = index_.key(*parts);
        W walker(cache, key);
        const bool hintMatched = !walker.isAtEnd() && walker.key() == key;
        if (walker.isAtEnd() || (!hintMatched && absentKeyIsTraced())) traceNotFound(key);
        if (!walker.isAtEnd() || gaveUp(walker)) return {std::move(walker), true, hintMatched};
      } catch (const Kel::RangeException& error) {
        if (!SeekGate::isAskedAgain()) {
          QTRACE(trace(), 0) << "Bad hint for " << name() << ": " << index_.keyType()
                             << " ctor threw exception: " << error.what();
        }
      }
    }
    return {W(cache)};
  }

  // Moves the start to the first row that can answer, or marks it as not answerable (SeekGate.h).
  void narrow(Start& start, const Kel::Ptr<const Cache>& cache, const SeekGate::Asked& asked) const {
    if (asked.index.empty()) return;  // the first row answers
    try {
      IndexFloor floor(asked.index);
      const Key key = floorKey(floor);
      if (!asked.isForNext) {
        start.isAnswerable = start.hintMatched && floor.isExact();
      } else if (!start.isHinted || floor.isCapped()) {
        W walker = walkerFrom(cache, key);
        start.isAnswerable = !walker.isAtEnd();
        if (start.isAnswerable || gaveUp(walker)) start.walker = std::move(walker);
      } else if (start.hintMatched && floor.isExact()) {
        // The row of the index itself does not answer a GETNEXT; visiting it would cost the helper a copy of its index.
        start.walker.advance();
        start.isAnswerable = !start.walker.isAtEnd();
      }
    } catch (const Kel::RangeException&) {
      // The sub-identifiers form no key: the walk itself finds the answer.
    }
  }

  Key floorKey(IndexFloor& floor) const {
    const auto parts = index_.parts(nullptr, [&floor](const auto& component, auto*, auto& part, std::size_t) {
      try {
        part = component.fromAsn(floor.next(component.asnType));
      } catch (const Kel::RangeException&) {
        part = component.fromAsn(floor.highestInstead());
      }
      return true;
    });
    return index_.key(*parts);
  }

  static W walkerFrom(const Kel::Ptr<const Cache>& cache, const Key& key) {
    if constexpr (requires { W::passingOverNone(cache, key); }) {
      return W::passingOverNone(cache, key);
    } else {
      return W(cache, key);
    }
  }

  // The components of a hint; none unless it is a complete index of this table.
  std::optional<Parts> hintParts(const netsnmp_table_request_info* hint) const {
    const unsigned count = hint != nullptr ? hint->number_indexes : 0;
    QTRACE(trace(), 2) << name() << "_get_first_data_point - *hint = " << static_cast<const void*>(hint)
                       << ", number_indexes = " << count;
    if (hint == nullptr) return std::nullopt;
    if (count != TableIndex::size) {
      if (miscountedHintIsTraced()) traceNeeded(count);
      return std::nullopt;
    }
    return index_.parts(hint->indexes,
                        [this](const auto& component, auto* value, auto& part, std::size_t position) {
                          if (hintPart(component, value, part)) return true;
                          traceNeeded(position);
                          return false;
                        });
  }

  void traceNotFound(const Key& key) const {
    if (!trace().enabled(2)) return;
    Kel::TraceLine line(trace(), 2);
    line.stream() << name() << "_get_first_data_point - key '";
    printTraced(line.stream(), key);
    line.stream() << "' not found in table";
  }

  void traceNeeded(std::size_t found) const {
    QTRACE(trace(), 2) << name() << "_get_first_data_point - needed " << TableIndex::size << " components, "
                       << "found only " << found;
  }

  // Reads one component of a hint. Returns false if the value is missing, or of another type or range.
  template <class Part>
  bool hintPart(const IndexComponent<typename TableIndex::Key, Part>& component, netsnmp_variable_list* value,
                Part& part) const {
    if (value == nullptr) return false;
    if (value->type != component.asnType) {
      if (!SeekGate::isAskedAgain()) {
        QTRACE(trace(), 0) << "hint for " << component.object << " has incorrect type! Expecting "
                           << int{component.asnType} << " but got " << int{value->type};
      }
      return false;
    }
    try {
      part = component.fromAsn(value);
    } catch (const Kel::RangeException& error) {
      if (!SeekGate::isAskedAgain()) {
        QTRACE(trace(), 0) << "hint for index " << component.object << " of " << name() << " is out of range! "
                           << error.what();
      }
      return false;
    }
    if (trace().enabled(2)) {
      Kel::TraceLine line(trace(), 2);
      line.stream() << "hint component " << component.object << " is '";
      printTraced(line.stream(), part);
      line.stream() << "'";
    }
    return true;
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
