#pragma once
// The columns of a table: the name of each, and how a row's value is encoded as an SNMP value.
//
//   column<Row>(2, "ipAdEntIfIndex", ASN_INTEGER, s32ToAsnInteger, "ipAdEntIfIndex",
//               [](const Row& row) { return static_cast<int>(row.ipAdEntIfIndex()); })

#include <functional>
#include <optional>
#include <type_traits>

#include "kel/Errors.h"
#include "modules/frame/NetSnmp.h"
#include "snmp/Conversions.h"

namespace Modules {

// A conversion with its name in traces. `Value` is its parameter type.
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

// The part of a column that does not depend on the type of the rows.
struct ColumnBase {
  static constexpr int bufferLength = 1024;      // bytes of a value, unless the column has another limit
  static constexpr int maxBufferLength = 65535;  // the longest OCTET STRING (RFC 2578, 7.1.2)

  unsigned number;
  const char* object;      // of the MIB
  unsigned char asnType;   // in answers
  const char* conversion;  // for traces
  const char* attribute;   // for traces; empty for a constant
  // Writes the value of `row`, a row of the column's table. Returns the number of bytes, or a negative number on
  // failure, as the conversions do; nullopt if the row has no instance of this object now.
  std::function<std::optional<int>(const void* row, unsigned char* buffer, int length)> encode;

  bool isRefusable = false;  // traces a SET with the column's name, at level 2
  int limit = bufferLength;
  // The entity named in the trace of a result above `limit`; null: such a result counts as a failed conversion.
  const char* limitedEntity = nullptr;
};

template <class Row>
struct Column : ColumnBase {
  Column refusable() && {
    isRefusable = true;
    return std::move(*this);
  }
  // Limits values to `bytes`. Requires (aborts): 1 to maxBufferLength.
  Column limitedTo(int bytes, const char* entityPath) && {
    KEL_ASSERT(bytes > 0 && bytes <= maxBufferLength);
    limit = bytes;
    limitedEntity = entityPath;
    return std::move(*this);
  }
};

// `read` maps a row to the value that the conversion takes, or to an optional of it. With nullopt the row has no
// instance of this object now: a GET is answered with noSuchInstance, and a GETNEXT continues with the next row.
template <class Row, class Value, class Read>
Column<Row> column(unsigned number, const char* object, unsigned char asnType, const Conversion<Value>& conversion,
                   const char* attribute, Read read) {
  auto encode = [convert = conversion.convert, read](const void* row, unsigned char* buffer,
                                                     int length) -> std::optional<int> {
    decltype(auto) value = read(*static_cast<const Row*>(row));
    if constexpr (requires { value.has_value(); }) {
      if (!value) return std::nullopt;
      return convert(*value, buffer, length);
    } else {
      return convert(value, buffer, length);
    }
  };
  return {{number, object, asnType, conversion.name, attribute, std::move(encode)}};
}

// A column with the same value in every row.
template <class Row>
Column<Row> constantColumn(unsigned number, const char* object, int value, const char* attribute = "") {
  return column<Row>(number, object, ASN_INTEGER, s32ToAsnInteger, attribute,
                     [value](const Row&) { return value; });
}

}  // namespace Modules
