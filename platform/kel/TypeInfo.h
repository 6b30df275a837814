#pragma once
// Reflection: describes the attributes of a type, and reads and changes them without knowing the type.

#include <string_view>
#include <vector>

#include "kel/Datum.h"
#include "kel/Name.h"
#include "kel/Ptr.h"
#include "kel/Value.h"

namespace Kel {

enum class AttributeKind {
  constructorParameter,  // fixed for the object's life
  stored,                // writable value
  computed,              // derived on every read
  reference,             // handle to an object that another object owns
  child,                 // single owned object
  members,               // collection of owned objects
  values                 // collection of values
};

// One attribute. An operation that its kind lacks is null.
struct AttributeInfo {
  String name;
  AttributeKind kind;
  String typeName;  // of the value, child or member

  Value (*read)(const PtrInterface&) = nullptr;
  Datum (*toDatum)(const PtrInterface&) = nullptr;           // stored, values
  void (*fromDatum)(PtrInterface&, const Datum&) = nullptr;  // stored, values: sets, with notification
  // reference: sets it, null clears it. Throws AttributeException when the object is of another type.
  void (*referenceIs)(PtrInterface&, const Ptr<PtrInterface>&) = nullptr;

  // child (name ignored) and members: the owned object, or null.
  Ptr<PtrInterface> (*member)(const PtrInterface&, std::string_view name) = nullptr;
  // members, values: the text forms of the keys, in the order of the collection.
  std::vector<String> (*memberNames)(const PtrInterface&) = nullptr;
  // child, members: create-or-get with all constructor parameters.
  Ptr<PtrInterface> (*create)(PtrInterface&, const std::vector<Value>&) = nullptr;
  // members: create-or-get from the key's text form; null when the member has further constructor parameters.
  Ptr<PtrInterface> (*createNamed)(PtrInterface&, std::string_view name) = nullptr;
  // False when there was no such member.
  bool (*remove)(PtrInterface&, std::string_view name) = nullptr;
  void (*removeAll)(PtrInterface&) = nullptr;
};

class TypeInfo {
 public:
  explicit TypeInfo(String name = "Kel::PtrInterface") : name_(std::move(name)) {}

  const String& name() const { return name_; }
  // Those of the base type first, then in order of declaration.
  const std::vector<AttributeInfo>& attributes() const { return attributes_; }
  // Null for an unknown name.
  const AttributeInfo* find(std::string_view name) const;

  // For the declaring macros.
  void nameIs(String name) { name_ = std::move(name); }
  void add(AttributeInfo attribute) { attributes_.push_back(std::move(attribute)); }

 private:
  String name_;
  std::vector<AttributeInfo> attributes_;
};

// Reads an attribute by name. Throws AttributeException when the type has no such attribute or it is a collection.
Value readAttribute(const PtrInterface& object, std::string_view name);

// Calls an operation by name: "<attr>Is" (create-or-get; or sets a stored attribute from a Datum, a reference from a
// handle), "<attr>Del" (takes a member's key in text form) or "<attr>DelAll". Create-or-get returns the object, the
// others null. Throws AttributeException when there is no such operation or no such member, or the arguments are of the
// wrong number or type; also what the operation itself throws.
Ptr<PtrInterface> callOperation(PtrInterface& object, std::string_view operation,
                                const std::vector<Value>& arguments);

}  // namespace Kel
