#include "kel/Ptr.h"
namespace Kel {
class TypeInfo {};
const TypeInfo& PtrInterface::kelTypeInfo() const {
  static const TypeInfo none;
  return none;
}
}  // namespace Kel
