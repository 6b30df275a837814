#pragma once
// Entities: watched objects with a name and a place.
//
// An entity lives in a directory, in a collection attribute of another entity, or as the single child of one. Its
// full name is the way to it from the top: "snmp/ip" in directories, "snmp/ip/vrf.mibs/red" for the member "red" of
// the attribute `mibs`, "snmp/ip/vrf.mibs/red.ipmib" for a child attribute. A name may hold any bytes, '.' and '/'
// too.

#include "kel/Attribute.h"

namespace Kel {

class Entity : public Notifier {
  KEL_TYPE_BEGIN("Kel::Entity", Entity, Notifier)

 public:
  Entity() = default;
  explicit Entity(Name name) : name_(std::move(name)) {}

  const Name& name() const { return name_; }
  // Null for an entity that lives nowhere (any more), and while its parent is being constructed or destroyed.
  Ptr<const Entity> parent() const { return parent_ && parent_->use_count() != 0 ? parent_ : nullptr; }
  // The attribute of the parent that holds this entity; empty inside a directory.
  String parentAttrName() const { return parentAttrName_; }
  String fullName() const;
  Ptr<const Entity> entity() const { return Ptr<const Entity>(this); }

  KEL_COMPUTED(name)
  KEL_COMPUTED(fullName)
  KEL_COMPUTED(parent)
  KEL_COMPUTED(parentAttrName)
  KEL_COMPUTED(entity)
  KEL_TYPE_END_DECLARE

  // For the owner: places the entity, and gives it `name` if it has none of its own.
  enum class Place { directory, child, member };
  void kelPlace(const Entity* parent, const char* attrName, Place place, const Name& name);
  void kelOrphan() { parent_ = nullptr; }

 private:
  Name name_;
  const Entity* parent_ = nullptr;
  const char* parentAttrName_ = "";
  Place place_ = Place::directory;
};

}  // namespace Kel
