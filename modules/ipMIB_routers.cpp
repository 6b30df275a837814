// ipDefaultRouterTable of IP-MIB: the gateways of a VRF's default routes.

#include <algorithm>
#include <cmath>

#include "modules/ipMIB.h"

namespace {

using IpSnmp::DefaultRouterIndex;

constexpr unsigned longestLifetime = 65535;  // seconds; also that of a router without an end

struct DefaultRouterRows {
  using Cache = IpSnmp::IpMib;
  using Row = IpSnmp::IpDefaultRouterEntry;
  using Key = DefaultRouterIndex;
  static const auto& collection(const Cache& cache) { return cache.ipDefaultRouterTable(); }
  static const Key& key(const Row& row) { return row.index(); }
};
using DefaultRouterRow = DefaultRouterRows::Row;

unsigned lifetimeOf(const DefaultRouterRow& row) {
  if (row.expires() == 0) return longestLifetime;
  const auto left = std::ceil(row.expires() - Kel::System::currentTime());
  return static_cast<unsigned>(std::clamp(left, 0.0, double{longestLifetime}));
}

const auto ipDefaultRouterTable = Modules::makeIteratorTable<Modules::OrderedWalker<DefaultRouterRows>>(
    {.module = IpMibObjects::module,
     .name = "ipDefaultRouterTable",
     .identifier = {1, 3, 6, 1, 2, 1, 4, 37},
     .modes = HANDLER_CAN_RONLY,
     .source = IpMibObjects::source(),
     .group = IpMibObjects::group},
    Modules::Index(
        DefaultRouterIndex::kelTypeName,
        +[](const Ip::IpVersion& version, const Snmp::String& bytes, const unsigned& ifIndex) {
          return DefaultRouterIndex(IpSnmp::InetAddress(version, bytes), ifIndex);
        },
        Modules::ipVersionIndex<DefaultRouterIndex>(
            "ipDefaultRouterAddressType", "version",
            [](const auto& key) { return Ip::IpVersion{key.addr().version()}; }),
        Modules::octetStringIndex<DefaultRouterIndex>(
            "ipDefaultRouterAddress", "bytes",
            [](const auto& key) -> const Snmp::String& { return key.addr().bytes(); }),
        Modules::unsignedIntegerIndex<DefaultRouterIndex>("ipDefaultRouterIfIndex", "ifIndex",
                                                          [](const auto& key) { return unsigned{key.ifIndex()}; })),
    {Modules::column<DefaultRouterRow>(4, "ipDefaultRouterLifetime", ASN_UNSIGNED, Modules::u32ToAsnUnsigned,
                                       "expires", lifetimeOf),
     Modules::column<DefaultRouterRow>(5, "ipDefaultRouterPreference", ASN_INTEGER, Modules::s32ToAsnInteger,
                                       "preference", [](const auto& row) { return int{row.preference()}; })});

}  // namespace

ITERATOR_TABLE(ipDefaultRouterTable, ipDefaultRouterTable)
