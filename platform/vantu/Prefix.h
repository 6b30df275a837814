#pragma once
// Addresses with a prefix length: IpAddrWithMask and Ip6AddrWithMask keep the host bits, Prefix (IPv4) and Ip6Prefix
// clear them.

#include "vantu/IpAddr.h"

namespace Vantu {

// An address with a prefix length, host bits kept: 10.1.2.3/24. Ordered by address, then by length. The default value
// is the zero address with length 0.
template <class Address>
class AddrWithMask {
 public:
  static constexpr bool isVantuValue = true;

  constexpr AddrWithMask() = default;
  // Throws Kel::RangeException when `length` is greater than the number of bits of the address.
  AddrWithMask(const Address& address, unsigned length);

  // "ADDRESS/LENGTH". Throws Kel::RangeException for any other text.
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

extern template class AddrWithMask<IpAddr>;
extern template class AddrWithMask<Ip6Addr>;
using IpAddrWithMask = AddrWithMask<IpAddr>;
using Ip6AddrWithMask = AddrWithMask<Ip6Addr>;

// A network prefix: an address without host bits, and its length. Ordered by address, then by length. The default
// value is the prefix of the default route.
template <class Address>
class BasicPrefix {
 public:
  static constexpr bool isVantuValue = true;

  constexpr BasicPrefix() = default;
  // Host bits of `address` are cleared. Throws Kel::RangeException when `length` is out of range.
  BasicPrefix(const Address& address, unsigned length) : value_(address.mask(length), length) {}
  // Throws Kel::RangeException ("Prefix::validAsPrefix != true not allowed", also for IPv6) when a host bit is set.
  explicit BasicPrefix(const AddrWithMask<Address>& value);

  // "ADDRESS/LENGTH"; host bits are cleared. Throws Kel::RangeException for any other text.
  static BasicPrefix fromString(std::string_view text);

  constexpr const Address& address() const { return value_.address(); }
  constexpr unsigned length() const { return value_.length(); }
  Address netmask() const { return value_.netmask(); }
  constexpr const AddrWithMask<Address>& addrWithMask() const { return value_; }

  Kel::String stringValue() const { return value_.stringValue(); }
  std::size_t hash() const { return value_.hash(); }
  friend auto operator<=>(const BasicPrefix&, const BasicPrefix&) = default;

 private:
  AddrWithMask<Address> value_;
};

extern template class BasicPrefix<IpAddr>;
extern template class BasicPrefix<Ip6Addr>;
using Prefix = BasicPrefix<IpAddr>;
using Ip6Prefix = BasicPrefix<Ip6Addr>;

}  // namespace Vantu
