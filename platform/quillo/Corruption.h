#pragma once
// Damage that was met while the store was read.

#include <string>
#include <string_view>

#include "kel/Errors.h"

namespace Pesk {

// A record whose check failed, an error of the storage engine, or a fault of the mapping itself. The text is one
// line that names the store, the table, the key, what was found, and what to do. Pass it on to `corruptionDetected`
// of the table or mount that was read; treat the key as "not found" meanwhile.
class CorruptionDetectedException : public Kel::Exception {
 public:
  CorruptionDetectedException(std::string_view store, std::string_view table, std::string_view key,
                              std::string_view what, std::string foundKey = {});

  // The key of the record as it was found, or empty where the fault is not one record's. It may itself be what is
  // damaged: a hint, no fact.
  const std::string& foundKey() const { return foundKey_; }

 private:
  std::string foundKey_;
};

}  // namespace Pesk
