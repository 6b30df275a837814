#pragma once
// Where the vendor's objects stand: enterprises.E, E being the build option QUORIN_ENTERPRISE.

#include <initializer_list>
#include <vector>

#include "modules/frame/NetSnmp.h"

namespace Modules {

// enterprises.E followed by the given sub-identifiers.
inline std::vector<oid> enterpriseObject(std::initializer_list<oid> below) {
  std::vector<oid> object{1, 3, 6, 1, 4, 1, QUORIN_ENTERPRISE};
  object.insert(object.end(), below);
  return object;
}

}  // namespace Modules
