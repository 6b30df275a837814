#pragma once
// The rows of the address tables: ipAddressPrefixTable, ipAddressTable and ipAddrTable.

#include "ipsnmp/IpMibKeys.h"
#include "kel/Attribute.h"
#include "vantu/IpAddr.h"

namespace IpSnmp {

// Where an address comes from, in order of precedence: the lowest source that holds an address decides its row.
enum AddressSource : int {
  addressSourceStatus = 0,   // in the interface's operational IP status
  addressSourceConfig = 1,   // only configured
  addressSourceBorrowed = 2  // borrowed from another interface (unnumbered)
};
BOOST_DESCRIBE_ENUM(AddressSource, addressSourceStatus, addressSourceConfig, addressSourceBorrowed)

// As IpAddressStatusTC (RFC 4293), served unchanged.
enum AddressStatus : int { addressStatusPreferred = 1, addressStatusInaccessible = 4 };
BOOST_DESCRIBE_ENUM(AddressStatus, addressStatusPreferred, addressStatusInaccessible)

// As ipAddressType (RFC 4293), served unchanged.
enum AddressType : int { addressTypeUnicast = 1, addressTypeAnycast = 2, addressTypeBroadcast = 3 };
BOOST_DESCRIBE_ENUM(AddressType, addressTypeUnicast, addressTypeAnycast, addressTypeBroadcast)

// One row of ipAddressPrefixTable; every column is derived from the key.
class IpAddressPrefixEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::IpAddressPrefixEntry", IpAddressPrefixEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(IpAddressPrefixEntry, ((IpSnmp::IpAddressPrefixKey, index)))
  KEL_TYPE_END_DECLARE
};

// The source and interface of an address. The lowest key of an address decides its row.
class IntfDataKey {
  KEL_VALUE_TYPE("IpSnmp::IntfDataKey", IntfDataKey, ((IpSnmp::AddressSource, source))((Vantu::IntfId, intfId)))
};

// An interface that holds an address, with the prefix row that it contributes. Compares by key alone.
class IntfData {
 public:
  static constexpr const char* kelTypeName = "IpSnmp::IntfData";
  IntfData() = default;
  IntfData(IntfDataKey key, Kel::Ptr<IpAddressPrefixEntry> prefixEntry)
      : key_(std::move(key)), prefixEntry_(std::move(prefixEntry)) {}

  const IntfDataKey& key() const { return key_; }
  const Kel::Ptr<IpAddressPrefixEntry>& prefixEntry() const { return prefixEntry_; }
  std::uint32_t ifIndex() const { return prefixEntry_ ? prefixEntry_->index().ifIndex() : 0; }

  friend bool operator==(const IntfData& a, const IntfData& b) { return a.key_ == b.key_; }
  friend auto operator<=>(const IntfData& a, const IntfData& b) { return a.key_ <=> b.key_; }

  // Reflection by hand: KEL_VALUE_TYPE would compare every field.
  void kelForEachField(auto&& visit) const {
    visit("key", key_);
    visit("prefixEntry", prefixEntry_);
  }
  static IntfData kelFromFields(auto&& read) {
    return {read("key", std::type_identity<IntfDataKey>{}),
            read("prefixEntry", std::type_identity<Kel::Ptr<IpAddressPrefixEntry>>{})};
  }

 private:
  IntfDataKey key_;
  Kel::Ptr<IpAddressPrefixEntry> prefixEntry_;
};

// One address of ipAddressTable, shared by every interface that holds it. The computed attributes read the first
// member of `intf`, so an entry must not stay in the table with an empty `intf`.
class IpAddressEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::IpAddressEntry", IpAddressEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(IpAddressEntry, ((IpSnmp::InetAddress, index)))
  const Ip::IpVersion& addrVersion() const { return index().version(); }
  const Snmp::String& addrBytes() const { return index().bytes(); }
  KEL_COMPUTED(addrVersion)
  KEL_COMPUTED(addrBytes)

  // A member keeps its prefix entry: adding its key again is a no-op.
  KEL_VALUES(Ordered, IntfDataKey, IntfData, intf, Intf)
  void intfIs(const IntfData& data) { intfIs(data.key(), data); }

  // That of the first member; null without members.
  Kel::Ptr<IpAddressPrefixEntry> prefixEntry() const;
  // 0 without members, or when the first one has no prefix entry.
  std::uint32_t ifIndex() const;
  AddressType addressType() const { return addressTypeUnicast; }
  // Follows from the source of the first member alone: inaccessible for addressSourceConfig, otherwise preferred.
  // Members sort by source, so an address that is both configured and borrowed is inaccessible. Aborts without members.
  AddressStatus addressStatus() const;
  // The IPv4 address. Aborts for an entry of another version.
  Vantu::IpAddr ipAdEntAddr() const;

  KEL_COMPUTED(prefixEntry)
  KEL_COMPUTED(ifIndex)
  KEL_COMPUTED(addressType)
  KEL_COMPUTED_WHEN(addressStatus, intf().empty() == false)
  KEL_COMPUTED_WHEN(ipAdEntAddr, addrVersion() == Ip::ipVersion4)
  KEL_TYPE_END_DECLARE
};

// One row of the IPv4-only ipAddrTable, a view of its master entry.
class IpAddrEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::IpAddrEntry", IpAddrEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(IpAddrEntry, ((Kel::Ptr<IpSnmp::IpAddressEntry>, masterEntry)))
  static Vantu::IpAddr kelKeyOf(const Kel::Ptr<IpAddressEntry>& masterEntry) { return masterEntry->ipAdEntAddr(); }

  Vantu::IpAddr ipAdEntAddr() const { return masterEntry()->ipAdEntAddr(); }
  // 0 without a master entry.
  std::uint32_t ipAdEntIfIndex() const { return masterEntry() ? masterEntry()->ifIndex() : 0; }
  // 0.0.0.0 without a prefix entry.
  Vantu::IpAddr ipAdEntNetMask() const;

  KEL_COMPUTED(ipAdEntAddr)
  KEL_COMPUTED(ipAdEntIfIndex)
  KEL_COMPUTED(ipAdEntNetMask)
  KEL_TYPE_END_DECLARE
};

}  // namespace IpSnmp
