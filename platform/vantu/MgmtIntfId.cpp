#include "vantu/MgmtIntfId.h"

#include <utility>

namespace Vantu {
namespace {

std::set<IntfId>& configuredIds() {
  static std::set<IntfId> ids;
  return ids;
}

}  // namespace

bool MgmtIntfId::isMgmtIntfId(const IntfId& intfId) {
  const auto localName = intfId.localName();
  if (localName.starts_with("Management")) return true;
  const auto& ids = configuredIds();
  return !ids.empty() && (ids.contains(intfId) || ids.contains(IntfId(localName)));
}

const std::set<IntfId>& MgmtIntfId::configured() {
  return configuredIds();
}

void MgmtIntfId::configuredIs(std::set<IntfId> intfIds) {
  intfIds.erase(IntfId());
  configuredIds() = std::move(intfIds);
}

}  // namespace Vantu
