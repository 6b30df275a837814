#pragma once
// The seek gate: a handler in front of net-snmp's table-iterator helper, for every sorted table. It changes no answer.
//
// Why: the helper starts at the hint, and without a whole one at the first row; it stops at the row that answers,
// and without one at the last. So half an index, an index past the last row, and a GET of a row that is not there
// each walk the table, which takes seconds on a million rows. Where a walk starts, and when there is nothing to walk,
// is for the table to say; but the helper does not tell it what is wanted.
//
// The gate does: while the helper, or the gate in its place, is at work on a request, `asked` says what kind it is of.
// The table's walk then
// - starts at the first row that can answer, when the hint has no row at or behind it (half an index, an index that
//   no row can have);
// - has no row, when none can answer. The helper goes on to the next column, or says that there is no such instance.
// All of this happens inside the call that gives the first row, so nothing can change in between.
//
// A GETNEXT whose first row answers it, which is nearly every one, the gate answers itself: it calls the table's
// functions as the helper would, and the handler behind the helper. The helper copies the index of a row three times, a
// kilobyte a component, and that was more than finding the row.
//
// Traces are those of the table's frame, those of bad hints included; only the rows that are passed by are not told.
// One registration in several pieces has a gate in each. Requests come one by one, from the serialize handler.

#include <optional>
#include <span>

#include "modules/frame/NetSnmp.h"

namespace Modules {

class SeekGate {
 public:
  struct Asked {
    std::span<const oid> index;  // the sub-identifiers behind the column; any number of them
    bool isForNext;              // a row after the index is wanted; otherwise the row of the index
  };

  // What the helper asks with this hint. Nothing when no gate saw it: the walk is then as the hint alone says.
  static std::optional<Asked> asked(const netsnmp_table_request_info* hint);

  // Whether the table is asked for the second time in a request, by the helper after the gate: what is wrong with a hint
  // has been traced then.
  static bool isAskedAgain();
  // The walk of the request that is at work gave up: a row after the one that was asked from may be there or not. A
  // GETNEXT is answered with genErr then.
  static void walkGaveUp();

  // Puts a gate in front of the registration's iterator helper. False when net-snmp refuses.
  static bool inject(netsnmp_handler_registration* registration);

  // For comparing: gates that are not on let everything pass as it is. On at first.
  static void isOnIs(bool on);
};

}  // namespace Modules
