#pragma once
// An address with the length of its network prefix, host bits kept: 10.1.2.3/24. Used as IpAddrWithMask and
// Ip6AddrWithMask. Ordered by address, then by length. The default value is the zero address with length 0.

#include "vantu/ValueConcept.h"

namespace Vantu {

template <class Address>
class AddrWithMask {
 public:
  static constexpr bool isVantuValue = true;

  constexpr AddrWithMask() = default;
  // Throws Kel::RangeException when `length` is greater than the number of bits of the address.
  AddrWithMask(const Address& address, unsigned length);

  // "ADDRESS/LENGTH". Throws Kel::RangeException.
  static AddrWithMask fromString(std::string_view text);

  constexpr const Address& address() const { return address_; }
  constexpr unsigned length() const { return length_; }
  Address netmask() const { return Address::netmask(length_); }
  // The address with its host bits cleared.
  Address prefix() const { return address_.mask(length_); }
  // True when no host bit is set.
  bool validAsPrefix() const { return prefix() == address_; }

  Kel::String stringValue() const;
  std::size_t hash() const;
  friend auto operator<=>(const AddrWithMask&, const AddrWithMask&) = default;

 private:
  Address address_;
  std::uint8_t length_ = 0;
};

}  // namespace Vantu
