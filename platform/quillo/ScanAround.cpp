#include "quillo/ScanAround.h"

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

// The key of the damaged record that a scan from `from` met with `what`: the greatest bound from which a scan still
// meets it. Found byte by byte, since a damaged record is not handed out. None when the scan did not fail for one
// record.
std::optional<std::string> damagedKey(const Snapshot& snapshot, TableId table, const std::string& from,
                                      const std::string& what) {
  if (!isReadable(snapshot)) return std::nullopt;
  const auto isNotAbove = [&](const std::string& bound) {
    return bound <= from || scanMeets(snapshot, table, bound, what);
  };
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
  std::string last;  // visited since `from`
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
      const auto key = damagedKey(snapshot, table, from, damage.what());
      if (!key) throw;
      if (!damaged(*key, damage)) return false;
      from = keyAfter(*key);
      if (from.empty()) return true;  // it was the last key that there can be
      continue;
    }
    if (!scan->valid()) return true;
    last.assign(scan->key());
    if (!visit(*scan)) return false;
  }
}

}  // namespace Quillo
