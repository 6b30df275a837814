#pragma once
// Converts the sub-identifiers of a GETNEXT, which may be any numbers, to the nearest complete index of a sorted table.
// No row is between the requested sub-identifiers and that index.
//
// A manager may ask for the row after half an index, after an index that is too long, or after an address byte of 300.
// next() returns the components of the nearest complete index, one after the other. A missing component is the lowest
// value of its type. From a number above the range of its type on, all components are the highest values of their
// types.
//
//   IndexFloor floor(asked);
//   auto* first = floor.next(ASN_INTEGER);
//   auto* second = floor.next(ASN_IPADDRESS);

#include <array>
#include <span>

#include "modules/frame/NetSnmp.h"

namespace Modules {

class IndexFloor {
 public:
  // `asked`: the sub-identifiers after the column. Lifetime: they must outlive this object.
  explicit IndexFloor(std::span<const oid> asked) : rest_(asked) {}

  // Returns the next component. Requires: a type that tables are registered with (ASN_IPADDRESS, ASN_OCTET_STR,
  // ASN_OBJECT_ID or a numeric one). Lifetime: until the next call.
  netsnmp_variable_list* next(u_char asnType);
  // Replaces the number that next() has just returned by the highest one. Call it if that number is above the range of
  // the component.
  netsnmp_variable_list* highestInstead();

  // Whether the next component begins with a requested sub-identifier.
  bool hasMore() const { return reading_ == Reading::asAsked && !rest_.empty(); }
  // Whether the components are exactly the requested sub-identifiers.
  bool isExact() const { return reading_ == Reading::asAsked && rest_.empty(); }
  // Whether a number was above the range of its type, so that no row can have the requested index.
  bool isCapped() const { return reading_ == Reading::highest; }

 private:
  enum class Reading { asAsked, lowest, highest };

  oid taken(oid most);
  void numberIs(oid number);
  void setOctets(std::size_t count);
  void setWords(std::size_t count);

  std::span<const oid> rest_;
  Reading reading_ = Reading::asAsked;
  netsnmp_variable_list value_;  // only type and value are initialized: the rest is a kilobyte
  long number_ = 0;
  std::array<u_char, MAX_OID_LEN> octets_;  // a longer string does not fit an index
  std::array<oid, MAX_OID_LEN> words_;
};

}  // namespace Modules
