#pragma once
// Reflection: what a type's attributes are, and how to reach them without knowing the type.

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
  reference,             // handle to an object that lives elsewhere
  child,                 // single owned object
  members,               // collection of owned objects
  values                 // collection of values
};

// One attribute. An operation that its kind does not offer is empty.
struct AttributeInfo {
  String name;
  AttributeKind kind;
  String typeName;  // of the value, child or member

  Value (*read)(const PtrInterface&) = nullptr;
  Datum (*toDatum)(const PtrInterface&) = nullptr;           // stored, values
  void (*fromDatum)(PtrInterface&, const Datum&) = nullptr;  // stored, values: sets, with notification
  // reference: sets it; AttributeException when the object is of another type. Null clears.
  void (*referenceIs)(PtrInterface&, const Ptr<PtrInterface>&) = nullptr;

  // child (name ignored) and members: the owned object, or null.
  Ptr<PtrInterface> (*member)(const PtrInterface&, std::string_view name) = nullptr;
  // Ordered or hashed as the collection is; names are the keys' text forms.
  std::vector<String> (*memberNames)(const PtrInterface&) = nullptr;
  // Create-or-get with typed constructor parameters.
  Ptr<PtrInterface> (*create)(PtrInterface&, const std::vector<Value>&) = nullptr;
  // Create-or-get from the key's text form alone; empty when the member needs more than its key.
  Ptr<PtrInterface> (*createNamed)(PtrInterface&, std::string_view name) = nullptr;
  // False when there was no such member.
  bool (*remove)(PtrInterface&, std::string_view name) = nullptr;
  void (*removeAll)(PtrInterface&) = nullptr;
};

class TypeInfo {
 public:
  explicit TypeInfo(String name = "Kel::PtrInterface") : name_(std::move(name)) {}

  const String& name() const { return name_; }
  // The base type's first, then in order of declaration.
  const std::vector<AttributeInfo>& attributes() const { return attributes_; }
  const AttributeInfo* find(std::string_view name) const;

  // For the declaring macros.
  void nameIs(String name) { name_ = std::move(name); }
  void add(AttributeInfo attribute) { attributes_.push_back(std::move(attribute)); }

 private:
  String name_;
  std::vector<AttributeInfo> attributes_;
};

// The value of an attribute by name. Throws AttributeException when the type has no such attribute or it is a
// collection.
Value readAttribute(const PtrInterface& object, std::string_view name);

// Calls "<attr>Is" (create-or-get, or set for a stored attribute), "<attr>Del" (members: by the key's text form) or
// "<attr>DelAll" by name. Returns the created or existing object, null for the others. Throws AttributeException
// when there is no such operation or an argument is of the wrong number or type.
Ptr<PtrInterface> callOperation(PtrInterface& object, std::string_view operation,
                                const std::vector<Value>& arguments);

}  // namespace Kel
