#pragma once
// Value types that the entities share: IP versions, names of VRFs, static routes and default routers.

#include <compare>
#include <cstdint>
#include <ostream>
#include <string_view>

#include "kel/Errors.h"
#include "kel/Name.h"
#include "kel/SharedText.h"
#include "kel/ValueType.h"
#include "vantu/IntfId.h"
#include "vantu/Prefix.h"
#include "vantu/RouteTypes.h"

namespace Ip {

// The numbers of IPv4 and IPv6 are also the values of InetAddressType (RFC 4001) in SNMP indexes.
enum IpVersion : int { ipVersionUnknown = 0, ipVersion4 = 1, ipVersion6 = 2 };
BOOST_DESCRIBE_ENUM(IpVersion, ipVersionUnknown, ipVersion4, ipVersion6)

inline Kel::String stringValue(IpVersion version) {
  return Kel::enumName(version);
}
inline std::ostream& operator<<(std::ostream& out, IpVersion version) {
  return out << stringValue(version);
}

// Throw Kel::RangeException unless the number or name is that of an IP version.
inline IpVersion IpVersionInstance(unsigned number) {
  return Kel::enumValue<IpVersion>(Kel::Datum(static_cast<std::uint64_t>(number)));
}
inline IpVersion IpVersionInstance(const Kel::String& name) {
  return Kel::enumValue<IpVersion>(Kel::Datum(name));
}

}  // namespace Ip

namespace L3 {

// The name of a VRF: 1 to 100 bytes of any value. Empty text gives the default VRF's name.
class VrfName {
 public:
  static constexpr std::size_t maxLength = 100;  // bytes
  static constexpr const char* defaultName = "default";

  VrfName() = default;
  // Throws Kel::RangeException when `text` is longer than maxLength.
  explicit VrfName(std::string_view text) : text_(text == defaultName ? std::string_view() : text) {
    if (text.size() > maxLength) throw Kel::RangeException("VrfName::bytes > VrfName::maxLength not allowed");
  }
  static VrfName fromString(std::string_view text) { return VrfName(text); }

  const Kel::String& stringValue() const { return isDefault() ? defaultText() : text_.text(); }
  bool isDefault() const { return text_.empty(); }

  friend bool operator==(const VrfName&, const VrfName&) = default;
  friend std::strong_ordering operator<=>(const VrfName& a, const VrfName& b) {
    return a == b ? std::strong_ordering::equal : a.stringValue() <=> b.stringValue();
  }
  friend std::size_t hash_value(const VrfName& name) { return name.text_.hash(); }
  friend std::ostream& operator<<(std::ostream& out, const VrfName& name) { return out << name.stringValue(); }

 private:
  static const Kel::String& defaultText() {
    static const Kel::String text = defaultName;
    return text;
  }

  Kel::SharedText text_;  // empty: the default VRF's
};

}  // namespace L3

namespace Routing {

// Identifies a static route by prefix and preference. Text form: "10.0.0.0/8 1". Ordered by prefix, then by preference.
template <class PrefixType>
class BasicStaticRouteKey {
 public:
  BasicStaticRouteKey() = default;
  BasicStaticRouteKey(const PrefixType& prefix, RoutePreference preference)
      : prefix_(prefix), preference_(preference) {}
  // Throws Kel::RangeException unless the text has the form above, with a preference of 0 to 255.
  static BasicStaticRouteKey fromString(std::string_view text) {
    const auto blank = text.find(' ');
    const auto number = blank == std::string_view::npos ? std::string_view() : text.substr(blank + 1);
    const auto preference = Kel::numberFromText<std::uint8_t>(number);
    if (!preference) {
      throw Kel::RangeException("'" + std::string(text) + "' is no static route: PREFIX PREFERENCE is expected");
    }
    return {PrefixType::fromString(text.substr(0, blank)), RoutePreference(*preference)};
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

// Identifies a default router by its address and the interface that leads to it. Text form: "192.0.2.1 red/eth0".
class DefaultRouterKey {
 public:
  DefaultRouterKey() = default;
  DefaultRouterKey(const Vantu::IpGenAddr& address, Vantu::IntfId intfId)
      : address_(address), intfId_(std::move(intfId)) {}
  // Throws Kel::RangeException unless the text has the form above.
  static DefaultRouterKey fromString(std::string_view text) {
    const auto blank = text.find(' ');
    if (blank == std::string_view::npos || blank + 1 == text.size()) {
      throw Kel::RangeException("'" + std::string(text) + "' is no default router: ADDRESS INTERFACE is expected");
    }
    return {Vantu::IpGenAddr::fromString(text.substr(0, blank)), Vantu::IntfId(text.substr(blank + 1))};
  }

  const Vantu::IpGenAddr& address() const { return address_; }
  const Vantu::IntfId& intfId() const { return intfId_; }
  Kel::String stringValue() const { return address_.stringValue() + " " + intfId_.text(); }
  friend auto operator<=>(const DefaultRouterKey&, const DefaultRouterKey&) = default;
  friend std::ostream& operator<<(std::ostream& out, const DefaultRouterKey& key) {
    return out << key.stringValue();
  }

 private:
  Vantu::IpGenAddr address_;
  Vantu::IntfId intfId_;
};

class DefaultRouterFacts {
  // expires: when the router's lifetime ends unless it advertises itself again, in seconds of the publisher's clock; 0:
  // never. utcOffset: Kel::System::utcOffset() of the publisher. preference: that of RFC 4191, -1 to 1.
  KEL_VALUE_TYPE("Routing::DefaultRouterFacts", DefaultRouterFacts,
                 ((double, expires))((double, utcOffset))((std::int32_t, preference)))
};

}  // namespace Routing

namespace Routing6 {

using StaticRouteKey = Routing::BasicStaticRouteKey<Vantu::Ip6Prefix>;

}  // namespace Routing6
