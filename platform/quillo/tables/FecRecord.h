#pragma once
// Records of FECs. One table of the store holds the FECs of all VRFs; in unified mode all belong to the default VRF.
//
//   key   := VRF id:3 (big-endian)  FEC id:8 (big-endian)
//   value := count:2 (little-endian)  via{count}
//   via   := 4 address:4  interface       (network order)
//          | 6 address:16 interface
//   interface := length:1 text:length     empty: the via names none
//
// The position of a via in the value is its ViaIndex; a FEC has at most 512. RouteRecord.h has an example of writing
// FECs.

#include <string>
#include <vector>

#include "quillo/Publisher.h"
#include "quillo/tables/Fec.h"
#include "vantu/VrfId.h"

namespace Quillo {

// fecIs adds or replaces a FEC; fecDel deletes it, if it exists.
// Throw Kel::RangeException, and leave the batch unchanged, when the VRF id is unknown or above 24 bits or the FEC id
// is 0. fecIs also throws for more than 512 vias, and for a via without an address (0.0.0.0 is an address).
void fecIs(Batch& batch, const Vrf::VrfIdMap::VrfId& vrfId, const Fib::Fec& fec);
void fecDel(Batch& batch, const Vrf::VrfIdMap::VrfId& vrfId, const Fib::FecId& fecId);

// Sorts the vias and removes repeated ones.
void sortVias(std::vector<Fib::Via>& vias);
// The id that our publishers give to a FEC: a hash of its vias, which are sorted. So a restarted publisher assigns the
// same ids. If another FEC has the id already, the publisher takes the next number.
Fib::FecId fecIdOf(const std::vector<Fib::Via>& vias);

// Throw as the operations above.
std::string encodeFecKey(const Vrf::VrfIdMap::VrfId& vrfId, const Fib::FecId& fecId);
std::string encodeFec(const Fib::Fec& fec);

// Return null, or what is wrong with the bytes. decodeFecKey then leaves the ids unchanged; decodeFec then clears
// fec.via. decodeFec does not change fec.fecId and reuses the memory of fec.via.
const char* decodeFecKey(Bytes bytes, Vrf::VrfIdMap::VrfId& vrfId, Fib::FecId& fecId);
const char* decodeFec(Bytes bytes, Fib::Fec& fec);

}  // namespace Quillo
