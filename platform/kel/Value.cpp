#include "kel/Value.h"

#include <array>

#include "kel/Entity.h"

namespace Kel {

const Datum* Datum::member(std::string_view name) const {
  const auto* object = getIf<Object>();
  if (!object) return nullptr;
  for (const auto& [memberName, datum] : *object) {
    if (memberName == name) return &datum;
  }
  return nullptr;
}

const char* Datum::kindName() const {
  static constexpr std::array<const char*, std::variant_size_v<Storage>> names{
      "null", "a boolean", "an integer", "an integer", "a number", "a text", "a list", "an object"};
  return names[value_.index()];
}

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
