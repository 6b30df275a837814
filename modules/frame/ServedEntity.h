#pragma once
// The entity that a registration serves: its path by SNMP context, and the reference that the registration holds.

#include "kel/Entity.h"
#include "modules/frame/NetSnmp.h"

namespace Modules {

struct EntitySource {
  const char* defaultPath;  // in the default context
  const char* vrfPath;      // in a VRF's context, with "%s" for the VRF. Null: not served there
  const char* typeName;
  bool (*isOfType)(const Kel::Entity& entity);

  bool serves(const Kel::String& context) const { return context.empty() || vrfPath != nullptr; }
  // Requires: serves(context).
  Kel::String path(const Kel::String& context) const;
};

// Returns a source of entities of type T. Lifetime: the paths must outlive it.
template <class T>
EntitySource entitySource(const char* defaultPath, const char* vrfPath) {
  return {defaultPath, vrfPath, T::kelName(),
          [](const Kel::Entity& entity) { return dynamic_cast<const T*>(&entity) != nullptr; }};
}

// The texts for a path without an entity, or with one of another type. Both are faults of the configuration.
struct SourceFaultTexts {
  Kel::String object;            // "table ipAddrTable"
  Kel::String wrongTypeEnding;   // follows the type's name
  Kel::String missingAssertion;  // the texts of the assertions that end the process
  Kel::String wrongTypeAssertion;
};

// Returns the entity of the context. If there is none, or one of another type, writes a line that names the path to
// standard error and aborts.
Kel::Ptr<Kel::Entity> entityAt(const EntitySource& source, const Kel::String& context,
                               const SourceFaultTexts& texts);

// Gives the registration a counted reference to the entity, and points `my_reg_void` at it. Requires: the registration
// is not registered yet, and holds no entity.
//
// The reference is the private data of the registration's own handler, the last of its chain. net-snmp frees and clones
// that data, unlike the private pointers of registrations and iterator records. So the entity lives until net-snmp
// frees the registration, and a request during the removal of a VRF reads the old cache.
void holdEntity(netsnmp_handler_registration* registration, const Kel::Ptr<Kel::Entity>& entity);

// Returns the entity that a handler serves; null if the registration holds none. `handler` is the registration's own;
// its data is the fallback. (When another object is registered inside a registration, net-snmp copies the registration
// without `my_reg_void`.)
Kel::Entity* heldEntity(const netsnmp_mib_handler* handler, const netsnmp_handler_registration* registration);

}  // namespace Modules
