#include "kel/Value.h"

#include "kel/Entity.h"

namespace Kel {

String printHandle(const PtrInterface* object) {
  if (!object) return "None";
  if (const auto* entity = dynamic_cast<const Entity*>(object)) return "Entity('" + entity->fullName() + "')";
  return "Object(" + object->kelTypeInfo().name() + ")";
}

String handlePath(const PtrInterface* object) {
  const auto* entity = dynamic_cast<const Entity*>(object);
  return entity ? entity->fullName() : String();
}

void wrongKind(const Datum& datum, const char* expected) {
  throw RangeException(fmt::format("expected {}, found {}", expected, datum.kindName()));
}

void noSuchEnumerator(const Datum& datum, const String& enumName, const String& known) {
  const auto* text = datum.getIf<String>();
  throw RangeException(fmt::format("{} is not a value of {}; expected one of {}",
                                   text ? "'" + *text + "'" : String(datum.kindName()), enumName, known));
}

void Value::refuse(const String& expected) const {
  const String found =
      isHandle_ && handle_ ? printHandle(handle_.get()) + " of type " + handle_->kelTypeInfo().name() : typeName_;
  throw AttributeException(fmt::format("expected {}, found {}", expected, found));
}

}  // namespace Kel
