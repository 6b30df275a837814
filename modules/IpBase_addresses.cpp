// The address tables of IP-MIB.

#include "conversions/SnmpConversions.h"
#include "modules/IpBase.h"

namespace {

using IpSnmp::InetAddress;
using IpSnmp::IpAddressPrefixKey;
using Modules::column;
using Modules::constantColumn;
using Modules::OrderedWalker;
using Modules::s32ToAsnInteger;

struct IpAddrRows {
  using Cache = IpSnmp::IpMib;
  using Row = IpSnmp::IpAddrEntry;
  using Key = Vantu::IpAddr;
  static const auto& collection(const Cache& cache) { return cache.ipAddrTable(); }
  static Key key(const Row& row) { return row.ipAdEntAddr(); }
};
using IpAddrRow = IpAddrRows::Row;

constexpr int ipAddrBcastBit = 0;
constexpr int ipAddrReasmMaxSize = 65535;  // bytes, the longest datagram

const auto ipAddrTable = Modules::makeIteratorTable<OrderedWalker<IpAddrRows>>(
    {.module = IpBase::module,
     .name = "ipAddrTable",
     .identifier = {1, 3, 6, 1, 2, 1, 4, 20},
     .modes = HANDLER_CAN_RONLY,
     .source = IpBase::ipMibSource()},
    Modules::Index(
        "Vantu::IpAddr", +[](const Vantu::IpAddr& addr) { return addr; },
        Modules::ipAddressIndex<Vantu::IpAddr>("ipAdEntAddr", "ipAdEntAddr",
                                               [](const Vantu::IpAddr& key) { return key; })),
    {column<IpAddrRow>(1, "ipAdEntAddr", ASN_IPADDRESS, Modules::vantuIpAddrToAsnOctetString, "ipAdEntAddr",
                       [](const IpAddrRow& row) { return row.ipAdEntAddr(); }),
     column<IpAddrRow>(2, "ipAdEntIfIndex", ASN_INTEGER, s32ToAsnInteger, "ipAdEntIfIndex",
                       [](const IpAddrRow& row) { return static_cast<int>(row.ipAdEntIfIndex()); }),
     column<IpAddrRow>(3, "ipAdEntNetMask", ASN_IPADDRESS, Modules::vantuIpAddrToAsnOctetString, "ipAdEntNetMask",
                       [](const IpAddrRow& row) { return row.ipAdEntNetMask(); }),
     constantColumn<IpAddrRow>(4, "ipAdEntBcastAddr", ipAddrBcastBit),
     constantColumn<IpAddrRow>(5, "ipAdEntReasmMaxSize", ipAddrReasmMaxSize)});

struct IpAddressPrefixRows {
  using Cache = IpSnmp::IpMib;
  using Row = IpSnmp::IpAddressPrefixEntry;
  using Key = IpAddressPrefixKey;
  static const auto& collection(const Cache& cache) { return cache.ipAddressPrefixTable(); }
  static const Key& key(const Row& row) { return row.index(); }
};
using IpAddressPrefixRow = IpAddressPrefixRows::Row;

// The index states which prefix is on which interface; nothing else is known of a prefix.
constexpr int originOther = 1;  // IpAddressPrefixOriginTC and IpAddressOriginTC
constexpr int truthTrue = 1, truthFalse = 2;
constexpr unsigned lifetimeInfinite = 4294967295;  // seconds

const auto ipAddressPrefixTable = Modules::makeIteratorTable<OrderedWalker<IpAddressPrefixRows>>(
    {.module = IpBase::module,
     .name = "ipAddressPrefixTable",
     .identifier = {1, 3, 6, 1, 2, 1, 4, 32},
     .modes = HANDLER_CAN_RONLY,
     .source = IpBase::ipMibSource()},
    Modules::Index(
        IpAddressPrefixKey::kelTypeName,
        +[](const unsigned& ifIndex, const Ip::IpVersion& version, const Snmp::String& bytes,
            const unsigned& length) { return IpAddressPrefixKey(ifIndex, version, bytes, length); },
        Modules::unsignedIntegerIndex<IpAddressPrefixKey>("ipAddressPrefixIfIndex", "ifIndex",
                                                          [](const auto& key) { return unsigned{key.ifIndex()}; }),
        Modules::ipVersionIndex<IpAddressPrefixKey>("ipAddressPrefixType", "version",
                                                    [](const auto& key) { return Ip::IpVersion{key.version()}; }),
        Modules::octetStringIndex<IpAddressPrefixKey>(
            "ipAddressPrefixPrefix", "bytes", [](const auto& key) -> const Snmp::String& { return key.bytes(); }),
        Modules::unsignedIndex<IpAddressPrefixKey>("ipAddressPrefixLength", "length",
                                                   [](const auto& key) { return unsigned{key.length()}; })),
    {constantColumn<IpAddressPrefixRow>(5, "ipAddressPrefixOrigin", originOther),
     constantColumn<IpAddressPrefixRow>(6, "ipAddressPrefixOnLinkFlag", truthTrue),
     constantColumn<IpAddressPrefixRow>(7, "ipAddressPrefixAutonomousFlag", truthFalse),
     column<IpAddressPrefixRow>(8, "ipAddressPrefixAdvPreferredLifetime", ASN_GAUGE, Modules::u32ToAsnUnsigned, "",
                                [](const auto&) { return lifetimeInfinite; }),
     column<IpAddressPrefixRow>(9, "ipAddressPrefixAdvValidLifetime", ASN_GAUGE, Modules::u32ToAsnUnsigned, "",
                                [](const auto&) { return lifetimeInfinite; })});

struct IpAddressRows {
  using Cache = IpSnmp::IpMib;
  using Row = IpSnmp::IpAddressEntry;
  using Key = InetAddress;
  static const auto& collection(const Cache& cache) { return cache.ipAddressTable(); }
  static const Key& key(const Row& row) { return row.index(); }
};
using IpAddressRow = IpAddressRows::Row;

constexpr int storageTypeOther = 1;
constexpr Kel::Seconds timeUnknown = 0;  // the times of creation and change are not recorded

constexpr Modules::Conversion<Kel::Ptr<const IpSnmp::IpAddressPrefixEntry>> ipAddressPrefixEntryToAsnOid{
    "IpAddressPrefixEntryToAsnOid", IpAddressPrefixEntryToAsnOid};

const auto ipAddressTable = Modules::makeIteratorTable<OrderedWalker<IpAddressRows>>(
    {.module = IpBase::module,
     .name = "ipAddressTable",
     .identifier = {1, 3, 6, 1, 2, 1, 4, 34},
     .modes = HANDLER_CAN_RWRITE,
     .source = IpBase::ipMibSource()},
    Modules::Index(
        InetAddress::kelTypeName,
        +[](const Ip::IpVersion& version, const Snmp::String& bytes) { return InetAddress(version, bytes); },
        Modules::ipVersionIndex<InetAddress>("ipAddressAddrType", "addrVersion",
                                             [](const auto& key) { return Ip::IpVersion{key.version()}; }),
        Modules::octetStringIndex<InetAddress>("ipAddressAddr", "addrBytes",
                                               [](const auto& key) -> const Snmp::String& { return key.bytes(); })),
    {column<IpAddressRow>(3, "ipAddressIfIndex", ASN_INTEGER, s32ToAsnInteger, "ifIndex",
                          [](const auto& row) { return static_cast<int>(row.ifIndex()); })
         .refusable(),
     column<IpAddressRow>(4, "ipAddressType", ASN_INTEGER, s32ToAsnInteger, "addressType",
                          [](const auto& row) { return int{row.addressType()}; })
         .refusable(),
     column<IpAddressRow>(5, "ipAddressPrefix", ASN_OBJECT_ID, ipAddressPrefixEntryToAsnOid, "prefixEntry",
                          [](const auto& row) { return row.prefixEntry(); }),
     constantColumn<IpAddressRow>(6, "ipAddressOrigin", originOther),
     column<IpAddressRow>(7, "ipAddressStatus", ASN_INTEGER, s32ToAsnInteger, "addressStatus",
                          [](const auto& row) { return int{row.addressStatus()}; })
         .refusable(),
     column<IpAddressRow>(8, "ipAddressCreated", ASN_TIMETICKS, Modules::nowSecondsToUptimeTimeTicks, "",
                          [](const auto&) { return timeUnknown; }),
     column<IpAddressRow>(9, "ipAddressLastChanged", ASN_TIMETICKS, Modules::nowSecondsToUptimeTimeTicks, "",
                          [](const auto&) { return timeUnknown; }),
     constantColumn<IpAddressRow>(10, "ipAddressRowStatus", IpBase::rowStatusActive).refusable(),
     constantColumn<IpAddressRow>(11, "ipAddressStorageType", storageTypeOther).refusable()});

}  // namespace

ITERATOR_TABLE(ipAddrTable, ipAddrTable)
ITERATOR_TABLE(ipAddressPrefixTable, ipAddressPrefixTable)
ITERATOR_TABLE(ipAddressTable, ipAddressTable)
