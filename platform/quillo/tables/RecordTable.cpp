#include "quillo/tables/RecordTable.h"

#include <fmt/format.h>

#include <vector>

namespace Quillo {

using Pesk::CorruptionDetectedException;

namespace {
// This many damaged records end a walk, so that a badly damaged table does not block the agent.
constexpr std::size_t mostDamaged = 1'000;
}  // namespace

void TableReader::walk(Bytes vrf, const std::string& from, const Take& take) const {
  const auto snapshot = follower_->snapshot();
  std::vector<CorruptionDetectedException> met;
  const auto visit = [&](const Scan& scan) {
    if (!scan.key().starts_with(vrf)) return false;
    bool goesOn = true;
    if (const char* what = take(scan, goesOn)) met.push_back(damage(scan.key(), what));
    return goesOn && met.size() < mostDamaged;
  };
  scanAround(*snapshot, table_, from, visit, [&](const std::string& key, const CorruptionDetectedException& found) {
    if (!key.starts_with(vrf)) return false;
    met.push_back(found);
    return met.size() < mostDamaged;
  });
  if (met.empty()) return;
  if (met.size() == mostDamaged) {
    follower_->reportEndedWalk();
    met.push_back(damage(vrf, fmt::format("{} damaged records in one walk, which ends here", mostDamaged).c_str()));
  }
  for (auto other = met.begin() + 1; other != met.end(); ++other) follower_->corruptionDetected(*other);
  throw CorruptionDetectedException(met.front());
}

CorruptionDetectedException TableReader::damage(Bytes key, const char* what) const {
  return {follower_->mount()->directory(), tableInfo(table_).name, keyText(table_, key), what};
}

}  // namespace Quillo
