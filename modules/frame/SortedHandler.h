#pragma once
// Answers the requests to a table whose rows are in index order, without net-snmp's iterator helper. A GET, a GETNEXT
// and all repetitions of a GETBULK need one search in the cache; then one cursor steps from row to row.
//
// In a registration's chain of handlers it is behind net-snmp's serialize handler, which passes one request at a time,
// and in front of the helpers bulk_to_next, table and table_iterator. If net-snmp has divided a registration, each of
// the pieces has a handler.
//
// - GET, GETNEXT, GETBULK: answered from the cursor. Rows without an instance of the object (Column.h) are skipped.
// - GETBULK: one call fills all repetitions if the message has one variable binding or room for the longest names of
//   all its bindings; otherwise one call fills one repetition, as in net-snmp. net-snmp's access control checks only
//   some variables of a GETBULK, so the handler checks each row where a part of the column is out of view. A column
//   that is wholly out of view is skipped without a search. Bindings of a message that ask for several columns from the
//   same row on share one search and its rows.
// - SET of a name with a complete index: refused with notWritable, without a search.
// - Everything else goes to the helpers: any other SET, a GET of a name that is not an instance of a column, a GETNEXT
//   after the last column, and all requests after setEnabled(false).
//
// Guarantees: the same answers as the helpers, which tests compare by disabling the handler. docs/decisions/0026 lists
// the exceptions, such as a GETBULK under a view, and gives the reason for the handler: the helpers' time and memory.
// Traces: those of MibTable, once for each request. Bindings that share rows trace the hint of the first one only.
// Thread: the agent's.

#include "modules/frame/NetSnmp.h"

namespace Modules {

class MibTable;

class SortedHandler {
 public:
  // The number of rows without an instance that all requests of one message may visit together, some 10 ms of work. At
  // the last of them, and at each further one, the request is answered with genErr, so that no message blocks the agent.
  // 10,000 interfaces may lack twenty columns. A row whose values are read from the store counts as `rowsForStoredRow`.
  static constexpr unsigned maxPassedOver = 200'000;
  static constexpr unsigned rowsForStoredRow = 20;

  // Puts the handler in front of the registration's handlers. Returns false if net-snmp refuses it or memory is short.
  // Lifetime: `table` must outlive the registration.
  static bool inject(netsnmp_handler_registration* registration, const MibTable& table);

  // Enables or disables all handlers of the process; they are enabled at first. A disabled handler passes every request
  // to the helpers.
  static void setEnabled(bool enabled);
};

}  // namespace Modules
