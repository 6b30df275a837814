#pragma once
// An entity: a named object of the state tree, whose changes reactors can watch.
//
// Its parent is a directory, or another entity that holds it as a member of a collection or as a single child. The full
// name is the path from the root: "snmp/ip" in directories, "snmp/ip/vrf.mibs/red" for the member "red" of the
// attribute `mibs`, "snmp/ip/vrf.mibs/red.ipmib" for a child. A name may hold any bytes, including '.' and '/'.

#include "kel/Attribute.h"
#include "kel/SharedText.h"

namespace Kel {

class Entity : public Notifier {
  KEL_TYPE_BEGIN("Kel::Entity", Entity, Notifier)

 public:
  Entity() = default;
  explicit Entity(std::string_view name) : name_(name) {}

  // The name that it was made with. Without one: the text form of its key, or the parent's attribute that holds it.
  Name name() const { return name_.empty() ? nameInParent() : name_.text(); }
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

  // For the owner only. kelPlace records the parent; `memberName` is null unless a collection holds the entity. kelOrphan
  // clears the parent. kelGivenName() is the name that the entity was made with, empty without one.
  void kelPlace(const Entity* parent, const char* attrName, KelMemberName memberName);
  void kelOrphan() { parent_ = nullptr; }
  const Name& kelGivenName() const { return name_.text(); }

 private:
  Name nameInParent() const { return memberName_ ? memberName_(*this) : parentAttrName_; }

  SharedText name_;  // empty: none was given
  const Entity* parent_ = nullptr;
  const char* parentAttrName_ = "";
  KelMemberName memberName_ = nullptr;  // how a member's name follows from its constructor parameters
};

}  // namespace Kel
