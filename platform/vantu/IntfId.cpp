#include "vantu/IntfId.h"

#include <fmt/format.h>

#include <boost/unordered/unordered_flat_map.hpp>
#include <utility>

#include "kel/Errors.h"

namespace Vantu {
namespace {

std::set<IntfId> configuredIds;

// Every SharedText, by its text. Never destroyed, since static ids may outlast any static object of this source.
auto& sharedTexts() {
  static auto* const all = new boost::unordered_flat_map<std::string_view, const Kel::PtrInterface*>;
  return *all;
}

}  // namespace

IntfId::IntfId(std::string_view text) {
  if (text.size() > maxLength) {
    throw Kel::RangeException(fmt::format("IntfId: an id of {} bytes, {:?}..., is too long; expected at most {}",
                                          text.size(), text.substr(0, 32), maxLength));
  }
  if (text.empty()) return;
  const auto known = sharedTexts().find(text);
  text_ = known != sharedTexts().end() ? static_cast<const SharedText*>(known->second) : new SharedText(text);
}

IntfId::SharedText::SharedText(std::string_view from) : text(from) {
  sharedTexts().emplace(text, this);
}

IntfId::SharedText::~SharedText() {
  sharedTexts().erase(text);
}

std::string_view IntfId::localName() const {
  const std::string_view whole = text();
  const auto slash = whole.rfind('/');
  return slash == std::string_view::npos ? whole : whole.substr(slash + 1);
}

const Kel::String& IntfId::noText() {
  static const Kel::String none;
  return none;
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
