#include "conversions/SnmpConversions.h"

#include <fmt/format.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "ipsnmp/ProtocolMap.h"
#include "kel/Errors.h"
#include "kel/Trace.h"
#include "snmp/Conversions.h"

namespace {

Kel::TraceHandle snmpConversionsTrace("SnmpConversions");

constexpr int forwarding = 1, notForwarding = 2;                              // ipForwarding
constexpr int neighbourDynamic = 3, neighbourStatic = 4, neighbourLocal = 5;  // ipNetToPhysicalType
constexpr int neighbourReachable = 1, neighbourUnknown = 6;                   // ipNetToPhysicalState
constexpr int vrfActive = 1, vrfInactive = 2;                                 // quorinVrfState
constexpr unsigned char bitIpv4 = 0x80, bitIpv6 = 0x40;                       // quorinVrfRoutingStatus

int neighbourType(const Arp::ArpEntryStatus& status) {
  return status.isStatic ? neighbourStatic : neighbourDynamic;
}

}  // namespace

int IpRoutingToAsnInteger(bool routing, unsigned char* buffer, int length) {
  return S32ToAsnIntegerF(routing ? forwarding : notForwarding, buffer, length);
}

int ArpEntryStaticToAsnInteger(const Arp::ArpEntryStatus& status, unsigned char* buffer, int length) {
  return S32ToAsnIntegerF(neighbourType(status), buffer, length);
}

int RouteTypeToAsnInteger(const Routing::Fib::RouteType& routeType, unsigned char* buffer, int length) {
  const auto protocol = IpSnmp::protocolMap().protocol(routeType);
  QTRACE(snmpConversionsTrace, 2) << "protoMap converted " << unsigned{routeType.value()} << " to "
                                  << Kel::print(protocol);
  return S32ToAsnIntegerF(protocol, buffer, length);
}

int RouteMetricToAsnInteger(const Routing::RouteMetric& metric, unsigned char* buffer, int length) {
  return S32ToAsnIntegerF(static_cast<int>(metric.value()), buffer, length);
}

int RoutingStatusToAsnBits(Kel::Ptr<IpSnmp::VrfRoutingStatus const> status, unsigned char* buffer, int) {
  unsigned char bits = 0;
  if (status && status->ipv4()) bits |= bitIpv4;
  if (status && status->ipv6()) bits |= bitIpv6;
  *buffer = bits;
  return 1;
}

int RouteDistinguisherToAsnOctetString(const Vantu::RouteDistinguisher& distinguisher, unsigned char* buffer,
                                       int length) {
  return StringToAsnOctetStringF(distinguisher.stringValue(), buffer, length);
}

int VrfStateToAsnInteger(const Ip::VrfState& state, unsigned char* buffer, int length) {
  return S32ToAsnIntegerF(state == Ip::vrfStateActive ? vrfActive : vrfInactive, buffer, length);
}

int NhgTypeToAsnInteger(const Routing::NexthopGroup::NexthopGroupType& type, unsigned char* buffer, int length) {
  using namespace Routing::NexthopGroup;
  if (type < nexthopGroupUnknown || type > nexthopGroupIp) {
    const auto where = fmt::format("SnmpConversions: {}", __PRETTY_FUNCTION__);
    Kel::assertionFailed("!\"NhgType bad value\"", where.c_str());
  }
  return S32ToAsnIntegerF(type, buffer, length);
}

int PhysicalTypeToAsnInteger(const Arp::Table::ArpEntry& entry, unsigned char* buffer, int length) {
  const int type = entry.addr().isLinkLocal() ? neighbourLocal : neighbourType(entry.status);
  return S32ToAsnIntegerF(type, buffer, length);
}

int PhysicalStateToAsnInteger(const Ip::IpVersion& version, unsigned char* buffer, int length) {
  return S32ToAsnIntegerF(version == Ip::ipVersion6 ? neighbourReachable : neighbourUnknown, buffer, length);
}

int IpAddressPrefixEntryToAsnOid(Kel::Ptr<IpSnmp::IpAddressPrefixEntry const> entry, unsigned char* buffer,
                                 int length) {
  // Not an ObjectIdentifier, which ends at 128 sub-identifiers; the buffer is the limit.
  std::vector<std::uint32_t> words{0, 0};
  if (entry) {
    const auto& index = entry->index();
    words = {1, 3, 6, 1, 2, 1, 4, 32, 1, 5};  // ipAddressPrefixOrigin
    words.push_back(index.ifIndex());
    words.push_back(static_cast<std::uint32_t>(index.version()));
    words.push_back(static_cast<std::uint32_t>(index.bytes().bytes()));
    for (const std::uint8_t byte : index.bytes().octets()) words.push_back(byte);
    words.push_back(index.length());
  }
  const std::size_t bytes = words.size() * sizeof(words.front());
  if (length < 0 || bytes > static_cast<std::size_t>(length)) return 0;
  std::memcpy(buffer, words.data(), bytes);
  return static_cast<int>(bytes);
}

Ip::IpVersion AsnIntegerToIpVersion(void* value) {
  return static_cast<Ip::IpVersion>(AsnIntegerToS32(value));
}
