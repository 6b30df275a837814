#pragma once
// IP versions. The numbers of IPv4 and IPv6 are also the values of InetAddressType (RFC 4001) in SNMP indexes.

#include "kel/Value.h"

namespace Ip {

enum IpVersion : int { ipVersionUnknown = 0, ipVersion4 = 1, ipVersion6 = 2 };
BOOST_DESCRIBE_ENUM(IpVersion, ipVersionUnknown, ipVersion4, ipVersion6)

inline Kel::String stringValue(IpVersion version) {
  return Kel::enumName(version);
}
inline std::ostream& operator<<(std::ostream& out, IpVersion version) {
  return out << stringValue(version);
}

// Throw Kel::RangeException for a number or name that is no IP version.
inline IpVersion IpVersionInstance(unsigned number) {
  return Kel::enumValue<IpVersion>(Kel::Datum(static_cast<std::uint64_t>(number)));
}
inline IpVersion IpVersionInstance(const Kel::String& name) {
  return Kel::enumValue<IpVersion>(Kel::Datum(name));
}

}  // namespace Ip
