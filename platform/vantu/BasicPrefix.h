#pragma once
// A network prefix: an address without host bits, and its length. Used as Prefix (IPv4) and Ip6Prefix. Ordered by
// address, then by length. The default value is the zero address with length 0, the default route's prefix.

#include "vantu/AddrWithMask.h"

namespace Vantu {

template <class Address>
class BasicPrefix {
 public:
  static constexpr bool isVantuValue = true;

  constexpr BasicPrefix() = default;
  // Host bits of `address` are cleared. Throws Kel::RangeException when `length` is out of range.
  BasicPrefix(const Address& address, unsigned length) : value_(address.mask(length), length) {}
  // Unlike the constructor above this one refuses host bits: it throws Kel::RangeException with
  // "Prefix::validAsPrefix != true not allowed" (for IPv6 too).
  explicit BasicPrefix(const AddrWithMask<Address>& value);

  // "ADDRESS/LENGTH"; host bits are cleared. Throws Kel::RangeException.
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

}  // namespace Vantu
