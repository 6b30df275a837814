#pragma once
// IPv4 and IPv6 addresses of interfaces: the configured ones (config) and those in effect (status). A record refers to
// the layer-3 record of its interface, which names the VRF; null means the default VRF.
//
// In these records an interface has one primary IPv4 address and any number of secondary ones. Linux has a primary
// address for each subnet, of which the publisher chooses one; readers treat all addresses alike.

#include "kel/Entity.h"
#include "vantu/IntfId.h"
#include "vantu/Prefix.h"
#include "vantu/RouteDistinguisher.h"
#include "varnix/L3.h"

namespace Ip {

class IpIntfConfig : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::IpIntfConfig", IpIntfConfig, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IpIntfConfig, ((Vantu::IntfId, intfId)))
  KEL_STORED(Vantu::IpAddrWithMask, addrWithMask, AddrWithMask)                                   // 0.0.0.0: none
  KEL_VALUES(Ordered, Vantu::IpAddrWithMask, bool, secondaryAddrWithMask, SecondaryAddrWithMask)  // always true
  KEL_REFERENCE(const L3::Intf::Config, l3Config, L3Config)
  KEL_TYPE_END_DECLARE
};

class Config : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::Config", Config, Kel::Entity)
 public:
  KEL_NAMED(Config, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, IpIntfConfig, ipIntfConfig, IpIntfConfig)
  KEL_TYPE_END_DECLARE
};

class IpIntfStatus : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::IpIntfStatus", IpIntfStatus, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IpIntfStatus, ((Vantu::IntfId, intfId)))
  KEL_STORED(Vantu::IpAddrWithMask, activeAddrWithMask, ActiveAddrWithMask)                       // 0.0.0.0: none
  KEL_VALUES(Ordered, Vantu::IpAddrWithMask, bool, secondaryAddrWithMask, SecondaryAddrWithMask)  // always true
  // The interface whose address an unnumbered interface borrows; empty for all others.
  KEL_STORED(Vantu::IntfId, unnumberedIntfId, UnnumberedIntfId)
  KEL_REFERENCE(const L3::Intf::Status, l3Status, L3Status)
  KEL_TYPE_END_DECLARE
};

class Status : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::Status", Status, Kel::Entity)
 public:
  KEL_NAMED(Status, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, IpIntfStatus, ipIntfStatus, IpIntfStatus)
  KEL_TYPE_END_DECLARE
};

}  // namespace Ip

namespace Ip6 {

// The state of an IPv6 address (RFC 4862).
enum AddressState : int {
  addressStateUnknown = 0,
  addressStatePreferred = 1,
  addressStateDeprecated = 2,
  addressStateTentative = 3,  // duplicate address detection under way
  addressStateDuplicate = 4
};
BOOST_DESCRIBE_ENUM(AddressState, addressStateUnknown, addressStatePreferred, addressStateDeprecated,
                    addressStateTentative, addressStateDuplicate)

class AddressInfo {
  KEL_VALUE_TYPE("Ip6::AddressInfo", AddressInfo, ((AddressState, state)))
};

class IntfConfig : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip6::IntfConfig", IntfConfig, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IntfConfig, ((Vantu::IntfId, intfId)))
  KEL_VALUES(Ordered, Vantu::Ip6AddrWithMask, AddressInfo, addr, Addr)
  KEL_REFERENCE(const L3::Intf::Config, l3Config, L3Config)
  KEL_TYPE_END_DECLARE
};

class Config : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip6::Config", Config, Kel::Entity)
 public:
  KEL_NAMED(Config, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, IntfConfig, intf, Intf)
  KEL_TYPE_END_DECLARE
};

class IntfStatus : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip6::IntfStatus", IntfStatus, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IntfStatus, ((Vantu::IntfId, intfId)))
  KEL_VALUES(Ordered, Vantu::Ip6AddrWithMask, AddressInfo, addr, Addr)
  KEL_REFERENCE(const L3::Intf::Status, l3Status, L3Status)
  KEL_TYPE_END_DECLARE
};

class Status : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip6::Status", Status, Kel::Entity)
 public:
  KEL_NAMED(Status, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, IntfStatus, intf, Intf)
  KEL_TYPE_END_DECLARE
};

}  // namespace Ip6
