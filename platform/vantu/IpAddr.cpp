#include "vantu/IpAddr.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include "kel/Errors.h"

namespace Vantu {

IpAddr IpAddr::fromString(std::string_view text) {
  in_addr parsed{};
  // inet_pton stops at a NUL, so a text that has one inside must not get there.
  if (text.find('\0') != std::string_view::npos || inet_pton(AF_INET, std::string(text).c_str(), &parsed) != 1) {
    throw Kel::RangeException(
        fmt::format("IpAddr: {:?} is not an IPv4 address; expected four decimal numbers, such as 192.0.2.1", text));
  }
  return IpAddr(ntohl(parsed.s_addr));
}

IpAddr IpAddr::fromBytes(std::span<const std::uint8_t> bytes) {
  if (bytes.size() != 4) {
    throw Kel::RangeException(fmt::format("IpAddr: {} bytes are not an IPv4 address; expected 4", bytes.size()));
  }
  std::uint32_t value = 0;
  for (const auto byte : bytes) value = value << 8 | byte;
  return IpAddr(value);
}

IpAddr IpAddr::netmask(unsigned length) {
  if (length > bits) {
    throw Kel::RangeException(
        fmt::format("IpAddr: prefix length {} is out of range; expected 0 to {}", length, bits));
  }
  return IpAddr(length == 0 ? 0 : ~std::uint32_t{0} << (bits - length));
}

Kel::String IpAddr::stringValue() const {
  const in_addr address{htonl(value_)};
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &address, text, sizeof text);
}

}  // namespace Vantu
