#pragma once
// What goes wrong with a store. The text of each exception is one line for the operator: what, where, what to do.

#include <string>
#include <string_view>
#include <utility>

#include "kel/Errors.h"

namespace Quillo {

// Why a store cannot be opened, read or written at present.
class StoreException : public Kel::Exception {
 public:
  enum class Kind {
    directory,   // the directory or a file in it cannot be made, opened or written
    permission,  // the files are there, but this user may not use them
    full,        // no space on the file system, or a limit of the store is reached
    damaged,     // our store, but its contents do not pass the checks
    foreign,     // a file under our name that is not our store
    version,     // our store, written in another format version
    owned,       // another publisher holds the store
    gone,        // the store was removed or replaced while it was in use
    notReady,    // a mount has no store to read yet
  };

  StoreException(Kind kind, const std::string& text) : Exception(text), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

}  // namespace Quillo

namespace Pesk {

// Damage met while the store was read: a record whose check failed, an error of the storage engine, or a fault of the
// mapping. Pass it on to `corruptionDetected` of the table or mount that was read; until it is mended, treat the key as
// "not found".
class CorruptionDetectedException : public Kel::Exception {
 public:
  CorruptionDetectedException(const std::string& store, std::string_view table, std::string_view key,
                              std::string_view what, std::string foundKey = {})
      : Exception(std::string("store ")
                      .append(store)
                      .append(" is damaged: table ")
                      .append(table)
                      .append(", key \"")
                      .append(key)
                      .append("\": ")
                      .append(what)
                      .append("; begin a new one with quorin-mirrord --recreate")),
        foundKey_(std::move(foundKey)) {}

  // The key of the damaged record as it was found, which may itself be damaged. Empty where the damage is not one
  // record's.
  const std::string& foundKey() const { return foundKey_; }

 private:
  std::string foundKey_;
};

}  // namespace Pesk
