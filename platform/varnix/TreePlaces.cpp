#include "varnix/TreePlaces.h"

#include <fmt/format.h>

#include "kel/Trace.h"
#include "varnix/ByteText.h"
#include "varnix/Document.h"

namespace Varnix {
namespace {

Kel::TraceHandle treePlacesTrace("VarnixPlaces");

void collectFixed(const Kel::Ptr<Kel::Dir>& dir, const Kel::Entity& root, TreePlaces::Fixed& fixed) {
  for (const auto& [name, entity] : dir->entityPtr()) {
    if (const auto below = Kel::dynamicPtr<Kel::Dir>(entity)) {
      collectFixed(below, root, fixed);
    } else {
      fixed[*pathBelow(root, *entity)] = entity;
    }
  }
}

std::string wrongType(std::string_view found, std::string_view whose, std::string_view expected) {
  return fmt::format("its type is '{}', {} {}", escapeBytes(found), whose, expected);
}

std::string wrongName(const std::string& name, std::string_view what) {
  return fmt::format("'{}' is not how {} is called", escapeBytes(name), what);
}

}  // namespace

void reactorFailed(const std::string& path, std::string_view what) {
  QTRACE(treePlacesTrace, 0) << escapeBytes(path) << ": a reactor failed: " << escapeBytes(what);
}

TreePlaces::TreePlaces(Kel::Ptr<Kel::Dir> root, const std::vector<OpenDir>& openDirs) : root_(std::move(root)) {
  collectFixed(root_, *root_, fixed_);
  for (const auto& open : openDirs) open_.emplace(*pathBelow(*root_, *open.dir) + "/", open);
}

TreePlace TreePlaces::make(const std::string& path, const std::string& type, std::string& obstacle) const {
  TreePlace place;
  if (const auto at = fixed_.find(path); at != fixed_.end()) {
    const auto& actual = at->second->kelTypeInfo().name();
    if (actual == type) {
      place.entity = at->second;
    } else {
      obstacle = wrongType(type, "the entity's", actual);
    }
    return place;
  }
  if (makeEntry(path, type, place, obstacle)) return place;
  obstacle = fmt::format("there is no place for it here (type '{}')", escapeBytes(type));
  makeMember(path, type, place, obstacle);
  return place;
}

// True when the path leads into an open directory. The rest of the path is the entry's name, which may hold any bytes.
bool TreePlaces::makeEntry(const std::string& path, const std::string& type, TreePlace& place,
                           std::string& obstacle) const {
  auto at = open_.upper_bound(path);
  if (at == open_.begin() || !path.starts_with((--at)->first)) return false;
  const auto& open = at->second;
  if (open.type != type) {
    obstacle = wrongType(type, "that of entries here", open.type);
    return true;
  }
  const auto name = path.substr(at->first.size());
  obstacle = wrongName(name, "an entry");
  if (open.dir->entityPtrHas(name)) return true;
  try {
    place.entity = open.make(name);
  } catch (const Kel::RangeException& error) {
    obstacle = escapeBytes(error.what());
    return true;
  }
  place.owner = open.dir;
  react(path, [&] { open.dir->entityIs(place.entity); });
  return true;
}

// The first dot ends the owner's path, since directories and fixed entities have none in their names.
void TreePlaces::makeMember(const std::string& path, const std::string& type, TreePlace& place,
                            std::string& obstacle) const {
  const auto dot = path.find('.');
  const auto slash = path.find('/', dot);
  const auto found = fixed_.find(path.substr(0, dot));
  if (slash == std::string::npos || found == fixed_.end()) return;
  const auto& owner = found->second;
  const auto* attribute = owner->kelTypeInfo().find(std::string_view(path).substr(dot + 1, slash - dot - 1));
  if (!attribute || attribute->kind != Kel::AttributeKind::members || !attribute->createNamed) return;
  if (attribute->typeName != type) {
    obstacle = wrongType(type, "that of members here", attribute->typeName);
    return;
  }
  const auto name = path.substr(slash + 1);
  obstacle = wrongName(name, "a member");
  if (name.empty() || attribute->member(*owner, name)) return;
  std::string failure;
  try {
    attribute->createNamed(*owner, name);
  } catch (const std::exception& error) {
    failure = error.what();
  }
  place = find(path);
  if (!place.entity) {
    if (!failure.empty()) obstacle = escapeBytes(failure);
    return;
  }
  if (!failure.empty()) reactorFailed(path, failure);  // the member exists nevertheless
}

TreePlace TreePlaces::find(const std::string& path) const {
  if (const auto at = fixed_.find(path); at != fixed_.end()) return {at->second, nullptr, nullptr};
  if (auto at = open_.upper_bound(path); at != open_.begin() && path.starts_with((--at)->first)) {
    const auto entry = at->second.dir->entityPtr(path.substr(at->first.size()));
    return entry ? TreePlace{entry, at->second.dir, nullptr} : TreePlace();
  }
  const auto dot = path.find('.');
  const auto slash = path.find('/', dot);
  const auto owner = fixed_.find(path.substr(0, dot));
  if (slash == std::string::npos || owner == fixed_.end()) return {};
  const auto* attribute =
      owner->second->kelTypeInfo().find(std::string_view(path).substr(dot + 1, slash - dot - 1));
  if (!attribute || attribute->kind != Kel::AttributeKind::members) return {};
  // The empty name of a VRF is another text for the key "default", for instance.
  const auto name = std::string_view(path).substr(slash + 1);
  const auto member = Kel::dynamicPtr<Kel::Entity>(attribute->member(*owner->second, name));
  return member && member->name() == name ? TreePlace{member, owner->second, attribute} : TreePlace();
}

std::string TreePlaces::pathOf(const Kel::Entity& entity) const {
  return *pathBelow(*root_, entity);
}

void TreePlaces::remove(const std::string& path, const TreePlace& place) {
  react(path, [&] {
    if (place.attribute) {
      place.attribute->remove(*place.owner, place.entity->name());
    } else {
      Kel::dynamicPtr<Kel::Dir>(place.owner)->entityDel(place.entity->name());
    }
  });
}

}  // namespace Varnix
