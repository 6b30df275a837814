#include "snmp/Varbind.h"

#include <array>
#include <cstring>

namespace Snmp {

bool setVarbindValue(netsnmp_variable_list* variable, unsigned char asnType, const unsigned char* bytes,
                     int length) {
  if (length < 0) return false;
  const auto byteCount = static_cast<std::size_t>(length);
  if (asnType != ASN_OBJECT_ID) return snmp_set_var_typed_value(variable, asnType, bytes, byteCount) == 0;

  using Word = ObjectIdentifier::SubIdentifier;
  const std::size_t count = byteCount / sizeof(Word);
  std::array<oid, ObjectIdentifier::maxLength> wide{};
  if (byteCount % sizeof(Word) != 0 || count > wide.size()) return false;
  for (std::size_t i = 0; i < count; ++i) {
    Word word = 0;
    std::memcpy(&word, bytes + i * sizeof(Word), sizeof(Word));
    wide[i] = word;
  }
  return snmp_set_var_typed_value(variable, asnType, wide.data(), count * sizeof(oid)) == 0;
}

}  // namespace Snmp
