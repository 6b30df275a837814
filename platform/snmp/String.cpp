#include "snmp/String.h"

#include <algorithm>
#include <boost/algorithm/hex.hpp>
#include <functional>
#include <iterator>
#include <ostream>

#include "kel/Errors.h"

namespace Snmp {
namespace {

constexpr std::string_view hexPrefix = "0x";

bool printable(const Kel::String& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

}  // namespace

String::String(Kel::String bytes) : bytes_(std::move(bytes)) {
  if (bytes_.size() > maxLength) {
    throw Kel::RangeException("Snmp::String::bytes > Snmp::String::maxLength not allowed");
  }
}

String::String(std::span<const std::uint8_t> bytes)
    : String(Kel::String(reinterpret_cast<const char*>(bytes.data()), bytes.size())) {
}

String String::fromString(std::string_view text) {
  if (!text.starts_with(hexPrefix)) return String(text);
  const std::string_view digits = text.substr(hexPrefix.size());
  Kel::String bytes;
  try {
    boost::algorithm::unhex(digits.begin(), digits.end(), std::back_inserter(bytes));
  } catch (const boost::algorithm::hex_decode_error&) {
    throw Kel::RangeException("'" + Kel::String(text) + "' is no octet string: after '0x' come two hexadecimal" +
                              " digits for each byte");
  }
  return String(std::move(bytes));
}

Kel::String String::stringValue() const {
  if (printable(bytes_) && !bytes_.starts_with(hexPrefix)) return bytes_;
  Kel::String text(hexPrefix);
  boost::algorithm::hex_lower(bytes_.begin(), bytes_.end(), std::back_inserter(text));
  return text;
}

std::strong_ordering operator<=>(const String& a, const String& b) {
  if (const auto byLength = a.bytes() <=> b.bytes(); byLength != 0) return byLength;
  return a.bytes_.compare(b.bytes_) <=> 0;  // std::string compares its characters as unsigned
}

std::size_t hash_value(const String& value) {
  return std::hash<Kel::String>()(value.bytes_);
}

std::ostream& operator<<(std::ostream& out, const String& value) {
  return out << value.stringValue();
}

}  // namespace Snmp
