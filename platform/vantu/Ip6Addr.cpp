#include "vantu/Ip6Addr.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <boost/container_hash/hash.hpp>

#include "kel/Errors.h"

namespace Vantu {

Ip6Addr Ip6Addr::fromString(std::string_view text) {
  Bytes parsed{};
  // inet_pton stops at a NUL, so a text that has one inside must not get there.
  if (text.find('\0') != std::string_view::npos ||
      inet_pton(AF_INET6, std::string(text).c_str(), parsed.data()) != 1) {
    throw Kel::RangeException(fmt::format(
        "Ip6Addr: {:?} is not an IPv6 address; expected a form such as 2001:db8::1, without a zone", text));
  }
  return Ip6Addr(parsed);
}

Ip6Addr Ip6Addr::fromBytes(std::span<const std::uint8_t> bytes) {
  Bytes copied{};
  if (bytes.size() != copied.size()) {
    throw Kel::RangeException(fmt::format("Ip6Addr: {} bytes are not an IPv6 address; expected 16", bytes.size()));
  }
  std::copy(bytes.begin(), bytes.end(), copied.begin());
  return Ip6Addr(copied);
}

Ip6Addr Ip6Addr::netmask(unsigned length) {
  if (length > bits) {
    throw Kel::RangeException(
        fmt::format("Ip6Addr: prefix length {} is out of range; expected 0 to {}", length, bits));
  }
  Bytes mask{};
  for (auto& byte : mask) {
    const unsigned here = std::min(length, 8U);
    byte = static_cast<std::uint8_t>(0xFF00U >> here);
    length -= here;
  }
  return Ip6Addr(mask);
}

Ip6Addr Ip6Addr::mask(unsigned length) const {
  Ip6Addr result = netmask(length);
  for (std::size_t i = 0; i < bytes_.size(); ++i) result.bytes_[i] &= bytes_[i];
  return result;
}

Kel::String Ip6Addr::stringValue() const {
  char text[INET6_ADDRSTRLEN];
  return inet_ntop(AF_INET6, bytes_.data(), text, sizeof text);
}

std::size_t Ip6Addr::hash() const {
  std::array<std::uint64_t, 2> halves;
  std::memcpy(halves.data(), bytes_.data(), bytes_.size());
  return boost::hash_value(halves);
}

}  // namespace Vantu
