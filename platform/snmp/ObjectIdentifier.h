#pragma once
// An SNMP OBJECT IDENTIFIER: up to 128 sub-identifiers of 32 bits (RFC 2578, 3.5). The order is SNMP's: lexicographic
// by sub-identifiers, a prefix first.
//
// Text form: decimal numbers joined by '.', such as "1.3.6.1.2.1.4.20". `fromString` also accepts one leading dot.

#include <compare>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>
#include <vector>

#include "kel/Name.h"

namespace Snmp {

class ObjectIdentifier {
 public:
  using SubIdentifier = std::uint32_t;
  static constexpr std::size_t maxLength = 128;  // sub-identifiers

  ObjectIdentifier() = default;
  // Both, and `append`, throw Kel::RangeException above maxLength.
  ObjectIdentifier(std::initializer_list<SubIdentifier> subIdentifiers);
  explicit ObjectIdentifier(std::span<const SubIdentifier> subIdentifiers);

  // Throws Kel::RangeException that quotes the text unless it is a list of numbers below 2^32. Empty text gives the
  // empty identifier.
  static ObjectIdentifier fromString(std::string_view text);
  Kel::String stringValue() const;

  void append(SubIdentifier subIdentifier);
  std::size_t size() const { return words_.size(); }
  bool empty() const { return words_.empty(); }
  SubIdentifier operator[](std::size_t i) const { return words_[i]; }
  std::span<const SubIdentifier> subIdentifiers() const { return words_; }
  auto begin() const { return words_.begin(); }
  auto end() const { return words_.end(); }

  friend auto operator<=>(const ObjectIdentifier& a, const ObjectIdentifier& b) = default;
  friend bool operator==(const ObjectIdentifier& a, const ObjectIdentifier& b) = default;

 private:
  std::vector<SubIdentifier> words_;
};

}  // namespace Snmp
