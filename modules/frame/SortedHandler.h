#pragma once
// The handler of a sorted table: answers GET, GETNEXT and GETBULK from one cursor, by one search and then steps. It is in
// front of net-snmp's helpers (bulk_to_next, table, table_iterator) and behind serialize, which passes one request at a
// time. It leaves to them what it does not answer: SET, and names that are not below a column. They must give the same
// answers for every request; setEnabled(false) makes them, for comparisons.
//
// Why: the helpers copy the index variables of a row three times, a kilobyte for each component, and for every repetition
// of a GETBULK the agent searches the row again. For half an index, an index past the last row and a GET of a missing
// row, the iterator helper walks the whole table.
//
// GETBULK: all repetitions are filled in one call where the whole column is in the view of the request. Otherwise one is
// filled in a call, as net-snmp does, since it checks the access to just the next one. A column that is wholly out of
// view is passed over at once. Requests of a message that ask from the same row for different columns share the rows:
// they are searched and their index is made once.
//
// Rows without an instance of the object (Column.h) are passed over, at most `maxPassedOver` of them in a message.
//
// Traces: those of the table's frame, once per request; for rows that are shared, the hint only once. Thread: the agent's. If net-snmp has divided a registration,
// each piece has a handler.

#include "modules/frame/NetSnmp.h"

namespace Modules {

class MibTable;

class SortedHandler {
 public:
  // When the requests of one message have passed over so many rows, its further GETNEXTs that need to are answered with
  // genErr, so that no message blocks the agent.
  static constexpr unsigned maxPassedOver = 10000;

  // Puts the handler in front of the registration's handlers. Returns false if net-snmp refuses. Lifetime: the table
  // must outlive the registration.
  static bool inject(netsnmp_handler_registration* registration, const MibTable& table);

  // Disabled handlers pass every request on. Enabled at first.
  static void setEnabled(bool enabled);
};

}  // namespace Modules
