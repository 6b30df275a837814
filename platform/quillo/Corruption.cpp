#include "quillo/Corruption.h"

#include <fmt/format.h>

namespace Pesk {

CorruptionDetectedException::CorruptionDetectedException(std::string_view store, std::string_view table,
                                                         std::string_view key, std::string_view what,
                                                         std::string foundKey)
    : Exception(fmt::format(
          "store {} is damaged: table {}, key \"{}\": {}; begin a new one with quorin-mirrord --recreate", store,
          table, key, what)),
      foundKey_(std::move(foundKey)) {
}

}  // namespace Pesk
