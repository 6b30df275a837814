#include "vantu/Prefix.h"

#include <fmt/format.h>

#include <boost/container_hash/hash.hpp>

#include "kel/Errors.h"

namespace Vantu {

template <class Address>
AddrWithMask<Address>::AddrWithMask(const Address& address, unsigned length)
    : address_(address), length_(static_cast<std::uint8_t>(length)) {
  if (length > Address::bits) {
    throw Kel::RangeException(fmt::format("{}WithMask: prefix length {} of {} is out of range; expected 0 to {}",
                                          Address::typeName, length, address.stringValue(), Address::bits));
  }
}

template <class Address>
AddrWithMask<Address> AddrWithMask<Address>::fromString(std::string_view text) {
  const auto slash = text.find('/');
  const auto digits = slash == std::string_view::npos ? std::string_view{} : text.substr(slash + 1);
  const auto length = Kel::numberFromText<unsigned>(digits);
  if (!length) {
    throw Kel::RangeException(
        fmt::format("{}WithMask: {:?} has no prefix length; expected ADDRESS/LENGTH", Address::typeName, text));
  }
  try {
    return {Address::fromString(text.substr(0, slash)), *length};
  } catch (const Kel::RangeException& refusal) {
    throw Kel::RangeException(fmt::format("in {:?}: {}", text, refusal.what()));
  }
}

template <class Address>
Kel::String AddrWithMask<Address>::stringValue() const {
  return fmt::format("{}/{}", address_.stringValue(), length_);
}

template <class Address>
std::size_t AddrWithMask<Address>::hash() const {
  std::size_t seed = address_.hash();
  boost::hash_combine(seed, length_);
  return seed;
}

template class AddrWithMask<IpAddr>;
template class AddrWithMask<Ip6Addr>;

template <class Address>
BasicPrefix<Address>::BasicPrefix(const AddrWithMask<Address>& value) : value_(value) {
  if (!value.validAsPrefix()) throw Kel::RangeException("Prefix::validAsPrefix != true not allowed");
}

template <class Address>
BasicPrefix<Address> BasicPrefix<Address>::fromString(std::string_view text) {
  const auto value = AddrWithMask<Address>::fromString(text);
  return {value.address(), value.length()};
}

template class BasicPrefix<IpAddr>;
template class BasicPrefix<Ip6Addr>;

}  // namespace Vantu
