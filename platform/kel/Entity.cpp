#include "kel/Entity.h"

KEL_TYPE_DEFINE(Kel::Entity)

namespace Kel {

String Entity::fullName() const {
  if (!parent_) return name();
  const String above = parent_->fullName();
  if (*parentAttrName_ == '\0') return above.empty() ? name() : above + "/" + name();
  const String attribute = above + "." + parentAttrName_;
  return memberName_ ? attribute + "/" + name() : attribute;
}

void Entity::kelPlace(const Entity* parent, const char* attrName, KelMemberName memberName) {
  parent_ = parent;
  parentAttrName_ = attrName;
  memberName_ = memberName;
}

void kelPlaceIfEntity(PtrInterface& object, const PtrInterface& parent, const char* attrName,
                      KelMemberName memberName) {
  auto* entity = dynamic_cast<Entity*>(&object);
  if (entity) entity->kelPlace(dynamic_cast<const Entity*>(&parent), attrName, memberName);
}

void kelOrphanIfEntity(PtrInterface& object) {
  if (auto* entity = dynamic_cast<Entity*>(&object)) entity->kelOrphan();
}

void kelReinstantiated(const PtrInterface& existing, const char* attrName, const String& value) {
  if (const auto* entity = dynamic_cast<const Entity*>(&existing)) {
    throw ReinstantiationException(
        fmt::format("Reinstantiating the entity with fullName {} where constructor parameter attribute '{}' has a "
                    "different value of {}",
                    entity->fullName(), attrName, value));
  }
  throw ReinstantiationException(
      fmt::format("Reinstantiating the pointer interface where constructor parameter attribute _{} has a different "
                  "value of {}",
                  attrName, value));
}

}  // namespace Kel
