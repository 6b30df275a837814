#pragma once
// The part of a table that does not depend on the type of its rows: registration in a context, and the values of rows.
// IteratorTable derives from it. Thread: the agent's.

#include <iosfwd>
#include <memory>
#include <span>
#include <vector>

#include "modules/frame/Column.h"
#include "modules/frame/Module.h"
#include "modules/frame/ServedEntity.h"
#include "snmp/Config.h"

namespace Modules {

struct TableDescription {
  Module& module;
  const char* name;
  std::vector<oid> identifier;  // of the table; its rows are below identifier.1
  int modes;                    // as netsnmp_create_handler_registration takes them
  EntitySource source;          // of the cache
  // Whether a hint with too few or too many components is traced ("needed ... components"). Every walk begins with one.
  bool miscountedHintIsTraced = false;
  // Whether a hinted key without a row is traced ("key ... not found in table") even if a row with a higher key exists.
  // A key above every row is always traced.
  bool absentKeyIsTraced = false;
  // The object group that disables the table in the configuration; null: none.
  const char* group = nullptr;
  // Whether a value that cannot be encoded sets genErr on the first request of the batch, rather than on its own. The
  // statistics tables do so.
  bool firstRequestTakesGenErr = false;
  // Whether the values of a row are read from the store at the request, and not from memory.
  bool readsStore = false;
};

// The functions that net-snmp calls.
struct TableFunctions {
  Netsnmp_Node_Handler* handler;
  Netsnmp_First_Data_Point* getFirstDataPoint;
  Netsnmp_Next_Data_Point* getNextDataPoint;
  Netsnmp_Make_Data_Context* makeDataContext;
  Netsnmp_Free_Data_Context* freeDataContext;
  Netsnmp_Free_Loop_Context* freeLoopContextAtEnd;
};

// A component of a table's index.
struct IndexObject {
  const char* object;     // of the MIB
  unsigned char asnType;  // as registered
};

// A position among the rows of a table, without the type of the rows.
class RowCursor {
 public:
  virtual ~RowCursor() = default;

  virtual bool isAtEnd() const = 0;
  // Whether the search for the next row was given up: the cursor is at the end, but further rows may exist.
  virtual bool gaveUp() const = 0;

  // All following operations require: not at the end.
  virtual void advance() = 0;
  virtual const void* row() const = 0;
  // For traces.
  virtual void printKey(std::ostream& out) const = 0;
  virtual void traceRow() const = 0;
  // Writes the sub-identifiers of the row's index, and returns their number. 0 if they do not fit: the row is not
  // served, which is traced at level 0.
  virtual std::size_t writeIndex(std::span<oid> to) const = 0;

  // A cursor of its own on the same row.
  virtual std::unique_ptr<RowCursor> clone() const = 0;

 protected:
  RowCursor() = default;
  RowCursor(const RowCursor&) = default;
  RowCursor& operator=(const RowCursor&) = default;
};

class MibTable {
 public:
  static constexpr std::size_t maxColumns = 127;  // net-snmp counts them in a char

  MibTable(const MibTable&) = delete;
  MibTable& operator=(const MibTable&) = delete;

  const char* name() const { return description_.name; }
  const Kel::TraceHandle& trace() const { return description_.module.trace(); }

  // Registers the table in the context. If the table is not served there, traces that at level 2; if its group is
  // disabled, prints that on standard output.
  // Aborts if the cache is missing or of another type, if net-snmp refuses the table, and on any exception. Otherwise
  // the table would be listed but not registered, and leaving the context would unregister another module's object.
  void initialize(const TableFunctions& functions, const Snmp::Config::PtrConst& config,
                  const Kel::String& context) const noexcept;

  // Answers requests. Requires: the iterator helper has chosen the rows and turned GETNEXT into GET. Returns an SNMP
  // error status.
  int handle(const netsnmp_agent_request_info* requestInfo, netsnmp_request_info* requests) const noexcept;

  // For SortedHandler: the number of the first column at or above `number` (0 if there is none), and of the last one.
  unsigned columnAtOrAbove(oid number) const;
  unsigned lastColumn() const { return columns_.back().number; }
  // Whether the values of a row are read from the store at the request.
  bool readsStore() const { return description_.readsStore; }

  // For SortedHandler: searches `cache`, an entity of the table's source, for `index`, the sub-identifiers after the
  // column. Returns a cursor at or before the first row that may answer: the row of `index` (GET), or the first row
  // above it (`isForNext`). Null if no row can have this index (GET). Traces `index` as the iterator helper's hint.
  // Throws the exceptions of the walker.
  virtual std::unique_ptr<RowCursor> find(const Kel::Entity* cache, std::span<const oid> index,
                                          bool isForNext) const = 0;

  // For SortedHandler: whether net-snmp's table helper would parse the sub-identifiers as a complete index.
  virtual bool isWholeIndex(std::span<const oid> index) const = 0;

  enum class Outcome { value, noInstance, failure };

  // Sets the variable to the value of a column in the cursor's row. Requires: the column exists; the cursor is not at
  // the end.
  Outcome setValue(unsigned column, const RowCursor& cursor, netsnmp_variable_list* variable) const;
  // Refuses the SET of a column.
  void refuseSet(unsigned column, netsnmp_request_info* request) const;
  // Write the traces of the request loop: that it is entered, and that a request has no row.
  void traceRequest(int mode) const;
  void traceNoRow() const;

 protected:
  // Requires (aborts): 1 to maxColumns columns, their numbers ascending.
  // `isSorted`: walks visit the rows in index order and can start at a hint, so SortedHandler answers.
  MibTable(TableDescription description, std::vector<IndexObject> index, std::vector<ColumnBase> columns,
           bool isSorted);
  ~MibTable() = default;

  bool miscountedHintIsTraced() const { return description_.miscountedHintIsTraced; }
  bool absentKeyIsTraced() const { return description_.absentKeyIsTraced; }
  // The sub-identifiers that an index may take: an OID less the table, the entry and the column.
  std::size_t indexRoom() const { return MAX_OID_LEN - (description_.identifier.size() + 2); }

 private:
  void registerTable(const TableFunctions& functions, const Kel::Ptr<Kel::Entity>& cache,
                     const Kel::String& context) const;
  netsnmp_table_registration_info* tableRegistration(const Kel::String& context) const;
  netsnmp_iterator_info* iteratorRecord(const TableFunctions& functions, const Kel::Ptr<Kel::Entity>& cache,
                                        netsnmp_table_registration_info* table) const;
  netsnmp_column_info* columnInfo() const;
  void injectHandlers(netsnmp_handler_registration* registration, const Kel::String& context) const;
  void coverColumns(netsnmp_handler_registration* registration, const Kel::String& context) const;

  int get(netsnmp_request_info* requests) const;
  int refuseSets(netsnmp_request_info* requests) const;
  bool isProcessed(const netsnmp_request_info* request) const;
  const ColumnBase* column(unsigned number) const;

  const TableDescription description_;
  const std::vector<IndexObject> index_;
  const std::vector<ColumnBase> columns_;  // by number, ascending
  const bool isSorted_;
};

}  // namespace Modules
