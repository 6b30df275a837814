#include "quillo/Table.h"

#include <fmt/format.h>

#include "kel/Errors.h"

namespace Quillo {

const TableInfo& tableInfo(TableId id) {
  for (const TableInfo& info : knownTables) {
    if (info.id == id) return info;
  }
  Kel::assertionFailed("a table of the store that has no entry in knownTables", KEL_WHERE);
}

std::string printableKey(Bytes key) {
  constexpr std::size_t shownBytes = 120;
  std::string text;
  for (char c : key.substr(0, shownBytes)) {
    if (c >= ' ' && c <= '~' && c != '\\') {
      text.push_back(c);
    } else {
      text += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
  }
  return key.size() > shownBytes ? text + "..." : text;
}

}  // namespace Quillo
