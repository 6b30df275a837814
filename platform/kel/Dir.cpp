#include "kel/Dir.h"

KEL_TYPE_DEFINE(Kel::Dir)

namespace Kel {

Ptr<Entity> Dir::entityIs(Ptr<Entity> entity) {
  const Name name = entity->name();
  if (const auto existing = entityPtr(name)) {
    if (existing == entity) return entity;
    throw ReinstantiationException(
        fmt::format("directory '{}' already has an entity named '{}'", fullName(), name));
  }
  entity->kelPlace(this, "", nullptr);
  entityPtr_.map.kelInsert(name, entity);
  kelNotify<Notifiee>([&](Notifiee& reactor) { reactor.handleEntityPtr(name); });
  return entity;
}

Ptr<Dir> Dir::dirIs(const Name& name) {
  if (const auto existing = entityPtr(name)) {
    auto dir = dynamicPtr<Dir>(existing);
    if (!dir) {
      throw AttributeException(
          fmt::format("'{}' is a {}, not a directory", existing->fullName(), existing->kelTypeInfo().name()));
    }
    return dir;
  }
  auto dir = makePtr<Dir>(name);
  entityIs(dir);
  return dir;
}

bool Dir::entityDel(const Name& givenName) {
  const auto hold = kept(*this);
  const Name name = givenName;  // a copy: `givenName` may be part of the entity
  const auto gone = entityPtr_.map.kelTake(name);
  if (!gone) return false;
  gone->kelDeleted();
  gone->kelOrphan();
  kelNotify<Notifiee>([&](Notifiee& reactor) { reactor.handleEntityPtr(name); });
  return true;
}

Dir::~Dir() {
  for (const auto& [name, entity] : entityPtr_.map) entity->kelOrphan();
}

namespace {

Ptr<Entity> resolveRest(const Ptr<Entity>& from, std::string_view rest);

// Resolves a path that begins with a name, which `find(name)` looks up. Tries each possible end of the name, the
// shortest name first, until the rest of the path leads to an entity.
template <class Find>
Ptr<Entity> resolveName(std::string_view path, Find find) {
  for (std::size_t at = path.find_first_of("./", 1);; at = path.find_first_of("./", at + 1)) {
    const Ptr<Entity> named = find(path.substr(0, at));
    const auto rest = at == std::string_view::npos ? std::string_view() : path.substr(at);
    if (auto found = named ? resolveRest(named, rest) : nullptr) return found;
    if (at == std::string_view::npos) return nullptr;
  }
}

Ptr<Entity> resolveEntry(const Dir& dir, std::string_view path) {
  return resolveName(path, [&](std::string_view name) {
    const auto* entry = dir.entityPtr().find(Name(name));
    return entry ? *entry : nullptr;
  });
}

Ptr<Entity> resolveAttribute(const Ptr<Entity>& owner, std::string_view path) {
  const auto end = path.find_first_of("./");
  const auto* attribute = owner->kelTypeInfo().find(path.substr(0, end));
  if (!attribute || !attribute->member) return nullptr;
  const auto rest = end == std::string_view::npos ? std::string_view() : path.substr(end);
  if (attribute->kind == AttributeKind::members) {
    if (rest.size() < 2 || rest.front() != '/') return nullptr;
    return resolveName(rest.substr(1),
                       [&](std::string_view name) { return dynamicPtr<Entity>(attribute->member(*owner, name)); });
  }
  const auto child = dynamicPtr<Entity>(attribute->member(*owner, {}));
  return child ? resolveRest(child, rest) : nullptr;
}

Ptr<Entity> resolveRest(const Ptr<Entity>& from, std::string_view rest) {
  if (rest.empty()) return from;
  if (rest.front() == '.') return resolveAttribute(from, rest.substr(1));
  const auto* dir = dynamic_cast<const Dir*>(from.get());
  return dir && rest.size() > 1 ? resolveEntry(*dir, rest.substr(1)) : nullptr;
}

}  // namespace

Ptr<Entity> resolve(const Ptr<Entity>& root, std::string_view path) {
  if (!root || path.empty()) return root;
  const auto* dir = dynamic_cast<const Dir*>(root.get());
  return dir ? resolveEntry(*dir, path) : nullptr;
}

}  // namespace Kel
