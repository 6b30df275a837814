#pragma once
// An entity: a named object of the state tree, whose changes reactors can watch.
//
// Its parent is a directory, or another entity that holds it as a member of a collection or as a single child. The full
// name is the path from the root: "snmp/ip" in directories, "snmp/ip/vrf.mibs/red" for the member "red" of the
// attribute `mibs`, "snmp/ip/vrf.mibs/red.ipmib" for a child. A name may hold any bytes, including '.' and '/'.

#include "kel/Attribute.h"

namespace Kel {

class Entity : public Notifier {
  KEL_TYPE_BEGIN("Kel::Entity", Entity, Notifier)

 public:
  Entity() = default;
  explicit Entity(Name name) : name_(std::move(name)) {}

  const Name& name() const { return name_; }
  // Null without a parent, and while the parent is being constructed or destroyed.
  Ptr<const Entity> parent() const { return parent_ && parent_->use_count() != 0 ? parent_ : nullptr; }
  // The attribute of the parent that holds this entity; empty in a directory.
  String parentAttrName() const { return parentAttrName_; }
  String fullName() const;
  Ptr<const Entity> entity() const { return Ptr<const Entity>(this); }

  KEL_COMPUTED(name)
  KEL_COMPUTED(fullName)
  KEL_COMPUTED(parent)
  KEL_COMPUTED(parentAttrName)
  KEL_COMPUTED(entity)
  KEL_TYPE_END_DECLARE

  // For the owner only. kelPlace records the parent, and sets the name of an entity that has none; kelOrphan clears the
  // parent.
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
