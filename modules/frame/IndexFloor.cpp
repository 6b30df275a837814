#include "modules/frame/IndexFloor.h"

#include <cstdint>
#include <limits>

namespace Modules {

namespace {

constexpr std::size_t addressOctets = 4;
constexpr oid mostOctet = 255;

}  // namespace

netsnmp_variable_list* IndexFloor::next(u_char asnType) {
  value_.type = asnType;
  switch (asnType) {
    case ASN_IPADDRESS:
      setOctets(addressOctets);
      break;
    case ASN_OCTET_STR:
      setOctets(taken(octets_.size()));  // the length is the first
      break;
    case ASN_OBJECT_ID:
      setWords(taken(words_.size()));  // likewise
      break;
    default:
      numberIs(taken(std::numeric_limits<std::uint32_t>::max()));
  }
  return &value_;
}

netsnmp_variable_list* IndexFloor::highestInstead() {
  reading_ = Reading::highest;
  // 32 bits exceed the component, so it is signed.
  numberIs(std::numeric_limits<std::int32_t>::max());
  return &value_;
}

// Returns the next sub-identifier: 0 after the last one; `most` from the first one above `most` on.
oid IndexFloor::taken(oid most) {
  if (reading_ == Reading::asAsked && rest_.empty()) reading_ = Reading::lowest;
  if (reading_ == Reading::asAsked && rest_.front() > most) reading_ = Reading::highest;
  if (reading_ == Reading::lowest) return 0;
  if (reading_ == Reading::highest) return most;
  const oid number = rest_.front();
  rest_ = rest_.subspan(1);
  return number;
}

void IndexFloor::numberIs(oid number) {
  number_ = static_cast<long>(number);
  value_.val.integer = &number_;
  value_.val_len = sizeof(number_);
}

void IndexFloor::setOctets(std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) octets_[i] = static_cast<u_char>(taken(mostOctet));
  value_.val.string = octets_.data();
  value_.val_len = count;
}

void IndexFloor::setWords(std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) words_[i] = taken(std::numeric_limits<std::uint32_t>::max());
  value_.val.objid = words_.data();
  value_.val_len = count * sizeof(oid);
}

}  // namespace Modules
