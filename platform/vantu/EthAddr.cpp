#include "vantu/EthAddr.h"

#include <fmt/format.h>

#include <boost/container_hash/hash.hpp>
#include <charconv>

namespace Vantu {
namespace {

bool parse(std::string_view text, EthAddr::Bytes& bytes) {
  if (text.size() != 3 * bytes.size() - 1) return false;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char* pair = text.data() + 3 * i;
    const auto [end, error] = std::from_chars(pair, pair + 2, bytes[i], 16);
    if (error != std::errc{} || end != pair + 2) return false;
    if (i + 1 < bytes.size() && pair[2] != ':') return false;
  }
  return true;
}

}  // namespace

EthAddr EthAddr::fromString(std::string_view text) {
  Bytes bytes{};
  if (!parse(text, bytes)) {
    throw Kel::RangeException(fmt::format(
        "EthAddr: {:?} is not an Ethernet address; expected six pairs of hex digits, such as 02:00:5e:10:00:01",
        text));
  }
  return EthAddr(bytes);
}

EthAddr EthAddr::fromBytes(std::span<const std::uint8_t> bytes) {
  return EthAddr(exactBytes<6>(bytes, "EthAddr", "an Ethernet address"));
}

Kel::String EthAddr::stringValue() const {
  return fmt::format("{:02x}", fmt::join(bytes_, ":"));
}

std::size_t EthAddr::hash() const {
  return boost::hash_value(bytes_);
}

}  // namespace Vantu
