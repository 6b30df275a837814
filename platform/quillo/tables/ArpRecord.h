#pragma once
// Neighbours as they lie in the store: the ARP table (IPv4) and the neighbour table (IPv6), whose records differ only in
// the length of the address.
//
//   key   := VRF id:3 (big-endian)  address:4 or 16 (network order)  interface id:1..255
//   value := MAC:6  flags:1         flags: bit 0 static, the others 0
//
// Keys are in the order of ArpKey, so the entries of a VRF are one range.
//
// A publisher writes them with the two operations below, in a batch of its own or together with others:
//
//   auto batch = publisher.begin();
//   Arp::Table::entryIs(batch, {{vrfId, address, intfId}, mac, {.isStatic = true}});
//   Arp::Table::entryDel(batch, {vrfId, otherAddress, intfId});
//   batch.commit();

#include <optional>
#include <string>

#include "quillo/Publisher.h"
#include "quillo/tables/ArpTable.h"

namespace Arp::Table {

// Add or replace an entry in the table of the address's family; delete one, which is a no-op when there is none. Throw
// Kel::RangeException, and leave the batch as it is, when the address is unset, the VRF id is unknown or above 24 bits, or
// the interface id is empty.
void entryIs(Quillo::Batch& batch, const ArpEntry& entry);
void entryDel(Quillo::Batch& batch, const ArpKey& key);

// The family's table; none when the address is unset.
std::optional<Quillo::TableId> tableOf(const Vantu::IpGenAddr& addr);

// Whether a publisher can have written it.
bool isStorable(const ArpKey& key);

// Throw as the operations above.
std::string encodeKey(const ArpKey& key);
// What every key of that address begins with, and no other; of an unset one, every key of the VRF. Throws
// Kel::RangeException when the VRF id is not storable.
std::string encodeAddress(const Vrf::VrfIdMap::VrfId& vrfId, const Vantu::IpGenAddr& addr);
std::string encodeValue(const ArpEntry& entry);

// Null when the bytes are what the publisher writes into `table`, else what is wrong with them; `key` and `entry` are
// then as before. decodeValue leaves entry.key alone.
const char* decodeKey(Quillo::TableId table, Quillo::Bytes bytes, ArpKey& key);
const char* decodeValue(Quillo::Bytes bytes, ArpEntry& entry);

}  // namespace Arp::Table
