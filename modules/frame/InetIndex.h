#pragma once
// The index component of an address family.

#include "conversions/SnmpConversions.h"
#include "modules/frame/Index.h"

namespace Modules {

// An InetAddressType (RFC 4001). One that no version has may stand in a hint; no row has it.
template <class Key>
IndexComponent<Key, Ip::IpVersion> ipVersionIndex(const char* object, const char* attribute,
                                                  Ip::IpVersion (*fromKey)(const Key&)) {
  return {object,
          attribute,
          ASN_INTEGER,
          ASN_INTEGER,
          [](netsnmp_variable_list* value) { return AsnIntegerToIpVersion(value); },
          fromKey,
          [](const Ip::IpVersion& part, unsigned char* buffer, int length) {
            return part < 0 ? -1 : S32ToAsnIntegerF(part, buffer, length);
          }};
}

}  // namespace Modules
