#pragma once
// Sets converted values in net-snmp's variables.
//
// net-snmp 5.9 stores a sub-identifier as an `oid`, an unsigned long: eight bytes on a 64-bit host, whereas our
// conversions write 32-bit words. Its value setter copies the bytes of an OBJECT IDENTIFIER, so the words are widened
// here.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include "snmp/ObjectIdentifier.h"

namespace Snmp {

// Sets the variable's value to a copy of the bytes that a conversion wrote (snmp/Conversions.h): 32-bit words for an
// OBJECT IDENTIFIER, and for every other type what snmp_set_var_typed_value accepts. False when net-snmp refuses the
// value (out of memory, or a length that is wrong for the type); the variable must not be sent then.
[[nodiscard]] bool setVarbindValue(netsnmp_variable_list* variable, unsigned char asnType,
                                   const unsigned char* bytes, int length);

}  // namespace Snmp
