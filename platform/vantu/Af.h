#pragma once
// Address families. The numbers are those of InetAddressType (RFC 4001): unknown(0), ipv4(1), ipv6(2).

#include <cstdint>
#include <ostream>

namespace Vantu {

enum Af : std::uint8_t { unknown_ = 0, ipv4_ = 1, ipv6_ = 2 };

constexpr const char* afName(Af af) {
  switch (af) {
    case ipv4_:
      return "ipv4";
    case ipv6_:
      return "ipv6";
    case unknown_:
      break;
  }
  return "unknown";
}

inline std::ostream& operator<<(std::ostream& out, Af af) {
  return out << afName(af);
}

}  // namespace Vantu
