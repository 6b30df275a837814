#pragma once
// The tables of the store, and the limits of what fits in.
//
// Every table maps byte strings to byte strings. Keys are ordered as memcmp orders them, a shorter key before the
// longer one that it begins. What the bytes mean is the table's own business; the store never looks inside.
//
// A new table needs one line in `TableId` and one in `knownTables`: the format of the store does not change for it.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "kel/System.h"

namespace Quillo {

using Bytes = std::string_view;

// 0 is the store's own; numbers are part of the format, so they are never reused.
enum class TableId : std::uint8_t {
  varnix = 1,    // documents of the state database: key is the entity's path, value its attributes as JSON
  arp = 2,       // IPv4 neighbours of all VRFs (ArpRecord.h)
  neighbor = 3,  // IPv6 neighbours of all VRFs, likewise
  route = 4,     // IPv4 routes of all VRFs (RouteRecord.h)
  route6 = 5,    // IPv6 routes of all VRFs, likewise
  fec = 6,       // forwarding equivalence classes of all VRFs (FecRecord.h)
};

struct TableInfo {
  TableId id;
  std::string_view name;
  // Version of the layout of the table's values. A reader that knows another one reports the record as damaged
  // instead of misreading it.
  std::uint16_t layout;
};

inline constexpr std::array<TableInfo, 6> knownTables{{
    {TableId::varnix, "varnix", 1},
    {TableId::arp, "arp", 1},
    {TableId::neighbor, "neighbor", 1},
    {TableId::route, "route", 2},
    {TableId::route6, "route6", 2},
    {TableId::fec, "fec", 1},
}};

// What the publisher keeps beside each table, in the same transaction as the data.
struct TableState {
  std::uint64_t count = 0;    // records
  std::uint64_t digest = 0;   // sum of the checksums of the records, modulo 2^64
  std::uint64_t version = 0;  // sequence number of the latest change in the table
  bool operator==(const TableState&) const = default;
};

// The journal as a whole.
struct Head {
  std::uint64_t seq = 0;         // of the latest change
  std::uint64_t floor = 0;       // the highest sequence number of a dropped tombstone
  std::uint64_t tombstones = 0;  // deletions that the journal holds
};

// A publisher has completed a pass over everything it publishes.
struct CompletePass {
  std::uint64_t seq = 0;  // head of the journal at its end
  Kel::Seconds time = 0;  // framework clock of the publisher
  std::string publisher;  // its program name
};

// The entry of a known table; asserts for any other number.
const TableInfo& tableInfo(TableId id);

// The storage engine takes keys of at most 511 bytes. The longest name of a VRF (100 bytes) and the longest
// interface id (255 bytes) fit together in one path with room for the fixed words. A longer key is refused with a
// RangeException before anything is written; it is never cut.
inline constexpr std::size_t maxKeyBytes = 500;
inline constexpr std::size_t maxValueBytes = std::size_t{16} << 20;

// A key for messages: printable bytes as they stand, others as \xNN, at most 120 bytes of it.
std::string printableKey(Bytes key);

}  // namespace Quillo
