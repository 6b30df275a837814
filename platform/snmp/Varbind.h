#pragma once
// Handing converted values to net-snmp.
//
// net-snmp 5.9 keeps a sub-identifier in an `oid`, which is an unsigned long: eight bytes on a 64-bit host, where
// our conversions write 32-bit words. Its value setter copies an OBJECT IDENTIFIER as it is and takes the length
// for a number of `oid`s, so the words must be widened first. This is the only place that does it.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include "snmp/ObjectIdentifier.h"

namespace Snmp {

// Sets the variable's value from the bytes that a conversion wrote (snmp/Conversions.h): `length` bytes at `bytes`,
// for an OBJECT IDENTIFIER 32-bit words, for every other type what snmp_set_var_typed_value takes. The bytes are
// copied. False when net-snmp does not take the value (out of memory, or a length that the type does not have); the
// variable is not to be sent then.
[[nodiscard]] bool varbindValueIs(netsnmp_variable_list* variable, unsigned char asnType,
                                  const unsigned char* bytes, int length);

}  // namespace Snmp
