#include "quillo/VrfTableReader.h"

#include <vector>

#include "quillo/ScanAround.h"

namespace Quillo {

using Pesk::CorruptionDetectedException;

void VrfTableReader::walk(const std::string& vrf, const std::string& from, const Take& take) const {
  const auto snapshot = follower_->snapshot();
  std::vector<CorruptionDetectedException> met;
  const auto visit = [&](const Scan& scan) {
    if (!scan.key().starts_with(vrf)) return false;
    bool goesOn = true;
    if (const char* what = take(scan, goesOn)) met.push_back(damage(scan.key(), what));
    return goesOn;
  };
  scanAround(*snapshot, table_, from, visit, [&](const std::string& key, const CorruptionDetectedException& found) {
    if (!key.starts_with(vrf)) return false;
    met.push_back(found);
    return true;
  });
  if (met.empty()) return;
  for (auto other = met.begin() + 1; other != met.end(); ++other) follower_->corruptionDetected(*other);
  throw CorruptionDetectedException(met.front());
}

CorruptionDetectedException VrfTableReader::damage(Bytes key, const char* what) const {
  return {follower_->mount()->directory(), tableInfo(table_).name, printableKey(key), what};
}

}  // namespace Quillo
