#pragma once
// The next addresses and names, for the entries of a switch file that have a count. All throw Kel::RangeException if
// there is no such address or name, unless their contract says otherwise.

#include <array>
#include <cstdint>
#include <limits>
#include <string>

#include "kel/Errors.h"
#include "kel/Name.h"
#include "vantu/Prefix.h"

namespace Ctl {

// The address `steps` subnets of this prefix length further: 10.0.0.1, 2, 24 give 10.0.2.1. With length 0, the same
// address.
inline Vantu::IpAddr plus(const Vantu::IpAddr& address, std::uint64_t steps, unsigned length) {
  const std::uint64_t value = address.value() + (length == 0 ? 0 : steps << (32 - length));
  if (value > 0xffffffff) throw Kel::RangeException("the addresses end before the count does");
  return Vantu::IpAddr(static_cast<std::uint32_t>(value));
}

// Adds `steps` to a big-endian number. Its last `ignored` bits do not belong to the number and stay.
template <std::size_t size>
std::array<std::uint8_t, size> plusBytes(std::array<std::uint8_t, size> bytes, std::uint64_t steps,
                                         unsigned ignored) {
  std::uint64_t carry = steps << (ignored % 8);
  for (std::size_t at = size - ignored / 8; at-- > 0 && carry > 0;) {
    carry += bytes[at];
    bytes[at] = static_cast<std::uint8_t>(carry & 0xff);
    carry >>= 8;
  }
  if (carry > 0) throw Kel::RangeException("the addresses end before the count does");
  return bytes;
}

inline Vantu::Ip6Addr plus(const Vantu::Ip6Addr& address, std::uint64_t steps, unsigned length) {
  return length == 0 ? address : Vantu::Ip6Addr(plusBytes(address.bytes(), steps, 128 - length));
}

template <class Address>
Vantu::AddrWithMask<Address> plus(const Vantu::AddrWithMask<Address>& address, std::uint64_t steps) {
  return {plus(address.address(), steps, address.length()), address.length()};
}

// "Ethernet1" and 3 give "Ethernet4". Throws Kel::RangeException without a number, or if the result is above 2^32 - 1.
inline std::string plusNumber(const std::string& name, std::uint32_t steps) {
  if (steps == 0) return name;
  const std::size_t digits = name.find_last_not_of("0123456789") + 1;
  const auto number = Kel::numberFromText<std::uint32_t>(std::string_view(name).substr(digits));
  if (!number) throw Kel::RangeException("a name of several interfaces ends with the first one's number");
  if (*number > std::numeric_limits<std::uint32_t>::max() - steps) {
    throw Kel::RangeException("the numbers in the names of these interfaces end at 4294967295");
  }
  return name.substr(0, digits) + std::to_string(*number + steps);
}

}  // namespace Ctl
