#include "vantu/IntfId.h"

#include <fmt/format.h>

#include <utility>

#include "kel/Errors.h"

namespace Vantu {
namespace {

std::set<IntfId> configuredIds;

// Throws Kel::RangeException when the text is too long.
std::string_view checked(std::string_view text) {
  if (text.size() > IntfId::maxLength) {
    throw Kel::RangeException(fmt::format("IntfId: an id of {} bytes, {:?}..., is too long; expected at most {}",
                                          text.size(), text.substr(0, 32), IntfId::maxLength));
  }
  return text;
}

}  // namespace

IntfId::IntfId(std::string_view text) : text_(checked(text)) {
}

std::string_view IntfId::localName() const {
  const std::string_view whole = text();
  const auto slash = whole.rfind('/');
  return slash == std::string_view::npos ? whole : whole.substr(slash + 1);
}

bool MgmtIntfId::isMgmtIntfId(const IntfId& intfId) {
  const auto localName = intfId.localName();
  if (localName.starts_with("Management")) return true;
  return !configuredIds.empty() && (configuredIds.contains(intfId) || configuredIds.contains(IntfId(localName)));
}

const std::set<IntfId>& MgmtIntfId::configured() {
  return configuredIds;
}

void MgmtIntfId::configuredIs(std::set<IntfId> intfIds) {
  intfIds.erase(IntfId());
  configuredIds = std::move(intfIds);
}

bool DynamicTunnelIntfId::isDynamicTunnelIntfId(const IntfId& intfId) {
  return intfId.localName().starts_with("DynamicTunnel");
}

}  // namespace Vantu
