#pragma once
// The exceptions of the store. Each text is one line for the operator: what is wrong, where, and what to do.

#include <string>
#include <string_view>
#include <utility>

#include "kel/Errors.h"

namespace Quillo {

// A store cannot be opened, read or written.
class StoreException : public Kel::Exception {
 public:
  enum class Kind {
    directory,   // the directory or a file in it cannot be created, opened or written
    permission,  // the files exist, but this user may not use them
    full,        // no space on the file system, or a limit of the store is reached
    damaged,     // our store, but its contents do not pass the checks
    foreign,     // a file of the store's name that is not a store of ours
    unsafe,      // a link, another user's file or a directory that everyone may write is in the place of ours
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

// Damage found by a read: a record whose check failed, an error of the storage engine, or a fault of the mapping.
// Pass it to `corruptionDetected` of the table or mount that was read, and treat the key as not found until the store
// is repaired.
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
                      .append("; its publisher makes it anew")),
        foundKey_(std::move(foundKey)) {}

  // The key of the damaged record as it was read, which may itself be damaged. Empty unless one record is damaged.
  const std::string& foundKey() const { return foundKey_; }

 private:
  std::string foundKey_;
};

}  // namespace Pesk
