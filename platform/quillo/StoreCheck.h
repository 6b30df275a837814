#pragma once
// Reads a whole store through and compares everything that can be compared.

#include "quillo/Environment.h"

namespace Quillo {

// Every record's checksum, each table's count and digest, the journal against the tables, the list of free pages.
// `txn` is a read transaction. Pesk::CorruptionDetectedException names the first thing that is wrong.
void checkStore(Environment& env, MDB_txn* txn);

}  // namespace Quillo
