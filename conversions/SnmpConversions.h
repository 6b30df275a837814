#pragma once
// The conversions of our own value types to the bytes of SNMP values, and back.
//
// The contract is that of the elementary ones (snmp/Conversions.h): (value, buffer, size of the buffer in bytes) ->
// number of bytes written, or -1, with nothing written, when they do not fit. An INTEGER is the host's 32-bit
// integer, an OBJECT IDENTIFIER 32-bit words. Names of values are those of the MIB that defines the object.

#include "ipsnmp/IpAddressEntry.h"
#include "ipsnmp/IpVrfMib.h"
#include "quillo/tables/ArpTable.h"
#include "vantu/RouteDistinguisher.h"
#include "varnix/Routing.h"
#include "varnix/Values.h"
#include "varnix/Vrf.h"

// ipForwarding (RFC 4293): forwarding(1) or notForwarding(2).
int IpRoutingToAsnInteger(bool routing, unsigned char* buffer, int length);

// ipNetToMediaType (RFC 4293): static(4) or dynamic(3).
int ArpEntryStaticToAsnInteger(const Arp::ArpEntryStatus& status, unsigned char* buffer, int length);

// ipCidrRouteProto (RFC 2096) by the process's protocol map; other(1) for a type that is not in it.
int RouteTypeToAsnInteger(const Routing::Fib::RouteType& routeType, unsigned char* buffer, int length);

int RouteMetricToAsnInteger(const Routing::RouteMetric& metric, unsigned char* buffer, int length);

// One byte of BITS, which must fit: 0x80 when the VRF routes IPv4, 0x40 when it routes IPv6. A null status routes
// neither.
int RoutingStatusToAsnBits(Kel::Ptr<IpSnmp::VrfRoutingStatus const> status, unsigned char* buffer, int length);

// The text form; empty when no route distinguisher is set.
int RouteDistinguisherToAsnOctetString(const Vantu::RouteDistinguisher& distinguisher, unsigned char* buffer,
                                       int length);

// active(1), or inactive(2) for every other state.
int VrfStateToAsnInteger(const Ip::VrfState& state, unsigned char* buffer, int length);

// The number of the type, 0 to 5. Any other number is a programming error and aborts.
int NhgTypeToAsnInteger(const Routing::NexthopGroup::NexthopGroupType& type, unsigned char* buffer, int length);

// ipNetToPhysicalType (RFC 4293): local(5) for a link-local address, whatever else is known of the entry; otherwise
// static(4) or dynamic(3).
int PhysicalTypeToAsnInteger(const Arp::Table::ArpEntry& entry, unsigned char* buffer, int length);

// ipNetToPhysicalState (RFC 4293): reachable(1) for an IPv6 neighbour, unknown(6) for every other: the state of a
// neighbour is not tracked.
int PhysicalStateToAsnInteger(const Ip::IpVersion& version, unsigned char* buffer, int length);

// The RowPointer to the prefix's row: ipAddressPrefixOrigin with the row's index. Null gives zeroDotZero, as RFC
// 4293 asks for an address without a prefix. When the buffer is too small, nothing is written and the result is 0,
// not -1: the empty identifier.
int IpAddressPrefixEntryToAsnOid(Kel::Ptr<IpSnmp::IpAddressPrefixEntry const> entry, unsigned char* buffer,
                                 int length);

// `value` points to a `netsnmp_variable_list`. Throws Kel::RangeException as AsnIntegerToS32 does; a number that is no
// IP version is returned as it is, since an index may hold it.
Ip::IpVersion AsnIntegerToIpVersion(void* value);
