#pragma once
// An SNMP OCTET STRING.
//
// The order is the one in which a manager meets the values as table indexes: an index of this type that is not
// IMPLIED carries its length first (RFC 2578, 7.7), so a shorter string sorts before a longer one whatever its
// bytes are, and strings of equal length sort by their bytes, taken as unsigned.
//
// Text form: the bytes themselves when all are printable ASCII, else "0x" and two hexadecimal digits a byte. A
// printable string that begins with "0x" is written in hexadecimal too, so `fromString(stringValue())` always gives
// the value back.

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
  // The bytes as they are; nothing is interpreted. Throws Kel::RangeException beyond maxLength.
  String(Kel::String bytes);
  String(std::string_view bytes) : String(Kel::String(bytes)) {}
  String(const char* text) : String(Kel::String(text)) {}
  explicit String(std::span<const std::uint8_t> bytes);

  // Reads the text form. Throws Kel::RangeException for "0x" with anything but pairs of hexadecimal digits.
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
