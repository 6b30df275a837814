#pragma once
// The seek gate: a handler in front of net-snmp's table-iterator helper, for every sorted table. It makes requests
// cheaper without changing an answer.
//
// Why: the helper starts a walk at the hint, or at the first row if the hint is not a complete index. It stops at the
// row that answers, or at the last one. So half an index, an index past the last row, and a GET of a missing row would
// each walk the whole table, which takes seconds on a million rows. Only the table can choose the start, but the helper
// hides the kind of request.
//
// How: while a request is served, `asked` returns its kind to the table. The table's walk then
// - starts at the first row that can answer, if the hint has no row at or after it;
// - has no rows if none can answer: the helper continues with the next column, or answers noSuchInstance.
// Both happen inside the call that returns the first row, so nothing can change in between.
//
// The gate itself answers a GETNEXT if the first row is the answer, as it nearly always is. It calls the table's
// functions like the helper, and then the handler after the helper. This saves the helper's three copies of a row's
// index, a kilobyte for each component, which cost more than the search. Rows without an instance of the object
// (Column.h) are passed over in the same way, at most `maxPassedOver` of them in a message.
//
// Traces: those of the table's frame, once per request; rows that a walk skips are not traced.
// Thread: the agent's. The serialize handler passes one request at a time. If net-snmp has divided a registration, each
// piece has a gate.

#include <optional>
#include <span>

#include "modules/frame/NetSnmp.h"

namespace Modules {

class SeekGate {
 public:
  struct Asked {
    std::span<const oid> index;  // the sub-identifiers after the column, any number of them
    bool isForNext;              // GETNEXT: upper_bound of the index is wanted; otherwise the row of the index
  };

  // Returns the request that this hint belongs to. None if no gate saw the request; only the hint counts then.
  static std::optional<Asked> asked(const netsnmp_table_request_info* hint);

  // Whether the helper repeats a call that the gate has made for the same request. Faults of the hint are then already
  // traced.
  static bool isAskedAgain();
  // Records that the current request's walk gave up, so it is unknown whether a later row exists. A GETNEXT is then
  // answered with genErr.
  static void walkGaveUp();

  // When the requests of one message have passed over so many rows, its further GETNEXTs that need to are answered with
  // genErr, so that no message blocks the agent.
  static constexpr unsigned maxPassedOver = 10000;

  // Puts a gate in front of the registration's iterator helper. Returns false if net-snmp refuses.
  static bool inject(netsnmp_handler_registration* registration);

  // For comparisons: disabled gates pass every request on. Enabled at first.
  static void setEnabled(bool enabled);
};

}  // namespace Modules
