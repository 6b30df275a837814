#pragma once
// The framework's strings. `Name` is the name of an entity: any bytes, never interpreted.

#include <string>

namespace Kel {

using String = std::string;
using Name = std::string;

}  // namespace Kel
