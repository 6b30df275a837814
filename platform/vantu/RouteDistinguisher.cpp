#include "vantu/RouteDistinguisher.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/container_hash/hash.hpp>
#include <limits>

#include "vantu/IpAddr.h"

namespace Vantu {
namespace {

enum Type : std::uint16_t { as2_ = 0, ipv4Address_ = 1, as4_ = 2 };

constexpr std::uint32_t max16 = std::numeric_limits<std::uint16_t>::max();
constexpr std::uint32_t max32 = std::numeric_limits<std::uint32_t>::max();

std::uint32_t bigEndian(std::span<const std::uint8_t> bytes) {
  std::uint32_t value = 0;
  for (const auto byte : bytes) value = value << 8 | byte;
  return value;
}

// Two bytes of type, four of `high`, two of `low`: the layout of types 1 and 2.
RouteDistinguisher make(Type type, std::uint32_t high, std::uint16_t low) {
  const auto bytes = IpAddr(high).bytes();
  return RouteDistinguisher(RouteDistinguisher::Bytes{0, static_cast<std::uint8_t>(type), bytes[0], bytes[1],
                                                      bytes[2], bytes[3], static_cast<std::uint8_t>(low >> 8),
                                                      static_cast<std::uint8_t>(low)});
}

[[noreturn]] void malformed(std::string_view text, std::string_view why) {
  throw Kel::RangeException(fmt::format(
      "RouteDistinguisher: {:?} is not a route distinguisher: {}; expected AS:NUMBER or IPV4-ADDRESS:NUMBER", text,
      why));
}

// Reads `part`, a part of `text`, as a decimal number of at most `max`.
std::uint32_t number(std::string_view text, std::string_view part, std::uint32_t max) {
  const auto value = Kel::numberFromText<std::uint32_t>(part);
  if (!value || *value > max) malformed(text, fmt::format("{:?} is not a number from 0 to {}", part, max));
  return *value;
}

}  // namespace

RouteDistinguisher::RouteDistinguisher(const Bytes& bytes) : isSet_(true), bytes_(bytes) {
  const auto type = bigEndian(std::span(bytes).first<2>());
  if (type > as4_) {
    throw Kel::RangeException(fmt::format("RouteDistinguisher: type {} is unknown; expected 0, 1 or 2", type));
  }
}

RouteDistinguisher RouteDistinguisher::fromBytes(std::span<const std::uint8_t> bytes) {
  return RouteDistinguisher(exactBytes<8>(bytes, "RouteDistinguisher", "a route distinguisher"));
}

RouteDistinguisher RouteDistinguisher::fromString(std::string_view text) {
  if (text.empty()) return {};
  const auto colon = text.find(':');
  if (colon == std::string_view::npos) malformed(text, "it has no ':'");
  const auto admin = text.substr(0, colon);
  const auto assigned = text.substr(colon + 1);
  const auto dot = admin.find('.');
  if (dot == std::string_view::npos) {
    const auto as = number(text, admin, max32);
    const auto low = number(text, assigned, as > max16 ? max16 : max32);
    if (as > max16) return make(as4_, as, static_cast<std::uint16_t>(low));
    const auto bytes = IpAddr(low).bytes();
    return RouteDistinguisher(Bytes{0, as2_, static_cast<std::uint8_t>(as >> 8), static_cast<std::uint8_t>(as),
                                    bytes[0], bytes[1], bytes[2], bytes[3]});
  }
  const auto low = static_cast<std::uint16_t>(number(text, assigned, max16));
  if (std::ranges::count(admin, '.') == 1) {
    const auto as = number(text, admin.substr(0, dot), max16) << 16 | number(text, admin.substr(dot + 1), max16);
    return make(as4_, as, low);
  }
  try {
    return make(ipv4Address_, IpAddr::fromString(admin).value(), low);
  } catch (const Kel::RangeException& error) {
    malformed(text, error.what());
  }
}

Kel::String RouteDistinguisher::stringValue() const {
  if (!isSet_) return {};
  const std::span<const std::uint8_t> value(bytes_);
  const auto high = bigEndian(value.subspan(2, 4));
  const auto low = bigEndian(value.subspan(6, 2));
  switch (bytes_[1]) {
    case as2_:
      return fmt::format("{}:{}", bigEndian(value.subspan(2, 2)), bigEndian(value.subspan(4, 4)));
    case ipv4Address_:
      return fmt::format("{}:{}", IpAddr(high).stringValue(), low);
    default:
      return high > max16 ? fmt::format("{}:{}", high, low) : fmt::format("0.{}:{}", high, low);
  }
}

std::size_t RouteDistinguisher::hash() const {
  std::size_t seed = isSet_;
  boost::hash_combine(seed, bytes_);
  return seed;
}

}  // namespace Vantu
