#pragma once
// An Ethernet (MAC) address. The default value is all zero. Ordered by bytes.

#include "vantu/ValueConcept.h"

namespace Vantu {

class EthAddr {
 public:
  static constexpr bool isVantuValue = true;
  using Bytes = std::array<std::uint8_t, 6>;

  constexpr EthAddr() = default;
  constexpr explicit EthAddr(const Bytes& bytes) : bytes_(bytes) {}

  // "aa:bb:cc:dd:ee:ff", in either case. Throws Kel::RangeException for any other text.
  static EthAddr fromString(std::string_view text);
  // Six bytes in transmission order. Throws Kel::RangeException for any other number.
  static EthAddr fromBytes(std::span<const std::uint8_t> bytes);

  constexpr const Bytes& bytes() const { return bytes_; }
  bool isZero() const { return bytes_ == Bytes{}; }

  Kel::String stringValue() const;  // lower case
  std::size_t hash() const;
  friend auto operator<=>(const EthAddr&, const EthAddr&) = default;

 private:
  Bytes bytes_{};
};

}  // namespace Vantu
