#pragma once
// The columns of a table: what each is called, and how a row's value becomes the bytes of an SNMP value.
//
//   column<Row>(2, "ipAdEntIfIndex", ASN_INTEGER, s32ToAsnInteger, "ipAdEntIfIndex",
//               [](const Row& row) { return static_cast<int>(row.ipAdEntIfIndex()); })

#include <functional>

#include "kel/Errors.h"
#include "modules/frame/NetSnmp.h"
#include "snmp/Conversions.h"

namespace Modules {

// A conversion with the name that traces give it. `Value` is what it takes, as a parameter type.
template <class Value>
struct Conversion {
  const char* name;
  int (*convert)(Value value, unsigned char* buffer, int length);
};

inline constexpr Conversion<int> s32ToAsnInteger{"S32ToAsnInteger", S32ToAsnIntegerF};
inline constexpr Conversion<unsigned int> u32ToAsnUnsigned{"U32ToAsnUnsigned", U32ToAsnUnsignedF};
inline constexpr Conversion<const Kel::String&> stringToAsnOctetString{"StringToAsnOctetString",
                                                                       StringToAsnOctetStringF};
inline constexpr Conversion<const Vantu::IpAddr&> vantuIpAddrToAsnOctetString{"VantuIpAddrToAsnOctetString",
                                                                              VantuIpAddrToAsnOctetStringF};
inline constexpr Conversion<const Vantu::EthAddr&> vantuEthAddrToAsnOctetString{"VantuEthAddrToAsnOctetString",
                                                                                VantuEthAddrToAsnOctetStringF};
inline constexpr Conversion<Kel::Seconds> nowSecondsToUptimeTimeTicks{"NowSecondsToUptimeTimeTicks",
                                                                      NowSecondsToUptimeTimeTicksF};
inline constexpr Conversion<Kel::Seconds> utcSecondsToUptimeTimeTicks{"UtcSecondsToUptimeTimeTicks",
                                                                      UtcSecondsToUptimeTimeTicks};
inline constexpr Conversion<Kel::Seconds> secondsToTimeTicks{"SecondsToTimeTicks", SecondsToTimeTicksF};
inline constexpr Conversion<std::uint64_t> u64ToCounter32{"U64ToCounter32", U64ToCounter32F};
inline constexpr Conversion<std::uint64_t> u64ToCounter64{"U64ToCounter64", U64ToCounter64F};
inline constexpr Conversion<const Snmp::ObjectIdentifier&> snmpObjectIdentifierToAsnOid{
    "SnmpObjectIdentifierToAsnOid", SnmpObjectIdentifierToAsnOidF};

// What the request loop needs of a column, whatever its table's rows are.
struct ColumnBase {
  static constexpr int bufferLength = 1024;      // bytes that a value may take unless the column says otherwise
  static constexpr int maxBufferLength = 65535;  // the longest OCTET STRING (RFC 2578, 7.1.2)

  unsigned number;
  const char* object;      // of the MIB
  unsigned char asnType;   // in answers
  const char* conversion;  // for traces
  const char* attribute;   // for traces; empty for a constant
  // Bytes written, or a negative number on failure, as the conversions do. `row` is a row of the column's table.
  std::function<int(const void* row, unsigned char* buffer, int length)> encode;

  bool isRefusable = false;  // a SET is refused by a trace of its own, at level 2
  int limit = bufferLength;
  // The entity that a result above `limit` is blamed on; null when results are not checked.
  const char* limitedEntity = nullptr;
};

template <class Row>
struct Column : ColumnBase {
  Column refusable() && {
    isRefusable = true;
    return std::move(*this);
  }
  // Values may take up to `bytes` (1 to maxBufferLength; aborts on any other) rather than the usual buffer.
  Column limitedTo(int bytes, const char* entityPath) && {
    KEL_ASSERT(bytes > 0 && bytes <= maxBufferLength);
    limit = bytes;
    limitedEntity = entityPath;
    return std::move(*this);
  }
};

// `read` takes a row and gives what the conversion takes.
template <class Row, class Value, class Read>
Column<Row> column(unsigned number, const char* object, unsigned char asnType, const Conversion<Value>& conversion,
                   const char* attribute, Read read) {
  auto encode = [convert = conversion.convert, read](const void* row, unsigned char* buffer, int length) {
    return convert(read(*static_cast<const Row*>(row)), buffer, length);
  };
  return {{number, object, asnType, conversion.name, attribute, std::move(encode)}};
}

// A column that says the same of every row.
template <class Row>
Column<Row> constantColumn(unsigned number, const char* object, int value, const char* attribute = "") {
  return column<Row>(number, object, ASN_INTEGER, s32ToAsnInteger, attribute,
                     [value](const Row&) { return value; });
}

}  // namespace Modules
