#pragma once
// The elementary conversions between values and the bytes of SNMP values.
//
// To an ASN value: (value, buffer, size of the buffer in bytes) -> number of bytes written, or -1, with nothing
// written, when they do not fit. The bytes are what `Snmp::setVarbindValue` takes (snmp/Varbind.h): INTEGER and
// the unsigned types as the host's 32-bit integer, Counter64 as net-snmp's `struct counter64`, OBJECT IDENTIFIER as
// 32-bit words, one a sub-identifier.
//
// From an ASN value: `value` points to a `netsnmp_variable_list`. Throw Kel::RangeException, with the fault in its
// text, for a value of another type, of another length or outside the range of the result.

#include "kel/Name.h"
#include "kel/System.h"
#include "snmp/ObjectIdentifier.h"
#include "snmp/String.h"
#include "vantu/EthAddr.h"
#include "vantu/IpAddr.h"

int S32ToAsnIntegerF(int value, unsigned char* buffer, int length);
int U32ToAsnUnsignedF(unsigned int value, unsigned char* buffer, int length);
int StringToAsnOctetStringF(const Kel::String& value, unsigned char* buffer, int length);
int SnmpStringToAsnOctetStringF(const Snmp::String& value, unsigned char* buffer, int length);
int VantuIpAddrToAsnOctetStringF(const Vantu::IpAddr& value, unsigned char* buffer, int length);
int VantuEthAddrToAsnOctetStringF(const Vantu::EthAddr& value, unsigned char* buffer, int length);
int SnmpObjectIdentifierToAsnOidF(const Snmp::ObjectIdentifier& value, unsigned char* buffer, int length);
// A time of the framework's clock as TimeTicks: sysUpTime of this agent at that time, in hundredths of a second,
// modulo 2^32. 0 for a time before the agent's start.
int NowSecondsToUptimeTimeTicksF(Kel::Seconds time, unsigned char* buffer, int length);
// The same for a time on the UTC clock, such as that of another process.
int UtcSecondsToUptimeTimeTicks(Kel::Seconds time, unsigned char* buffer, int length);
// A duration in hundredths of a second, modulo 2^32; 0 for a negative one.
int SecondsToTimeTicksF(Kel::Seconds duration, unsigned char* buffer, int length);
// Seconds since 1970 (UTC) as DateAndTime (RFC 2579) of 11 bytes; 0, for an unknown time, gives 8 zeros.
int UtcSecondsToDateAndTimeF(Kel::Seconds time, unsigned char* buffer, int length);
// Modulo 2^32, as a Counter32 counts.
int U64ToCounter32F(std::uint64_t value, unsigned char* buffer, int length);
int U64ToCounter64F(std::uint64_t value, unsigned char* buffer, int length);

int AsnIntegerToS32(void* value);
// An INTEGER that was read from an index, where numbers are sub-identifiers: 0 to 2^32-1.
unsigned int AsnIntegerToU32(void* value);
// Any of the unsigned 32-bit types: Unsigned32 (Gauge32), Counter32, TimeTicks.
unsigned int AsnUnsignedToU32(void* value);
// An IpAddress, or an octet string of four bytes.
Vantu::IpAddr AsnIpAddressToVantuIpAddr(void* value);
// The first `length` bytes of the value.
Snmp::String AsnOctetStringToSnmpString(void* value, int length);
Snmp::ObjectIdentifier AsnOidToSnmpObjectIdentifier(void* value);
