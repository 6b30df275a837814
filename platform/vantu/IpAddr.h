#pragma once
// The IP addresses: IpAddr (IPv4), Ip6Addr (IPv6), and IpGenAddr, which is either.

#include <cstring>

#include "vantu/ValueConcept.h"

namespace Vantu {

// Address families. The numbers are those of InetAddressType (RFC 4001): unknown(0), ipv4(1), ipv6(2).
enum Af : std::uint8_t { unknown_ = 0, ipv4_ = 1, ipv6_ = 2 };

constexpr const char* afName(Af af) {
  return af == ipv4_ ? "ipv4" : af == ipv6_ ? "ipv6" : "unknown";
}

inline std::ostream& operator<<(std::ostream& out, Af af) {
  return out << afName(af);
}

// An IPv4 address. The default value is 0.0.0.0. The order is numeric, which is the order of an IpAddress index.
class IpAddr {
 public:
  static constexpr bool isVantuValue = true;
  static constexpr const char* typeName = "IpAddr";
  static constexpr unsigned bits = 32;

  constexpr IpAddr() = default;
  // `value` is in host order: 0x0A000001 is 10.0.0.1.
  constexpr explicit IpAddr(std::uint32_t value) : value_(value) {}

  // Dotted decimal, four parts. Throws Kel::RangeException for any other text.
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

// An IPv6 address. The default value is ::. The order is that of the bytes, most significant first.
class Ip6Addr {
 public:
  static constexpr bool isVantuValue = true;
  static constexpr const char* typeName = "Ip6Addr";
  static constexpr unsigned bits = 128;
  using Bytes = std::array<std::uint8_t, 16>;

  constexpr Ip6Addr() = default;
  // Network order: most significant byte first.
  constexpr explicit Ip6Addr(const Bytes& bytes) : bytes_(bytes) {}

  // The text forms of RFC 4291 without a zone ("%eth0"). Throws Kel::RangeException for any other text.
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

// An IPv4 or an IPv6 address, or neither (unset, the default). Ordered by family (unset, IPv4, IPv6), then as the
// family's own type.
class IpGenAddr {
 public:
  static constexpr bool isVantuValue = true;

  constexpr IpGenAddr() = default;
  // Implicit conversions.
  constexpr IpGenAddr(IpAddr address) : af_(ipv4_), v4_(address) {}
  constexpr IpGenAddr(const Ip6Addr& address) : af_(ipv6_), v6_(address) {}

  // Either family's text form; empty text is the unset address. Throws Kel::RangeException for any other text.
  static IpGenAddr fromString(std::string_view text);

  constexpr Af af() const { return af_; }
  constexpr bool isSet() const { return af_ != unknown_; }
  // Throw Kel::RangeException when the address is of another family or unset.
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

  // The member of the other family stays zero, so that the default comparison compares family and address.
  Af af_ = unknown_;
  IpAddr v4_;
  Ip6Addr v6_;
};

}  // namespace Vantu
