#pragma once
// The tables of the store, and the limits of keys and values.
//
// Every table maps byte strings to byte strings, in lexicographic order of the keys (as memcmp, a prefix first). The
// store does not interpret keys or values.
//
// A new table needs one line in `TableId` and one in `knownTables`; the format of the store stays the same.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "kel/System.h"

namespace Quillo {

using Bytes = std::string_view;

// The numbers are part of the format and never reused. 0 is reserved for the store's own records.
enum class TableId : std::uint8_t {
  varnix = 1,    // documents of the state database: key is the entity's path, value its attributes as JSON
  arp = 2,       // IPv4 neighbours of all VRFs (tables/Records.h)
  neighbor = 3,  // IPv6 neighbours of all VRFs, likewise
  route = 4,     // IPv4 routes of all VRFs, likewise
  route6 = 5,    // IPv6 routes of all VRFs, likewise
  fec = 6,       // forwarding equivalence classes of all VRFs
};

struct TableInfo {
  TableId id;
  std::string_view name;
  // Version of the layout of the table's values. A reader that knows another version refuses the store if the table's
  // first record has it (Snapshot::checkLayouts), and reports any other such record as damaged.
  std::uint16_t layout;
};

inline constexpr std::array<TableInfo, 6> knownTables{{
    {TableId::varnix, "varnix", 1},
    {TableId::arp, "arp", 1},
    {TableId::neighbor, "neighbor", 1},
    {TableId::route, "route", 3},
    {TableId::route6, "route6", 3},
    {TableId::fec, "fec", 1},
}};

// Totals of one table, which the publisher updates in the same transaction as the data.
struct TableState {
  std::uint64_t count = 0;    // records
  std::uint64_t digest = 0;   // sum of the checksums of the records, modulo 2^64
  std::uint64_t version = 0;  // sequence number of the latest change in the table
  bool operator==(const TableState&) const = default;
};

// Totals of the journal.
struct Head {
  std::uint64_t seq = 0;         // of the latest change
  std::uint64_t floor = 0;       // the highest sequence number of a dropped tombstone
  std::uint64_t tombstones = 0;  // deletions that the journal holds
};

// The end of a publisher's pass over everything that it publishes.
struct CompletePass {
  std::uint64_t seq = 0;  // head of the journal at its end
  Kel::Seconds time = 0;  // framework clock of the publisher
  std::string publisher;  // its program name
};

// The entry of a known table; any other number is an assertion failure.
const TableInfo& tableInfo(TableId id);

// The storage engine accepts keys of at most 511 bytes. A path with the longest VRF name (100 bytes) and the longest
// interface id (255 bytes) fits. A longer key throws RangeException before anything is written.
inline constexpr std::size_t maxKeyBytes = 500;
inline constexpr std::size_t maxValueBytes = std::size_t{16} << 20;

// A key for messages: its first 120 bytes, where unprintable ones and the backslash become \xNN.
std::string printableKey(Bytes key);

}  // namespace Quillo
