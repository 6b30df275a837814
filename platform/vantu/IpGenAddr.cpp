#include "vantu/IpGenAddr.h"

#include <fmt/format.h>

#include <boost/container_hash/hash.hpp>

#include "kel/Errors.h"

namespace Vantu {

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
  switch (af_) {
    case ipv4_:
      return v4_.stringValue();
    case ipv6_:
      return v6_.stringValue();
    case unknown_:
      break;
  }
  return {};
}

std::size_t IpGenAddr::hash() const {
  std::size_t seed = af_;
  boost::hash_combine(seed, af_ == ipv4_ ? v4_.hash() : v6_.hash());
  return seed;
}

}  // namespace Vantu
