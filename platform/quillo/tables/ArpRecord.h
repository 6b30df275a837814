#pragma once
// Records of neighbours: the ARP table (IPv4) and the neighbour table (IPv6), which differ only in the length of the
// address.
//
//   key   := VRF id:3 (big-endian)  address:4 or 16 (network order)  interface id:1..255
//   value := MAC:6  flags:1         flags: bit 0 static, the others 0
//
// Keys are in the order of ArpKey, so the entries of a VRF are one range.
//
// A publisher writes them in a batch, alone or with other records:
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

// entryIs adds or replaces an entry in the table of the address's family; entryDel deletes it, if it exists.
// Throw Kel::RangeException, and leave the batch unchanged, when the address is unset, the VRF id is unknown or above
// 24 bits, or the interface id is empty.
void entryIs(Quillo::Batch& batch, const ArpEntry& entry);
void entryDel(Quillo::Batch& batch, const ArpKey& key);

// The table of the address's family; nullopt when the address is unset.
std::optional<Quillo::TableId> tableOf(const Vantu::IpGenAddr& addr);

// Whether the store can hold an entry with this key.
bool isStorable(const ArpKey& key);

// Throw as the operations above.
std::string encodeKey(const ArpKey& key);
// The common prefix of exactly those keys that have this address; for an unset address, of all keys of the VRF.
// Throws Kel::RangeException when the VRF id is not storable.
std::string encodeAddress(const Vrf::VrfIdMap::VrfId& vrfId, const Vantu::IpGenAddr& addr);
std::string encodeValue(const ArpEntry& entry);

// Return null, or what is wrong with the bytes as a record of `table`; `key` and `entry` are then unchanged.
// decodeValue does not change entry.key.
const char* decodeKey(Quillo::TableId table, Quillo::Bytes bytes, ArpKey& key);
const char* decodeValue(Quillo::Bytes bytes, ArpEntry& entry);

}  // namespace Arp::Table
