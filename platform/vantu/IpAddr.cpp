#include "vantu/IpAddr.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <boost/container_hash/hash.hpp>

namespace Vantu {
namespace {

bool parseAddress(int family, std::string_view text, void* address) {
  // inet_pton would stop at a NUL inside the text.
  return text.find('\0') == std::string_view::npos && inet_pton(family, std::string(text).c_str(), address) == 1;
}

}  // namespace

IpAddr IpAddr::fromString(std::string_view text) {
  in_addr parsed{};
  if (!parseAddress(AF_INET, text, &parsed)) {
    throw Kel::RangeException(
        fmt::format("IpAddr: {:?} is not an IPv4 address; expected four decimal numbers, such as 192.0.2.1", text));
  }
  return IpAddr(ntohl(parsed.s_addr));
}

IpAddr IpAddr::fromBytes(std::span<const std::uint8_t> bytes) {
  std::uint32_t value = 0;
  for (const auto byte : exactBytes<4>(bytes, "IpAddr", "an IPv4 address")) value = value << 8 | byte;
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

Ip6Addr Ip6Addr::fromString(std::string_view text) {
  Bytes parsed{};
  if (!parseAddress(AF_INET6, text, parsed.data())) {
    throw Kel::RangeException(fmt::format(
        "Ip6Addr: {:?} is not an IPv6 address; expected a form such as 2001:db8::1, without a zone", text));
  }
  return Ip6Addr(parsed);
}

Ip6Addr Ip6Addr::fromBytes(std::span<const std::uint8_t> bytes) {
  return Ip6Addr(exactBytes<16>(bytes, "Ip6Addr", "an IPv6 address"));
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

IpGenAddr IpGenAddr::fromString(std::string_view text) {
  if (text.empty()) return {};
  // Every IPv6 form has a colon and no IPv4 form has one.
  if (text.find(':') == std::string_view::npos) return IpAddr::fromString(text);
  return Ip6Addr::fromString(text);
}

IpAddr IpGenAddr::v4() const {
  if (af_ != ipv4_) wrongFamily(ipv4_);
  return v4_;
}

const Ip6Addr& IpGenAddr::v6() const {
  if (af_ != ipv6_) wrongFamily(ipv6_);
  return v6_;
}

void IpGenAddr::wrongFamily(Af wanted) const {
  throw Kel::RangeException(fmt::format("IpGenAddr: '{}' was asked for as {}, but its family is {}", stringValue(),
                                        afName(wanted), afName(af_)));
}

Kel::String IpGenAddr::stringValue() const {
  if (!isSet()) return {};
  return af_ == ipv4_ ? v4_.stringValue() : v6_.stringValue();
}

std::size_t IpGenAddr::hash() const {
  std::size_t seed = af_;
  boost::hash_combine(seed, af_ == ipv4_ ? v4_.hash() : v6_.hash());
  return seed;
}

}  // namespace Vantu
