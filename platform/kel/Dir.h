#pragma once
// A directory of entities by name. Ordered by name.

#include "kel/Entity.h"

namespace Kel {

class Dir : public Entity {
  KEL_TYPE_BEGIN("Kel::Dir", Dir, Entity)

 public:
  KEL_NAMED(Dir, Entity)

  // Reactors: handleEntityPtr(name) when an entry is added or deleted.
  KEL_MEMBERS_READ(Ordered, Name, Entity, entityPtr, EntityPtr)
  KEL_TYPE_END_DECLARE

  // Adds `entity` under its own name and returns it. Throws ReinstantiationException when another entity has the name.
  Ptr<Entity> entityIs(Ptr<Entity> entity);
  // Creates or gets the directory. Throws AttributeException when an entity of another type has the name.
  Ptr<Dir> dirIs(const Name& name);
  // Deletes an entry, after notifying the entry's own reactors. False when there is none.
  bool entityDel(const Name& name);
  ~Dir() override;
};

// Returns the entity at a path relative to `root`, such as "snmp/ip/vrf.mibs/red.ipmib", or null. An empty path is
// `root`.
//
// A '/' precedes the name of a directory entry or member, a '.' the name of an attribute. Names may contain both
// characters, so several names can match at one place in the path. They are tried from the shortest to the longest
// until one leads to an entity.
Ptr<Entity> resolve(const Ptr<Entity>& root, std::string_view path);

}  // namespace Kel
