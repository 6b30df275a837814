#pragma once
// A route distinguisher (RFC 4364, section 4.2), or none (the default): eight bytes, which are a type of two bytes
// and then
//   0: AS number of 2 bytes, number of 4 bytes    "65000:1"
//   1: IPv4 address, number of 2 bytes            "10.0.0.1:5"
//   2: AS number of 4 bytes, number of 2 bytes    "4200000000:7"
// In text, an AS number above 65535 means type 2. A type 2 with a smaller AS number is written in the asdot+ notation
// of RFC 5396 ("0.65000:1"), so that the text is unique. Ordered by bytes, none first.

#include "vantu/ValueConcept.h"

namespace Vantu {

class RouteDistinguisher {
 public:
  static constexpr bool isVantuValue = true;
  using Bytes = std::array<std::uint8_t, 8>;

  constexpr RouteDistinguisher() = default;
  // Throws Kel::RangeException for a type other than 0, 1 and 2.
  explicit RouteDistinguisher(const Bytes& bytes);

  // One of the text forms above; empty text gives none. Throws Kel::RangeException for any other text.
  static RouteDistinguisher fromString(std::string_view text);
  // Eight bytes. Throws Kel::RangeException for any other number, and as the constructor.
  static RouteDistinguisher fromBytes(std::span<const std::uint8_t> bytes);

  constexpr bool isSet() const { return isSet_; }
  // All zero when not set.
  constexpr const Bytes& bytes() const { return bytes_; }

  Kel::String stringValue() const;  // empty when not set
  std::size_t hash() const;
  friend auto operator<=>(const RouteDistinguisher&, const RouteDistinguisher&) = default;

 private:
  bool isSet_ = false;
  Bytes bytes_{};
};

}  // namespace Vantu
