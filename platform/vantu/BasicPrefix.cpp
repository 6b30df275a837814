#include "vantu/BasicPrefix.h"

#include "kel/Errors.h"
#include "vantu/Ip6Prefix.h"
#include "vantu/Prefix.h"

namespace Vantu {

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
