#pragma once
// An IPv4 or an IPv6 address, or neither (unset, the default). Ordered by family (unset, IPv4, IPv6), then as the
// family's own type.

#include "vantu/Af.h"
#include "vantu/Ip6Addr.h"
#include "vantu/IpAddr.h"

namespace Vantu {

class IpGenAddr {
 public:
  static constexpr bool isVantuValue = true;

  constexpr IpGenAddr() = default;
  // Implicit: an address of either family is a general address.
  constexpr IpGenAddr(IpAddr address) : af_(ipv4_), v4_(address) {}
  constexpr IpGenAddr(const Ip6Addr& address) : af_(ipv6_), v6_(address) {}

  // Either family's text form; empty text is the unset address. Throws Kel::RangeException.
  static IpGenAddr fromString(std::string_view text);

  constexpr Af af() const { return af_; }
  constexpr bool isSet() const { return af_ != unknown_; }
  // The address, when it is of that family; throws Kel::RangeException otherwise: ask af() first.
  IpAddr v4() const;
  const Ip6Addr& v6() const;
  // The family's link-local range: 169.254.0.0/16 or fe80::/10. False when unset.
  constexpr bool isLinkLocal() const {
    return af_ == ipv4_ ? v4_.isLinkLocal() : af_ == ipv6_ && v6_.isLinkLocal();
  }
  // True for 0.0.0.0, :: and unset.
  bool isZero() const { return v4_.isZero() && v6_.isZero(); }

  // Empty when unset.
  Kel::String stringValue() const;
  std::size_t hash() const;
  friend auto operator<=>(const IpGenAddr&, const IpGenAddr&) = default;

 private:
  [[noreturn]] void wrongFamily(Af wanted) const;

  // The member of the other family stays zero, so that comparing all three is comparing family and address.
  Af af_ = unknown_;
  IpAddr v4_;
  Ip6Addr v6_;
};

}  // namespace Vantu
