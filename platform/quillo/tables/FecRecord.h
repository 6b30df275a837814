#pragma once
// FECs as they lie in the store: the forwarding tables of all VRFs in one. Where one table of FECs serves every VRF,
// it is the default VRF's.
//
//   key   := VRF id:3 (big-endian)  FEC id:8 (big-endian)
//   value := count:2 (little-endian)  via{count}
//   via   := 4 address:4  interface       (network order)
//          | 6 address:16 interface
//   interface := length:1 text:length     empty: the via names none
//
// The place of a via in the value is its ViaIndex; a FEC has at most 512. RouteRecord.h shows how both are written.

#include <string>

#include "quillo/Publisher.h"
#include "quillo/tables/Fec.h"
#include "vantu/VrfId.h"

namespace Quillo {

// Add or replace a FEC; delete one, which is a no-op when there is none. Throw Kel::RangeException, and leave the batch as
// it is, when the VRF id is unknown or above 24 bits or the FEC id is 0; fecIs also when there are more than 512 vias, or
// one has no address (0.0.0.0 is an address).
void fecIs(Batch& batch, const Vrf::VrfIdMap::VrfId& vrfId, const Fib::Fec& fec);
void fecDel(Batch& batch, const Vrf::VrfIdMap::VrfId& vrfId, const Fib::FecId& fecId);

// Throw as the operations above.
std::string encodeFecKey(const Vrf::VrfIdMap::VrfId& vrfId, const Fib::FecId& fecId);
std::string encodeFec(const Fib::Fec& fec);

// Null when the bytes are what a publisher writes, else what is wrong with them; the ids are then as before. decodeFec
// leaves fec.fecId alone, uses the memory of fec.via again, and leaves it empty when something is wrong.
const char* decodeFecKey(Bytes bytes, Vrf::VrfIdMap::VrfId& vrfId, Fib::FecId& fecId);
const char* decodeFec(Bytes bytes, Fib::Fec& fec);

}  // namespace Quillo
