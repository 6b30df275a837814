#include "quillo/Snapshot.h"

namespace Quillo {
namespace {

using Pesk::CorruptionDetectedException;

bool scanMeets(const Snapshot& snapshot, TableId table, const std::string& bound, const std::string& what) {
  try {
    snapshot.scan(table, bound);
  } catch (const CorruptionDetectedException& damage) {
    return damage.what() == what;
  }
  return false;
}

// Finds the key of the damaged record at which a scan from `from` failed: the greatest lower bound whose scan fails
// there. Usually that is the key that was read. If the key itself is damaged, a binary search finds it byte by byte.
// nullopt when the scan failed for another reason than one record.
std::optional<std::string> damagedKey(const Snapshot& snapshot, TableId table, const std::string& from,
                                      const CorruptionDetectedException& damage) {
  const auto& found = damage.foundKey();
  if (found.empty() || !isReadable(snapshot)) return std::nullopt;
  const std::string what = damage.what();
  const auto isNotAbove = [&](const std::string& bound) {
    return bound <= from || scanMeets(snapshot, table, bound, what);
  };
  if (found >= from && found.size() <= maxKeyBytes && scanMeets(snapshot, table, found, what)) {
    const auto above = keyAfter(found);
    if (above.empty() || !scanMeets(snapshot, table, above, what)) return found;
  }
  std::string key;
  while (key.size() < maxKeyBytes && isNotAbove(key + '\0')) {
    unsigned low = 0;
    unsigned high = 256;
    while (high - low > 1) {
      const auto middle = (low + high) / 2;
      (isNotAbove(key + static_cast<char>(middle)) ? low : high) = middle;
    }
    key.push_back(static_cast<char>(low));
  }
  return key >= from && scanMeets(snapshot, table, key, what) ? std::optional(key) : std::nullopt;
}

}  // namespace

std::string keyAfter(std::string key) {
  if (key.size() < maxKeyBytes) return key + '\0';
  while (!key.empty() && key.back() == '\xff') key.pop_back();
  if (!key.empty()) key.back() = static_cast<char>(key.back() + 1);
  return key;
}

bool isReadable(const Snapshot& snapshot) {
  try {
    snapshot.tableState(TableId::varnix);
    return true;
  } catch (const CorruptionDetectedException&) {
    return false;
  }
}

bool scanAround(const Snapshot& snapshot, TableId table, std::string from, const VisitRecord& visit,
                const VisitDamage& damaged) {
  std::optional<Scan> scan;
  std::string last;  // the latest key visited since `from`
  for (;;) {
    try {
      if (scan) {
        scan->next();
      } else {
        scan.emplace(snapshot.scan(table, from));
      }
    } catch (const CorruptionDetectedException& damage) {
      if (scan) from = keyAfter(last);
      scan.reset();
      const auto key = damagedKey(snapshot, table, from, damage);
      if (!key) throw;
      if (!damaged(*key, damage)) return false;
      from = keyAfter(*key);
      if (from.empty()) return true;  // no greater key is possible
      continue;
    }
    if (!scan->valid()) return true;
    last.assign(scan->key());
    if (!visit(*scan)) return false;
  }
}

}  // namespace Quillo
