#pragma once
// An SNMP OCTET STRING.
//
// The order is that of the values as table indexes. An index of this type that is not IMPLIED has its length first (RFC
// 2578, 7.7), so shorter strings sort first, and strings of equal length by their unsigned bytes.
//
// Text form: the bytes themselves when all are printable ASCII, else "0x" and two hexadecimal digits a byte. A
// printable string that begins with "0x" is also written in hexadecimal, so `fromString(stringValue())` is always the
// value.

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <string_view>

#include "kel/Name.h"

namespace Snmp {

class String {
 public:
  static constexpr std::size_t maxLength = 65535;  // bytes, RFC 2578, 7.1.2

  String() = default;
  // Take the bytes without interpretation. Throw Kel::RangeException above maxLength.
  String(Kel::String bytes);
  String(std::string_view bytes) : String(Kel::String(bytes)) {}
  String(const char* text) : String(Kel::String(text)) {}
  explicit String(std::span<const std::uint8_t> bytes);

  // Reads the text form. Throws Kel::RangeException unless "0x" is followed by pairs of hexadecimal digits.
  static String fromString(std::string_view text);
  Kel::String stringValue() const;

  std::size_t bytes() const { return bytes_.size(); }  // length
  bool empty() const { return bytes_.empty(); }
  const std::uint8_t* data() const { return reinterpret_cast<const std::uint8_t*>(bytes_.data()); }
  std::uint8_t operator[](std::size_t i) const { return data()[i]; }
  std::span<const std::uint8_t> octets() const { return {data(), bytes()}; }
  const Kel::String& raw() const { return bytes_; }  // the bytes, never escaped

  friend std::strong_ordering operator<=>(const String& a, const String& b);
  friend bool operator==(const String& a, const String& b) { return a.bytes_ == b.bytes_; }
  friend std::size_t hash_value(const String& value);

 private:
  Kel::String bytes_;
};

std::ostream& operator<<(std::ostream& out, const String& value);

}  // namespace Snmp
