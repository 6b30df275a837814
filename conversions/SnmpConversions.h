#pragma once
// The conversions of our own value types to the bytes of SNMP values, and back.
//
// Unless noted, the contract is that of the elementary conversions (snmp/Conversions.h): they return the number of
// bytes written, or -1, with nothing written, when the buffer is too small. The comments name values as the object's
// MIB does.

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

// ipCidrRouteProto (RFC 2096) by the process's protocol map; other(1) for a type without an entry in the map.
int RouteTypeToAsnInteger(const Routing::Fib::RouteType& routeType, unsigned char* buffer, int length);

// ipCidrRouteMetric1 (RFC 2096), inetCidrRouteMetric1 (RFC 4292): the metric as a signed number. From 2^31 on it is
// negative.
int RouteMetricToAsnInteger(const Routing::RouteMetric& metric, unsigned char* buffer, int length);

// One byte of BITS: 0x80 when the VRF routes IPv4, 0x40 when it routes IPv6; 0 for a null status.
// Requires: the buffer has a byte.
int RoutingStatusToAsnBits(Kel::Ptr<IpSnmp::VrfRoutingStatus const> status, unsigned char* buffer, int length);

// The text form; empty when no route distinguisher is set.
int RouteDistinguisherToAsnOctetString(const Vantu::RouteDistinguisher& distinguisher, unsigned char* buffer,
                                       int length);

// active(1), or inactive(2) for every other state.
int VrfStateToAsnInteger(const Ip::VrfState& state, unsigned char* buffer, int length);

// The number of the type, 0 to 5. Any other number is an assertion failure.
int NhgTypeToAsnInteger(const Routing::NexthopGroup::NexthopGroupType& type, unsigned char* buffer, int length);

// ipNetToPhysicalType (RFC 4293): local(5) for a link-local address; otherwise static(4) or dynamic(3).
int PhysicalTypeToAsnInteger(const Arp::Table::ArpEntry& entry, unsigned char* buffer, int length);

// ipNetToPhysicalState (RFC 4293): reachable(1) for IPv6, unknown(6) otherwise, since the state of neighbours is not
// tracked.
int PhysicalStateToAsnInteger(const Ip::IpVersion& version, unsigned char* buffer, int length);

// The RowPointer to the prefix's row: ipAddressPrefixOrigin with the row's index. Null gives zeroDotZero, as RFC 4293
// requires for an address without a prefix. When the buffer is too small, the result is 0 (the empty identifier), not
// -1.
int IpAddressPrefixEntryToAsnOid(Kel::Ptr<IpSnmp::IpAddressPrefixEntry const> entry, unsigned char* buffer,
                                 int length);

// `value` points to a `netsnmp_variable_list`. Throws Kel::RangeException as AsnIntegerToS32. A number that is no IP
// version is returned unchanged, since an index may hold it.
Ip::IpVersion AsnIntegerToIpVersion(void* value);
