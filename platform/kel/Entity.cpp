#include "kel/Entity.h"

KEL_TYPE_DEFINE(Kel::Entity)

namespace Kel {

String Entity::fullName() const {
  if (!parent_) return name_;
  const String above = parent_->fullName();
  switch (place_) {
    case Place::directory:
      return above.empty() ? name_ : above + "/" + name_;
    case Place::child:
      return above + "." + parentAttrName_;
    case Place::member:
      return above + "." + parentAttrName_ + "/" + name_;
  }
  return name_;
}

void Entity::kelPlace(const Entity* parent, const char* attrName, Place place, const Name& name) {
  parent_ = parent;
  parentAttrName_ = attrName;
  place_ = place;
  if (name_.empty()) name_ = name;
}

void kelPlaceIfEntity(PtrInterface& object, const PtrInterface& parent, const char* attrName, bool isMember,
                      const Name& name) {
  auto* entity = dynamic_cast<Entity*>(&object);
  if (!entity) return;
  entity->kelPlace(dynamic_cast<const Entity*>(&parent), attrName,
                   isMember ? Entity::Place::member : Entity::Place::child, name);
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
