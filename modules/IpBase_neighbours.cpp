// The neighbour tables of IP-MIB.
//
// A row holds the key of a neighbour; each request reads the rest from the shared table. So a row may briefly outlive
// its neighbour, and the neighbour's record may be damaged or the whole table unreadable. Such a row has no instance of
// the columns that need the record, which ends no walk. Only ipNetToMediaType of a damaged record has a default, the
// type of a dynamic neighbour. Damage is reported to the shared table.

#include "conversions/SnmpConversions.h"
#include "ipsnmp/ArpTableIteratorConst.h"
#include "modules/IpBase.h"

namespace {

using Arp::Table::ArpEntry;
using IpSnmp::ArpTableIndex;
using IpSnmp::IpNetToPhysicalTableIndex;
using Modules::column;
using Modules::s32ToAsnInteger;

// The neighbour of a row in the shared table. None if it is deleted or cannot be read; `ifDamaged` for a damaged record.
template <class Row>
std::optional<ArpEntry> sharedEntry(const Row& row, const std::optional<ArpEntry>& ifDamaged = std::nullopt) {
  try {
    auto entry = row.arpEntry();
    return entry.exists() ? std::optional(std::move(entry)) : std::nullopt;
  } catch (const Pesk::CorruptionDetectedException& error) {
    row.arpQuillo()->corruptionDetected(error);
    return ifDamaged;
  } catch (const Quillo::StoreException&) {
    return std::nullopt;  // the follower of the store reports it
  }
}

template <class Row>
std::optional<Vantu::EthAddr> physAddress(const Row& row) {
  const auto entry = sharedEntry(row);
  return entry ? std::optional(entry->ethAddr) : std::nullopt;
}

std::optional<Arp::ArpEntryStatus> mediaStatus(const IpSnmp::ArpTableEntry& row) {
  const auto entry = sharedEntry(row, ArpEntry());
  return entry ? std::optional(entry->status) : std::nullopt;
}

// A link-local address alone determines the type.
std::optional<ArpEntry> physicalEntry(const IpSnmp::IpNetToPhysicalTableEntry& row) {
  if (!row.ipGenAddr().isLinkLocal()) return sharedEntry(row);
  ArpEntry entry;
  entry.key.addr = row.ipGenAddr();
  return entry;
}

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
     .miscountedHintIsTraced = true,
     .readsStore = true},
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
     column<ArpRow>(2, "ipNetToMediaPhysAddress", ASN_OCTET_STR, Modules::vantuEthAddrToAsnOctetString,
                    "physAddress", physAddress<ArpRow>)
         .limitedTo(physAddressLimit, limitedEntity)
         .refusable(),
     column<ArpRow>(3, "ipNetToMediaNetAddress", ASN_IPADDRESS, Modules::vantuIpAddrToAsnOctetString, "netAddress",
                    [](const auto& row) { return row.netAddress(); })
         .refusable(),
     column<ArpRow>(4, "ipNetToMediaType", ASN_INTEGER, arpEntryStaticToAsnInteger, "arpEntry", mediaStatus)
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
     .miscountedHintIsTraced = true,
     .readsStore = true},
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
    {column<PhysicalRow>(4, "ipNetToPhysicalPhysAddress", ASN_OCTET_STR, Modules::vantuEthAddrToAsnOctetString,
                         "physAddress", physAddress<PhysicalRow>)
         .limitedTo(physAddressLimit, limitedEntity)
         .refusable(),
     column<PhysicalRow>(5, "ipNetToPhysicalLastUpdated", ASN_TIMETICKS, Modules::nowSecondsToUptimeTimeTicks,
                         "lastUpdated", [](const auto& row) { return row.lastUpdated(); }),
     column<PhysicalRow>(6, "ipNetToPhysicalType", ASN_INTEGER, physicalTypeToAsnInteger, "arpEntry", physicalEntry)
         .refusable(),
     column<PhysicalRow>(7, "ipNetToPhysicalState", ASN_INTEGER, physicalStateToAsnInteger, "inetAddressType",
                         [](const auto& row) { return row.inetAddressType(); }),
     column<PhysicalRow>(8, "ipNetToPhysicalRowStatus", ASN_INTEGER, s32ToAsnInteger, "", [](const auto&) {
       return IpBase::rowStatusActive;
     }).refusable()});

}  // namespace

ITERATOR_TABLE(ipNetToMediaTable, ipNetToMediaTable)
ITERATOR_TABLE(ipNetToPhysicalTable, ipNetToPhysicalTable)
