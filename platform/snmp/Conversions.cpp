#include "snmp/Conversions.h"

#include <fmt/format.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <cstring>
#include <limits>
#include <span>

#include "kel/Errors.h"

namespace {

int write(const void* bytes, std::size_t count, unsigned char* buffer, int length) {
  if (length < 0 || count > static_cast<std::size_t>(length)) return -1;
  if (count > 0) std::memcpy(buffer, bytes, count);
  return static_cast<int>(count);
}

const netsnmp_variable_list& variableOf(void* value) {
  return *static_cast<const netsnmp_variable_list*>(value);
}

[[noreturn]] void wrongType(const netsnmp_variable_list& variable, const char* expected) {
  throw Kel::RangeException(fmt::format("expected {}, got a value of type {}", expected, variable.type));
}

long integer(const netsnmp_variable_list& variable, long lowest, long highest) {
  if (variable.val.integer == nullptr || variable.val_len != sizeof(long)) {
    throw Kel::RangeException(
        fmt::format("an integer takes {} bytes, this value has {}", sizeof(long), variable.val_len));
  }
  const long number = *variable.val.integer;
  if (number < lowest || number > highest) {
    throw Kel::RangeException(fmt::format("{} is not from {} to {}", number, lowest, highest));
  }
  return number;
}

bool isOctets(const netsnmp_variable_list& variable) {
  return variable.type == ASN_OCTET_STR || variable.type == ASN_PRIV_IMPLIED_OCTET_STR;
}

std::span<const std::uint8_t> octets(const netsnmp_variable_list& variable) {
  if (variable.val.string == nullptr) return {};
  return {variable.val.string, variable.val_len};
}

}  // namespace

int S32ToAsnIntegerF(int value, unsigned char* buffer, int length) {
  return write(&value, sizeof(value), buffer, length);
}

int U32ToAsnUnsignedF(unsigned int value, unsigned char* buffer, int length) {
  return write(&value, sizeof(value), buffer, length);
}

int StringToAsnOctetStringF(const Kel::String& value, unsigned char* buffer, int length) {
  return write(value.data(), value.size(), buffer, length);
}

int SnmpStringToAsnOctetStringF(const Snmp::String& value, unsigned char* buffer, int length) {
  return write(value.data(), value.bytes(), buffer, length);
}

int VantuIpAddrToAsnOctetStringF(const Vantu::IpAddr& value, unsigned char* buffer, int length) {
  const auto bytes = value.bytes();
  return write(bytes.data(), bytes.size(), buffer, length);
}

int VantuEthAddrToAsnOctetStringF(const Vantu::EthAddr& value, unsigned char* buffer, int length) {
  return write(value.bytes().data(), value.bytes().size(), buffer, length);
}

int SnmpObjectIdentifierToAsnOidF(const Snmp::ObjectIdentifier& value, unsigned char* buffer, int length) {
  const auto words = value.subIdentifiers();
  return write(words.data(), words.size_bytes(), buffer, length);
}

int U64ToCounter32F(std::uint64_t value, unsigned char* buffer, int length) {
  return U32ToAsnUnsignedF(static_cast<unsigned int>(value), buffer, length);
}

int U64ToCounter64F(std::uint64_t value, unsigned char* buffer, int length) {
  const counter64 halves{static_cast<u_long>(value >> 32), static_cast<u_long>(value & 0xFFFFFFFFU)};
  return write(&halves, sizeof(halves), buffer, length);
}

int AsnIntegerToS32(void* value) {
  const auto& from = variableOf(value);
  if (from.type != ASN_INTEGER) wrongType(from, "INTEGER");
  using Limits = std::numeric_limits<int>;
  return static_cast<int>(integer(from, Limits::min(), Limits::max()));
}

unsigned int AsnIntegerToU32(void* value) {
  const auto& from = variableOf(value);
  if (from.type != ASN_INTEGER) wrongType(from, "INTEGER");
  return static_cast<unsigned int>(integer(from, 0, std::numeric_limits<unsigned int>::max()));
}

unsigned int AsnUnsignedToU32(void* value) {
  const auto& from = variableOf(value);
  switch (from.type) {
    case ASN_UNSIGNED:
    case ASN_COUNTER:
    case ASN_TIMETICKS:
    case ASN_UINTEGER:
      return static_cast<unsigned int>(integer(from, 0, std::numeric_limits<unsigned int>::max()));
    default:
      wrongType(from, "an unsigned 32-bit number");
  }
}

Vantu::IpAddr AsnIpAddressToVantuIpAddr(void* value) {
  const auto& from = variableOf(value);
  if (from.type != ASN_IPADDRESS && !isOctets(from)) wrongType(from, "IpAddress");
  return Vantu::IpAddr::fromBytes(octets(from));
}

Snmp::String AsnOctetStringToSnmpString(void* value, int length) {
  const auto& from = variableOf(value);
  if (!isOctets(from)) wrongType(from, "OCTET STRING");
  const auto bytes = octets(from);
  if (length < 0 || static_cast<std::size_t>(length) > bytes.size()) {
    throw Kel::RangeException(fmt::format("{} bytes expected, the value has {}", length, bytes.size()));
  }
  return Snmp::String(bytes.first(static_cast<std::size_t>(length)));
}

Snmp::ObjectIdentifier AsnOidToSnmpObjectIdentifier(void* value) {
  const auto& from = variableOf(value);
  if (from.type != ASN_OBJECT_ID) wrongType(from, "OBJECT IDENTIFIER");
  std::vector<Snmp::ObjectIdentifier::SubIdentifier> words(from.val_len / sizeof(oid));
  for (std::size_t i = 0; i < words.size(); ++i) {
    const oid word = from.val.objid[i];
    if (word > std::numeric_limits<std::uint32_t>::max()) {
      throw Kel::RangeException(fmt::format("the sub-identifier {} has more than 32 bits", word));
    }
    words[i] = static_cast<std::uint32_t>(word);
  }
  return Snmp::ObjectIdentifier(words);
}
