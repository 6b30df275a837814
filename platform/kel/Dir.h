#pragma once
// A directory of entities by name. Ordered by name.

#include "kel/Entity.h"

namespace Kel {

class Dir : public Entity {
  KEL_TYPE_BEGIN("Kel::Dir", Dir, Entity)

 public:
  KEL_NAMED(Dir, Entity)

  // Reactors: handleEntityPtr(name) when an entry comes or goes.
  KEL_MEMBERS_READ(Ordered, Name, Entity, entityPtr, EntityPtr)
  KEL_TYPE_END_DECLARE

  // Enters `entity` under its own name, which must not be taken by another entity (ReinstantiationException).
  // Returns it.
  Ptr<Entity> entityIs(Ptr<Entity> entity);
  // The directory of that name, made when absent. AttributeException when an entity of another type has the name.
  Ptr<Dir> dirIs(const Name& name);
  bool entityDel(const Name& name);
  ~Dir() override;
};

// The entity at a path relative to `root`, or null: "snmp/ip/vrf.mibs/red.ipmib". Directory entries and collection
// members are separated by '/', attributes by '.'. Names may contain both characters, so a path is resolved against
// the names that exist, the shortest first, trying the next when the rest of the path leads nowhere. An empty path
// is `root`.
Ptr<Entity> resolve(const Ptr<Entity>& root, std::string_view path);

}  // namespace Kel
