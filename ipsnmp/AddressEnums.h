#pragma once
// Where an address comes from, and what the address tables say of it. The numbers of AddressStatus and AddressType
// are those of IpAddressStatusTC and ipAddressType (RFC 4293) and go on the wire unchanged.

#include "kel/Value.h"

namespace IpSnmp {

// In order of precedence: the lowest source that holds an address speaks for it.
enum AddressSource : int {
  addressSourceStatus = 0,   // in the interface's operational IP status
  addressSourceConfig = 1,   // only configured
  addressSourceBorrowed = 2  // borrowed from another interface (unnumbered)
};
BOOST_DESCRIBE_ENUM(AddressSource, addressSourceStatus, addressSourceConfig, addressSourceBorrowed)

enum AddressStatus : int { addressStatusPreferred = 1, addressStatusInaccessible = 4 };
BOOST_DESCRIBE_ENUM(AddressStatus, addressStatusPreferred, addressStatusInaccessible)

enum AddressType : int { addressTypeUnicast = 1, addressTypeAnycast = 2, addressTypeBroadcast = 3 };
BOOST_DESCRIBE_ENUM(AddressType, addressTypeUnicast, addressTypeAnycast, addressTypeBroadcast)

}  // namespace IpSnmp
