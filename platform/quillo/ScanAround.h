#pragma once
// Walks that leave out damaged records.

#include <functional>
#include <string>

#include "quillo/Snapshot.h"

namespace Quillo {

using VisitRecord = std::function<bool(const Scan& scan)>;
using VisitDamage = std::function<bool(const std::string& key, const Pesk::CorruptionDetectedException& damage)>;

// Visits the records of `table` in key order, from the first key that is not below `from` ("": the beginning). For a
// damaged record `damaged` is called in its place; finding out which one it is costs a few reads, and some thousand
// where the key itself is damaged. Either function ends the walk by returning false. True when the walk was not ended,
// but went to the end. Damage that leads the walk itself astray (a fault of the mapping, a damaged page) is thrown.
bool scanAround(const Snapshot& snapshot, TableId table, std::string from, const VisitRecord& visit,
                const VisitDamage& damaged);

// The least key above `key` that can be stored.
std::string keyAfter(std::string key);

// False when damage has made the whole view unreadable, not just a record.
bool isReadable(const Snapshot& snapshot);

}  // namespace Quillo
