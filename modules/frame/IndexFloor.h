#pragma once
// The place in a sorted table of any sub-identifiers, which need not be a complete index, nor one that a row can have.
//
// A manager may ask for the row after half an index, after an index that is too long, or after an address byte of 300.
// Read as components one after the other, the sub-identifiers give the nearest complete index: no row has an index
// between the two. A missing component counts as the lowest of its kind. After a number above the range of its kind,
// that component and all later ones count as the highest.
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
  // `asked`: the sub-identifiers after the column, which must outlive this.
  explicit IndexFloor(std::span<const oid> asked) : rest_(asked) {}

  // Returns the next component. Requires: a type that tables are registered with, ASN_IPADDRESS, ASN_OCTET_STR or
  // that of a number. Lifetime: until the next call.
  netsnmp_variable_list* next(u_char asnType);
  // Replaces the number just returned, when it is above the range of its component.
  netsnmp_variable_list* highestInstead();

  // The components are exactly the sub-identifiers that were asked.
  bool isExact() const { return reading_ == Reading::asAsked && rest_.empty(); }
  // The components are below what was asked, which no row can have.
  bool isCapped() const { return reading_ == Reading::highest; }

 private:
  enum class Reading { asAsked, lowest, highest };

  oid taken(oid most);
  void numberIs(oid number);
  void octetsAre(std::size_t count);

  std::span<const oid> rest_;
  Reading reading_ = Reading::asAsked;
  netsnmp_variable_list value_;  // type and value alone are set: the rest is a kilobyte
  long number_ = 0;
  std::array<u_char, MAX_OID_LEN> octets_;  // a longer string does not fit an index
};

}  // namespace Modules
