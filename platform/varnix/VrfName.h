#pragma once
// The name of a VRF: 1 to 100 bytes, any of them. A name made from empty text is the default VRF's.

#include <compare>
#include <ostream>
#include <string_view>

#include "kel/Errors.h"
#include "kel/Name.h"

namespace L3 {

class VrfName {
 public:
  static constexpr std::size_t maxLength = 100;  // bytes
  static constexpr const char* defaultName = "default";

  VrfName() : text_(defaultName) {}
  // Throws Kel::RangeException when `text` is longer than maxLength.
  explicit VrfName(std::string_view text) : text_(text.empty() ? defaultName : text) {
    if (text.size() > maxLength) throw Kel::RangeException("VrfName::bytes > VrfName::maxLength not allowed");
  }
  static VrfName fromString(std::string_view text) { return VrfName(text); }

  const Kel::String& stringValue() const { return text_; }
  bool isDefault() const { return text_ == defaultName; }

  friend auto operator<=>(const VrfName&, const VrfName&) = default;
  friend std::size_t hash_value(const VrfName& name) { return std::hash<Kel::String>{}(name.text_); }
  friend std::ostream& operator<<(std::ostream& out, const VrfName& name) { return out << name.text_; }

 private:
  Kel::String text_;
};

}  // namespace L3
