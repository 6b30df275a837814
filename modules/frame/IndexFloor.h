#pragma once
// Where in a sorted table an index lies that need not be a whole one, nor one that a row could have.
//
// A manager may ask for the row after any sub-identifiers: half an index, one that is too long, an address byte of
// 300. Read as components one after the other, they give the complete index that lies nearest: none that a row has
// lies between the two. What is missing counts as the lowest of its kind; from a number on that is more than its
// kind takes, everything counts as the highest.
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
  // The sub-identifiers behind the column. They must outlive this.
  explicit IndexFloor(std::span<const oid> asked) : rest_(asked) {}

  // The next component, of a type as tables are registered with: ASN_IPADDRESS, ASN_OCTET_STR, or a number. Good
  // until the next call.
  netsnmp_variable_list* next(u_char asnType);
  // In the place of a number that was just given and is more than its component takes.
  netsnmp_variable_list* highestInstead();

  // What was read is, to the last sub-identifier, what was asked.
  bool isExact() const { return reading_ == Reading::asAsked && rest_.empty(); }
  // What was read lies below what was asked, as no row can have that.
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
