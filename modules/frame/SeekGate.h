#pragma once
// The seek gate: a handler in front of net-snmp's table-iterator helper, for every sorted table. It makes requests
// cheaper and changes no answer.
//
// Why: the helper starts a walk at the hint, or at the first row when the hint is no complete index, and stops at the
// row that answers, or at the last one. So half an index, an index past the last row, and a GET of a missing row would
// each walk the whole table, which takes seconds on a million rows. Only the table can choose the start, but the helper
// hides the kind of request from it.
//
// How: while a request is served, `asked` tells the table what kind of request it is. The table's walk then
// - starts at the first row that can answer, when the hint has no row at or after it;
// - has no row at all when none can answer: the helper goes on to the next column, or answers noSuchInstance.
// Both happen inside the call that gives the first row, so nothing can change in between.
//
// The gate itself answers a GETNEXT that the first row answers, as nearly all are: it calls the table's functions as
// the helper would, and the handler behind the helper. The helper copies the index of a row three times, a kilobyte a
// component, which costs more than finding the row.
//
// Traces: those of the table's frame, once per request; rows that a walk passes over are not traced.
// Thread: the agent's. Requests come one by one, from the serialize handler. A registration that net-snmp has divided
// has a gate in each piece.

#include <optional>
#include <span>

#include "modules/frame/NetSnmp.h"

namespace Modules {

class SeekGate {
 public:
  struct Asked {
    std::span<const oid> index;  // the sub-identifiers after the column, any number of them
    bool isForNext;              // GETNEXT: the row after the index is wanted; otherwise the row of the index
  };

  // Returns what the helper asks with this hint. Nothing when no gate saw the request: the hint alone counts then.
  static std::optional<Asked> asked(const netsnmp_table_request_info* hint);

  // Whether the helper asks the table again in a request for which the gate has asked it. Faults of the hint have been
  // traced then.
  static bool isAskedAgain();
  // Records that the walk of the present request gave up: a later row may exist or not. A GETNEXT is then answered with
  // genErr.
  static void walkGaveUp();

  // Puts a gate in front of the registration's iterator helper. False when net-snmp refuses.
  static bool inject(netsnmp_handler_registration* registration);

  // For comparisons: disabled gates pass every request on. Enabled at first.
  static void setEnabled(bool enabled);
};

}  // namespace Modules
