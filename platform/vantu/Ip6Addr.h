#pragma once
// An IPv6 address. The default value is ::. The order is that of the bytes, most significant first.

#include <array>
#include <cstdint>
#include <cstring>
#include <span>

#include "vantu/ValueConcept.h"

namespace Vantu {

class Ip6Addr {
 public:
  static constexpr bool isVantuValue = true;
  static constexpr const char* typeName = "Ip6Addr";
  static constexpr unsigned bits = 128;
  using Bytes = std::array<std::uint8_t, 16>;

  constexpr Ip6Addr() = default;
  // Network order: most significant byte first.
  constexpr explicit Ip6Addr(const Bytes& bytes) : bytes_(bytes) {}

  // The text forms of RFC 4291 without a zone ("%eth0"). Throws Kel::RangeException.
  static Ip6Addr fromString(std::string_view text);
  // Sixteen bytes, most significant first. Throws Kel::RangeException for any other number.
  static Ip6Addr fromBytes(std::span<const std::uint8_t> bytes);
  // The `length` most significant bits set. Throws Kel::RangeException when length > 128.
  static Ip6Addr netmask(unsigned length);

  constexpr const Bytes& bytes() const { return bytes_; }
  bool isZero() const { return bytes_ == Bytes{}; }
  // fe80::/10 (RFC 4291).
  constexpr bool isLinkLocal() const { return bytes_[0] == 0xFE && (bytes_[1] & 0xC0) == 0x80; }
  // This address with all but its `length` most significant bits cleared. Throws as netmask().
  Ip6Addr mask(unsigned length) const;

  // The form of RFC 5952.
  Kel::String stringValue() const;
  std::size_t hash() const;
  friend bool operator==(const Ip6Addr&, const Ip6Addr&) = default;
  friend std::strong_ordering operator<=>(const Ip6Addr& a, const Ip6Addr& b) {
    return std::memcmp(a.bytes_.data(), b.bytes_.data(), a.bytes_.size()) <=> 0;
  }

 private:
  Bytes bytes_{};
};

}  // namespace Vantu
