#pragma once
// Where the entity lives that a registration serves, by SNMP context.

#include "kel/Entity.h"

namespace Modules {

struct EntitySource {
  const char* defaultPath;  // in the default context
  const char* vrfPath;      // in a VRF's: "%s" stands for the VRF. Null: the object is not served there
  const char* typeName;
  bool (*isOfType)(const Kel::Entity& entity);

  bool serves(const Kel::String& context) const { return context.empty() || vrfPath != nullptr; }
  // To be asked only for a context that is served.
  Kel::String path(const Kel::String& context) const;
};

// The source of entities of type T. The texts must outlive it.
template <class T>
EntitySource entitySource(const char* defaultPath, const char* vrfPath) {
  return {defaultPath, vrfPath, T::kelName(),
          [](const Kel::Entity& entity) { return dynamic_cast<const T*>(&entity) != nullptr; }};
}

// What is said when the path leads nowhere or to something else. Both are faults of the product's configuration.
struct SourceFaultTexts {
  Kel::String object;            // "table ipAddrTable"
  Kel::String wrongTypeEnding;   // follows the type's name
  Kel::String missingAssertion;  // the texts of the assertions that end the process
  Kel::String wrongTypeAssertion;
};

// The entity of the context. Aborts, after a line on standard error that names the path, when there is none or it
// is of another type.
Kel::Ptr<Kel::Entity> entityAt(const EntitySource& source, const Kel::String& context,
                               const SourceFaultTexts& texts);

}  // namespace Modules
