#pragma once
// The index of a table: the components at the end of a row's OID. Reads them from the OID of a request (the hint), and
// writes them from a row's key.
//
//   const Index index{"IpSnmp::ArpTableIndex",
//                     [](const unsigned& ifIndex, const Vantu::IpAddr& addr) { return ArpTableIndex(...); },
//                     unsignedIntegerIndex<ArpTableIndex>("ipNetToMediaIfIndex", "ifIndex", ifIndexOf),
//                     ipAddressIndex<ArpTableIndex>("ipNetToMediaNetAddress", "netAddress", netAddressOf)};

#include <algorithm>
#include <cstring>
#include <optional>
#include <ostream>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

#include "conversions/SnmpConversions.h"
#include "kel/Errors.h"
#include "kel/Trace.h"
#include "modules/frame/NetSnmp.h"
#include "snmp/Conversions.h"
#include "snmp/Varbind.h"

namespace Modules {

// The type in which a part of a key is read: a reference where a copy would allocate memory for every row.
template <class Part>
using PartOfKey = std::conditional_t<std::is_trivially_copyable_v<Part>, Part, const Part&>;

// How a part is read from the OID of a request, and written into that of a row.
template <class Part>
struct IndexType {
  unsigned char asnType;         // as registered, and required of a hint
  unsigned char writtenType;     // in the index of a row
  Part (*fromAsn)(void* value);  // of a netsnmp_variable_list; throws Kel::RangeException
  int (*toAsn)(const Part& part, unsigned char* buffer, int length);
};

// Negative numbers are not served: a sub-identifier has no sign.
inline constexpr IndexType<int> integerIndexType{ASN_INTEGER, ASN_INTEGER, AsnIntegerToS32,
                                                 [](const int& part, unsigned char* buffer, int length) {
                                                   return part < 0 ? -1 : S32ToAsnIntegerF(part, buffer, length);
                                                 }};

inline constexpr IndexType<unsigned> unsignedIndexType{ASN_UNSIGNED, ASN_UNSIGNED, AsnUnsignedToU32,
                                                       [](const unsigned& part, unsigned char* buffer, int length) {
                                                         return U32ToAsnUnsignedF(part, buffer, length);
                                                       }};

// An INTEGER whose part is unsigned, such as an interface index, is written as an unsigned number. From 2^31 on,
// net-snmp would extend the sign of an INTEGER and sort the row by 64 bits, while the answer carries 32 of them. A walk
// would then get the same row again and again.
inline constexpr IndexType<unsigned> unsignedIntegerIndexType{ASN_INTEGER, ASN_UNSIGNED, AsnIntegerToU32,
                                                              unsignedIndexType.toAsn};

// Written as an implied octet string, which also takes four sub-identifiers: net-snmp 5.9 assumes host order for an
// IpAddress in an index, and would reverse the address.
inline constexpr IndexType<Vantu::IpAddr> ipAddressIndexType{
    ASN_IPADDRESS, ASN_PRIV_IMPLIED_OCTET_STR, AsnIpAddressToVantuIpAddr, VantuIpAddrToAsnOctetStringF};

inline constexpr IndexType<Snmp::String> octetStringIndexType{
    ASN_OCTET_STR, ASN_OCTET_STR,
    [](void* value) {
      return AsnOctetStringToSnmpString(value,
                                        static_cast<int>(static_cast<netsnmp_variable_list*>(value)->val_len));
    },
    SnmpStringToAsnOctetStringF};

inline constexpr IndexType<Snmp::ObjectIdentifier> objectIdentifierIndexType{
    ASN_OBJECT_ID, ASN_OBJECT_ID, AsnOidToSnmpObjectIdentifier, SnmpObjectIdentifierToAsnOidF};

// An InetAddressType (RFC 4001). Hints may contain unknown versions; rows do not.
inline constexpr IndexType<Ip::IpVersion> ipVersionIndexType{
    ASN_INTEGER, ASN_INTEGER, AsnIntegerToIpVersion,
    [](const Ip::IpVersion& part, unsigned char* buffer, int length) {
      return integerIndexType.toAsn(part, buffer, length);
    }};

// One component of a key of type Key; Part is its C++ type.
template <class Key, class Part>
struct IndexComponent : IndexType<Part> {
  const char* object;     // of the MIB; for hints
  const char* attribute;  // for traces of rows
  PartOfKey<Part> (*fromKey)(const Key& key);
};

// Defines the function that makes a component of a key from its object, its attribute and its accessor.
#define INDEX_COMPONENT(Part, name)                                         \
  template <class Key>                                                      \
  IndexComponent<Key, Part> name(const char* object, const char* attribute, \
                                 PartOfKey<Part> (*fromKey)(const Key&)) {  \
    return {name##Type, object, attribute, fromKey};                        \
  }
INDEX_COMPONENT(int, integerIndex)
INDEX_COMPONENT(unsigned, unsignedIndex)
INDEX_COMPONENT(unsigned, unsignedIntegerIndex)
INDEX_COMPONENT(Vantu::IpAddr, ipAddressIndex)
INDEX_COMPONENT(Snmp::String, octetStringIndex)
INDEX_COMPONENT(Snmp::ObjectIdentifier, objectIdentifierIndex)
INDEX_COMPONENT(Ip::IpVersion, ipVersionIndex)
#undef INDEX_COMPONENT

template <class KeyType, class... Parts>
class Index {
 public:
  using Key = KeyType;
  using PartsTuple = std::tuple<Parts...>;
  static constexpr std::size_t size = sizeof...(Parts);

  // `keyType` names the type in traces. `makeKey` may throw Kel::RangeException.
  Index(const char* keyType, KeyType (*makeKey)(const Parts&...), IndexComponent<KeyType, Parts>... components)
      : keyType_(keyType), makeKey_(makeKey), components_(std::move(components)...) {}

  const char* keyType() const { return keyType_; }

  // Calls visit(component) for each component, in order.
  template <class Visit>
  void forEach(Visit&& visit) const {
    std::apply([&](const auto&... component) { (visit(component), ...); }, components_);
  }

  // Reads the parts from a chain of index values with `read(component, value, part, position)`, where `value` is null
  // after the end of the chain. None if `read` returns false.
  template <class Read>
  std::optional<PartsTuple> parts(netsnmp_variable_list* chain, Read&& read) const {
    PartsTuple parts;
    netsnmp_variable_list* value = chain;
    const auto readOne = [&]<std::size_t At>(std::integral_constant<std::size_t, At>) {
      const bool isRead = read(std::get<At>(components_), value, std::get<At>(parts), At);
      if (value != nullptr) value = value->next_variable;
      return isRead;
    };
    const bool isComplete = [&]<std::size_t... At>(std::index_sequence<At...>) {
      return (readOne(std::integral_constant<std::size_t, At>{}) && ...);
    }
    (std::index_sequence_for<Parts...>{});
    return isComplete ? std::optional(std::move(parts)) : std::nullopt;
  }

  // The key of these parts. Throws Kel::RangeException as makeKey.
  Key key(const PartsTuple& parts) const { return std::apply(makeKey_, parts); }

  // Writes the key into the chain; components without a variable in the chain are left out. Returns false if a value
  // cannot be encoded, or the index would take more than `room` sub-identifiers.
  bool write(const Key& key, netsnmp_variable_list* chain, std::size_t room) const {
    return forEachEncoded(key, room, [&](unsigned char asnType, const unsigned char* bytes, int length) {
      if (chain == nullptr) return true;
      const bool isWritten = Snmp::setVarbindValue(chain, asnType, bytes, length);
      chain = chain->next_variable;
      return isWritten;
    });
  }

  // Writes the key as sub-identifiers (RFC 2578, 7.7), and returns their number. 0 if a value cannot be encoded, or
  // they do not fit.
  std::size_t write(const Key& key, std::span<oid> to) const {
    auto* end = to.data();
    const bool isWritten =
        forEachEncoded(key, to.size(), [&](unsigned char asnType, const unsigned char* bytes, int length) {
          if (asnType == ASN_OCTET_STR) *end++ = static_cast<oid>(length);
          if (asnType == ASN_OCTET_STR || asnType == ASN_PRIV_IMPLIED_OCTET_STR) {
            end = std::copy_n(bytes, length, end);
          } else if (asnType == ASN_OBJECT_ID) {
            *end++ = static_cast<oid>(length) / sizeof(std::uint32_t);
            for (const auto* const last = bytes + length; bytes != last; bytes += sizeof(std::uint32_t)) {
              std::uint32_t word = 0;
              std::memcpy(&word, bytes, sizeof(word));
              *end++ = word;
            }
          } else {
            std::uint32_t number = 0;
            std::memcpy(&number, bytes, sizeof(number));
            *end++ = number;
          }
          return true;
        });
    return isWritten ? static_cast<std::size_t>(end - to.data()) : 0;
  }

 private:
  // Passes each component as encoded to `take(asnType, bytes, length)`, until one returns false, cannot be encoded or
  // does not fit in `room` sub-identifiers. Returns whether none did.
  template <class Take>
  bool forEachEncoded(const Key& key, std::size_t room, Take&& take) const {
    bool isWritten = true;
    forEach([&](const auto& component) {
      if (!isWritten) return;
      unsigned char buffer[1024];
      const int length = component.toAsn(component.fromKey(key), buffer, sizeof(buffer));
      const std::size_t taken = subIdentifiers(component.writtenType, length);
      isWritten = length >= 0 && taken <= room && take(component.writtenType, buffer, length);
      room -= taken;
    });
    return isWritten;
  }

  // The number of sub-identifiers that a value takes in an OID.
  static std::size_t subIdentifiers(unsigned char asnType, int length) {
    const auto bytes = static_cast<std::size_t>(std::max(length, 0));
    switch (asnType) {
      case ASN_OCTET_STR:
        return bytes + 1;  // the length is the first
      case ASN_OBJECT_ID:
        return bytes / sizeof(std::uint32_t) + 1;
      case ASN_PRIV_IMPLIED_OCTET_STR:
        return bytes;
      default:
        return 1;
    }
  }

  const char* keyType_;
  Key (*makeKey_)(const Parts&...);
  std::tuple<IndexComponent<Key, Parts>...> components_;
};

}  // namespace Modules
