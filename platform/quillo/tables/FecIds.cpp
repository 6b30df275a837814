#include "quillo/tables/FecIds.h"

#include <xxhash.h>

#include <algorithm>
#include <tuple>

#include "quillo/tables/Records.h"

namespace Quillo {

void sortVias(std::vector<Fib::Via>& vias) {
  std::sort(vias.begin(), vias.end(),
            [](const auto& a, const auto& b) { return std::tie(a.hop, a.intfId) < std::tie(b.hop, b.intfId); });
  vias.erase(std::unique(vias.begin(), vias.end()), vias.end());
}

Fib::FecId fecIdOf(const std::vector<Fib::Via>& vias) {
  const std::string bytes = encodeValue<FecRecord>({Fib::FecId(1), vias});
  const Fib::FecId id(XXH3_64bits(bytes.data(), bytes.size()));
  return id == Fib::FecId() ? Fib::FecId(1) : id;  // 0 means none
}

}  // namespace Quillo
