#pragma once
// The length of a prefix of either IP version, 0 to 128 bits.

#include <boost/container_hash/hash.hpp>
#include <compare>

#include "kel/Value.h"

namespace FibStatsSnmp {

class IpAddressPrefixLength {
 public:
  static constexpr const char* kelTypeName = "FibStatsSnmp::IpAddressPrefixLength";

  IpAddressPrefixLength() = default;
  // Implicit: a length is a number. Throws Kel::RangeException when it is below 0 or above 128.
  IpAddressPrefixLength(std::int64_t value);

  int value() const { return value_; }
  friend auto operator<=>(const IpAddressPrefixLength&, const IpAddressPrefixLength&) = default;
  friend std::size_t hash_value(const IpAddressPrefixLength& length) { return boost::hash<int>()(length.value_); }
  friend std::ostream& operator<<(std::ostream& out, const IpAddressPrefixLength& length) {
    return out << length.value_;
  }

  template <class Visitor>
  void kelForEachField(Visitor&& visit) const {
    visit("value", value_);
  }
  template <class Reader>
  static IpAddressPrefixLength kelFromFields(Reader&& read) {
    return {read("value", std::type_identity<int>{})};
  }

 private:
  int value_ = 0;
};

}  // namespace FibStatsSnmp
