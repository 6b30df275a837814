#pragma once
// The framework's strings. A `Name` names an entity and may hold any bytes.

#include <string>

namespace Kel {

using String = std::string;
using Name = std::string;

}  // namespace Kel
