// The neighbour tables of IP-MIB.
//
// A row holds the key of a neighbour; each request reads the rest from the shared table. So a row may briefly outlive
// its neighbour, and the neighbour's record may be damaged. Such a row is answered from its key, with an empty physical
// address and the type of a dynamic neighbour. One bad record thus does not end a walk of the table, as an error would.
// Damage is reported to the shared table.

#include "conversions/SnmpConversions.h"
#include "ipsnmp/ArpTableIteratorConst.h"
#include "modules/IpBase.h"

namespace {

using Arp::Table::ArpEntry;
using IpSnmp::ArpTableIndex;
using IpSnmp::IpNetToPhysicalTableIndex;
using Modules::column;
using Modules::s32ToAsnInteger;

// The neighbour of a row in the shared table; an entry that does not exist if it is deleted or damaged.
template <class Row>
ArpEntry sharedEntry(const Row& row) {
  try {
    return row.arpEntry();
  } catch (const Pesk::CorruptionDetectedException& error) {
    row.arpQuillo()->corruptionDetected(error);
    return {};
  }
}

// The same, but always with the row's address, which determines the type.
ArpEntry addressedEntry(const IpSnmp::IpNetToPhysicalTableEntry& row) {
  auto entry = sharedEntry(row);
  if (!entry.exists()) entry.key.addr = row.ipGenAddr();
  return entry;
}

constexpr Modules::Conversion<const ArpEntry&> ethAddrToAsnOctetString{
    Modules::vantuEthAddrToAsnOctetString.name, [](const ArpEntry& entry, unsigned char* buffer, int length) {
      return entry.exists() ? VantuEthAddrToAsnOctetStringF(entry.ethAddr, buffer, length) : 0;
    }};
constexpr Modules::Conversion<const Arp::ArpEntryStatus&> arpEntryStaticToAsnInteger{"ArpEntryStaticToAsnInteger",
                                                                                     ArpEntryStaticToAsnInteger};
constexpr Modules::Conversion<const ArpEntry&> physicalTypeToAsnInteger{"PhysicalTypeToAsnInteger",
                                                                        PhysicalTypeToAsnInteger};
constexpr Modules::Conversion<const Ip::IpVersion&> physicalStateToAsnInteger{"PhysicalStateToAsnInteger",
                                                                              PhysicalStateToAsnInteger};

constexpr int physAddressLimit = Modules::ColumnBase::maxBufferLength;
constexpr const char* limitedEntity = "snmp/ip/ipmib";

class ArpWalker {
 public:
  using Cache = IpSnmp::IpMib;
  using Row = IpSnmp::ArpTableEntry;
  using Key = ArpTableIndex;

  explicit ArpWalker(Kel::Ptr<const Cache> cache) : at_(std::move(cache)) {}
  ArpWalker(Kel::Ptr<const Cache> cache, const Key& key) : at_(std::move(cache), key) {
    if (isAtEnd()) at_.fetch(key, true);
  }
  bool isAtEnd() const { return !at_.curEntry(); }
  const Row& row() const { return *at_.curEntry(); }
  const Key& key() const { return row().index(); }
  void advance() {
    if (!isAtEnd()) at_.fetch(Key(key()), true);
  }

