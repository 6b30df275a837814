#pragma once
// Facts of static routes that a kernel cannot tell, as an operator states them.

#include <charconv>
#include <cstdint>

#include "kel/Errors.h"
#include "kel/ValueType.h"
#include "vantu/Prefix.h"
#include "vantu/RouteTypes.h"

namespace Routing {

// Which route: the one to a prefix that has this preference. In text "10.0.0.0/8 1". Ordered by prefix, then by
// preference.
template <class PrefixType>
class BasicStaticRouteKey {
 public:
  BasicStaticRouteKey() = default;
  BasicStaticRouteKey(const PrefixType& prefix, RoutePreference preference)
      : prefix_(prefix), preference_(preference) {}
  // Throws Kel::RangeException.
  static BasicStaticRouteKey fromString(std::string_view text) {
    const auto blank = text.find(' ');
    std::uint8_t preference = 0;
    const auto number = blank == std::string_view::npos ? std::string_view() : text.substr(blank + 1);
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), preference);
    if (number.empty() || error != std::errc() || end != number.data() + number.size()) {
      throw Kel::RangeException("'" + std::string(text) + "' is no static route: PREFIX PREFERENCE is expected");
    }
    return {PrefixType::fromString(text.substr(0, blank)), RoutePreference(preference)};
  }

  const PrefixType& prefix() const { return prefix_; }
  RoutePreference preference() const { return preference_; }
  Kel::String stringValue() const { return prefix_.stringValue() + " " + std::to_string(preference_.value()); }
  friend auto operator<=>(const BasicStaticRouteKey&, const BasicStaticRouteKey&) = default;
  friend std::ostream& operator<<(std::ostream& out, const BasicStaticRouteKey& key) {
    return out << key.stringValue();
  }

 private:
  PrefixType prefix_;
  RoutePreference preference_;
};

class StaticRouteFacts {
  // nexthopGroup: the route was configured with a group of next hops.
  // persistent: the route is part of the saved configuration.
  KEL_VALUE_TYPE("Routing::StaticRouteFacts", StaticRouteFacts, ((bool, nexthopGroup))((bool, persistent)))
};

using StaticRouteKey = BasicStaticRouteKey<Vantu::Prefix>;

}  // namespace Routing

namespace Routing6 {

using StaticRouteKey = Routing::BasicStaticRouteKey<Vantu::Ip6Prefix>;

}  // namespace Routing6
