#pragma once
// An IPv4 address. The default value is 0.0.0.0. The order is numeric, which is the order of an IpAddress index.

#include <array>
#include <cstdint>
#include <span>

#include "vantu/ValueConcept.h"

namespace Vantu {

class IpAddr {
 public:
  static constexpr bool isVantuValue = true;
  static constexpr const char* typeName = "IpAddr";
  static constexpr unsigned bits = 32;

  constexpr IpAddr() = default;
  // `value` is in host order: 0x0A000001 is 10.0.0.1.
  constexpr explicit IpAddr(std::uint32_t value) : value_(value) {}

  // Dotted decimal, four parts. Throws Kel::RangeException.
  static IpAddr fromString(std::string_view text);
  // Four bytes, most significant first. Throws Kel::RangeException for any other number.
  static IpAddr fromBytes(std::span<const std::uint8_t> bytes);
  // The `length` most significant bits set; 0 gives 0.0.0.0. Throws Kel::RangeException when length > 32.
  static IpAddr netmask(unsigned length);

  constexpr std::uint32_t value() const { return value_; }
  // Network order: most significant first.
  constexpr std::array<std::uint8_t, 4> bytes() const {
    return {static_cast<std::uint8_t>(value_ >> 24), static_cast<std::uint8_t>(value_ >> 16),
            static_cast<std::uint8_t>(value_ >> 8), static_cast<std::uint8_t>(value_)};
  }
  constexpr bool isZero() const { return value_ == 0; }
  // 169.254.0.0/16 (RFC 3927).
  constexpr bool isLinkLocal() const { return (value_ >> 16) == 0xA9FE; }
  // This address with all but its `length` most significant bits cleared. Throws as netmask().
  IpAddr mask(unsigned length) const { return IpAddr(value_ & netmask(length).value_); }

  Kel::String stringValue() const;
  std::size_t hash() const { return value_; }
  friend constexpr auto operator<=>(const IpAddr&, const IpAddr&) = default;

 private:
  std::uint32_t value_ = 0;
};

}  // namespace Vantu
