#include "varnix/QuilloMount.h"

#include <optional>

namespace KelQuillo {
namespace {

// The VRF's name in a path of this pattern, "...{}"; nullopt for another path.
std::optional<std::string_view> nameIn(std::string_view path, std::string_view pattern) {
  pattern.remove_suffix(2);  // {}
  if (!path.starts_with(pattern)) return std::nullopt;
  return path.substr(pattern.size());
}

}  // namespace

Vrf::VrfIdMap::VrfId StoreMount::vrfId(std::string_view vrfName) const {
  if (vrfName.empty() || vrfName.size() > L3::VrfName::maxLength) return {};
  const L3::VrfName name{Kel::String(vrfName)};
  if (const auto* id = vrfNameStatus_->vrfId(name)) return *id;
  // The default VRF is served even before its id is published.
  return name.isDefault() ? Vrf::VrfIdMap::VrfId(0) : Vrf::VrfIdMap::VrfId();
}

Kel::Ptr<const Quillo::FibTable> StoreMount::table(std::string_view path) const {
  const auto idOf = [&](std::string_view pattern) {
    const auto name = nameIn(path, pattern);
    return name ? vrfId(*name) : Vrf::VrfIdMap::VrfId();
  };
  if (const auto id = idOf(routeStatusPath); id.isKnown()) return fib_->routeStatus(id);
  if (const auto id = idOf(route6StatusPath); id.isKnown()) return fib_->route6Status(id);
  if (const auto id = idOf(forwardingStatusPath); id.isKnown()) return fib_->forwardingStatus(id);
  return nullptr;
}

}  // namespace KelQuillo
