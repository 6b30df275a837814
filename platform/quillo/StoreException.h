#pragma once
// Why a store cannot be opened or written. The text is one line for the operator: what, where, what to do.

#include <string>

#include "kel/Errors.h"

namespace Quillo {

class StoreException : public Kel::Exception {
 public:
  enum class Kind {
    directory,   // the directory or a file in it cannot be made, opened or written
    permission,  // the files are there, but this user may not use them
    full,        // no space on the file system, or the store's own limit is reached
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
