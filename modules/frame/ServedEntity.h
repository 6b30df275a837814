#pragma once
// The entity that a registration serves: where it is found, by SNMP context, and how the registration holds it.

#include "kel/Entity.h"
#include "modules/frame/NetSnmp.h"

namespace Modules {

struct EntitySource {
  const char* defaultPath;  // in the default context
  const char* vrfPath;      // in a VRF's context: "%s" stands for the VRF. Null: the object is not served there
  const char* typeName;
  bool (*isOfType)(const Kel::Entity& entity);

  bool serves(const Kel::String& context) const { return context.empty() || vrfPath != nullptr; }
  // Requires: serves(context).
  Kel::String path(const Kel::String& context) const;
};

// The source of entities of type T. The paths must outlive it.
template <class T>
EntitySource entitySource(const char* defaultPath, const char* vrfPath) {
  return {defaultPath, vrfPath, T::kelName(),
          [](const Kel::Entity& entity) { return dynamic_cast<const T*>(&entity) != nullptr; }};
}

// The texts for a path that leads nowhere or to another type, both of them faults of the product's configuration.
struct SourceFaultTexts {
  Kel::String object;            // "table ipAddrTable"
  Kel::String wrongTypeEnding;   // follows the type's name
  Kel::String missingAssertion;  // the texts of the assertions that end the process
  Kel::String wrongTypeAssertion;
};

// Returns the entity of the context. Aborts when there is none or it is of another type, after a line on standard error
// that names the path.
Kel::Ptr<Kel::Entity> entityAt(const EntitySource& source, const Kel::String& context,
                               const SourceFaultTexts& texts);

// Gives the registration a counted reference to the entity, and points `my_reg_void` at it. Requires: the registration
// is not registered yet, and holds no entity.
//
// The reference is the private data of the registration's own handler, the last of its chain: net-snmp frees and clones
// that, but never the private pointer of a registration or of an iterator record. So the entity lives until net-snmp
// frees the registration, and a request that races the removal of a VRF reads the old cache.
void holdEntity(netsnmp_handler_registration* registration, const Kel::Ptr<Kel::Entity>& entity);

// Returns the entity that a handler serves; null when the registration holds none. `handler` is the registration's own.
// Its data is the fallback: net-snmp copies a registration inside which somebody registers an object, and leaves
// `my_reg_void` out of the copy.
Kel::Entity* heldEntity(const netsnmp_mib_handler* handler, const netsnmp_handler_registration* registration);

}  // namespace Modules