 private:
  IpSnmp::IpMib::ArpTableIteratorConst at_;
};
using ArpRow = ArpWalker::Row;

const auto ipNetToMediaTable = Modules::makeIteratorTable<ArpWalker>(
    {.module = IpBase::module,
     .name = "ipNetToMediaTable",
     .identifier = {1, 3, 6, 1, 2, 1, 4, 22},
     .modes = HANDLER_CAN_RWRITE,
     .source = IpBase::ipMibSource(),
     .miscountedHintIsTraced = true},
    Modules::Index(
        ArpTableIndex::kelTypeName,
        +[](const unsigned& ifIndex, const Vantu::IpAddr& addr) { return ArpTableIndex(ifIndex, addr); },
        Modules::unsignedIntegerIndex<ArpTableIndex>("ipNetToMediaIfIndex", "ifIndex",
                                                     [](const auto& key) { return unsigned{key.ifIndex()}; }),
        Modules::ipAddressIndex<ArpTableIndex>("ipNetToMediaNetAddress", "netAddress",
                                               [](const auto& key) { return Vantu::IpAddr(key.ipAddr()); })),
    {column<ArpRow>(1, "ipNetToMediaIfIndex", ASN_INTEGER, s32ToAsnInteger, "ifIndex",
                    [](const auto& row) { return static_cast<int>(row.ifIndex()); })
         .refusable(),
     column<ArpRow>(2, "ipNetToMediaPhysAddress", ASN_OCTET_STR, ethAddrToAsnOctetString, "physAddress",
                    [](const auto& row) { return sharedEntry(row); })
         .limitedTo(physAddressLimit, limitedEntity)
         .refusable(),
     column<ArpRow>(3, "ipNetToMediaNetAddress", ASN_IPADDRESS, Modules::vantuIpAddrToAsnOctetString, "netAddress",
                    [](const auto& row) { return row.netAddress(); })
         .refusable(),
     column<ArpRow>(4, "ipNetToMediaType", ASN_INTEGER, arpEntryStaticToAsnInteger, "arpEntry",
                    [](const auto& row) { return sharedEntry(row).status; })
         .refusable()});

struct IpNetToPhysicalRows {
  using Cache = IpSnmp::IpMib;
  using Row = IpSnmp::IpNetToPhysicalTableEntry;
  using Key = IpNetToPhysicalTableIndex;
  static const auto& collection(const Cache& cache) { return cache.ipNetToPhysicalTable(); }
  static const Key& key(const Row& row) { return row.index(); }
};
using PhysicalRow = IpNetToPhysicalRows::Row;

const auto ipNetToPhysicalTable = Modules::makeIteratorTable<Modules::OrderedWalker<IpNetToPhysicalRows>>(
    {.module = IpBase::module,
     .name = "ipNetToPhysicalTable",
     .identifier = {1, 3, 6, 1, 2, 1, 4, 35},
     .modes = HANDLER_CAN_RWRITE,
     .source = IpBase::ipMibSource(),
     .miscountedHintIsTraced = true},
    Modules::Index(
        IpNetToPhysicalTableIndex::kelTypeName,
        +[](const unsigned& ifIndex, const Ip::IpVersion& version, const Snmp::String& bytes) {
          return IpNetToPhysicalTableIndex(ifIndex, version, bytes);
        },
        Modules::unsignedIntegerIndex<IpNetToPhysicalTableIndex>(
            "ipNetToPhysicalIfIndex", "ifIndex", [](const auto& key) { return unsigned{key.ifIndex()}; }),
        Modules::ipVersionIndex<IpNetToPhysicalTableIndex>(
            "ipNetToPhysicalNetAddressType", "inetAddressType",
            [](const auto& key) { return Ip::IpVersion{key.addr().version()}; }),
        Modules::octetStringIndex<IpNetToPhysicalTableIndex>(
            "ipNetToPhysicalNetAddress", "inetAddress",
            [](const auto& key) -> const Snmp::String& { return key.addr().bytes(); })),
    {column<PhysicalRow>(4, "ipNetToPhysicalPhysAddress", ASN_OCTET_STR, ethAddrToAsnOctetString, "physAddress",
                         [](const auto& row) { return sharedEntry(row); })
         .limitedTo(physAddressLimit, limitedEntity)
         .refusable(),
     column<PhysicalRow>(5, "ipNetToPhysicalLastUpdated", ASN_TIMETICKS, Modules::nowSecondsToUptimeTimeTicks,
                         "lastUpdated", [](const auto& row) { return row.lastUpdated(); }),
     column<PhysicalRow>(6, "ipNetToPhysicalType", ASN_INTEGER, physicalTypeToAsnInteger, "arpEntry",
                         addressedEntry)
         .refusable(),
     column<PhysicalRow>(7, "ipNetToPhysicalState", ASN_INTEGER, physicalStateToAsnInteger, "inetAddressType",
                         [](const auto& row) { return row.inetAddressType(); }),
     column<PhysicalRow>(8, "ipNetToPhysicalRowStatus", ASN_INTEGER, s32ToAsnInteger, "", [](const auto&) {
       return IpBase::rowStatusActive;
     }).refusable()});

}  // namespace

ITERATOR_TABLE(ipNetToMediaTable, ipNetToMediaTable)
ITERATOR_TABLE(ipNetToPhysicalTable, ipNetToPhysicalTable)
