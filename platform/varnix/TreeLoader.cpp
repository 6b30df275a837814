#include "varnix/TreeLoader.h"

#include <fmt/format.h>

#include "kel/Trace.h"
#include "varnix/ByteText.h"

namespace Varnix {
namespace {

Kel::TraceHandle treeLoaderTrace("VarnixLoader");

using Kel::AttributeInfo;
using Kel::AttributeKind;

Kel::Entity* targetHeldBy(const TreeReference& reference) {
  return dynamic_cast<Kel::Entity*>(reference.second->read(*reference.first).handle().get());
}

}  // namespace

TreeLoader::TreeLoader(Kel::Ptr<Kel::Dir> root, const std::vector<OpenDir>& openDirs)
    : places_(std::move(root), openDirs) {
  for (const auto& [path, entity] : places_.fixed()) learnDefaults(*entity);
}

// ---- documents

void TreeLoader::loadDocument(const std::string& path, std::string_view text) {
  QTRACE_ENTRY(treeLoaderTrace, this);
  take(path, text);
  workOff();
}

void TreeLoader::deleteDocument(const std::string& path) {
  QTRACE_ENTRY(treeLoaderTrace, this);
  unreadable_.erase(path);
  withdraw(path);
  workOff();
}

void TreeLoader::keepDocument(const std::string& path) {
  if (!keep(path)) isUnplacedDamage_ = true;
}

// Returns whether the document has an entity, or had no place in the tree when it was read.
bool TreeLoader::keep(const std::string& path) {
  unreadable_.insert(path);
  if (const auto unplaced = unplaced_.find(path); unplaced != unplaced_.end()) {
    unplaced->second.pass = pass_;
    return true;
  }
  const auto entity = entityAt(path);
  if (!entity) return false;
  documents_[entity.get()] = pass_;
  condemned_.erase(entity.get());
  return true;
}

void TreeLoader::take(const std::string& path, std::string_view text) {
  try {
    auto document = documentFromText(text);
    unreadable_.erase(path);
    take(path, std::move(document));
  } catch (const DocumentException& error) {
    QTRACE(treeLoaderTrace, 0) << escapeBytes(path) << ": document left out: " << escapeBytes(error.what());
    keep(path);
  }
}

void TreeLoader::take(const std::string& path, Document document) {
  waiting_.remove(path);
  auto place = places_.find(path);
  if (place.entity && place.entity->kelTypeInfo().name() != document.type) remove(path, std::exchange(place, {}));
  const bool isNew = !place.entity;
  std::string obstacle;
  if (isNew) place = places_.make(path, document.type, obstacle);
  auto* entity = place.entity.get();
  if (!entity) {
    const bool isNews = unplaced_.insert_or_assign(path, Unplaced{std::move(obstacle), pass_}).second;
    if (isNews) unreported_.push_back(path);
    return;
  }
  documents_[entity] = pass_;
  condemned_.erase(entity);
  unplaced_.erase(path);
  if (isNew) learnDefaults(*entity);
  setAttributesWhenComplete(path, *entity, std::move(document));
  if (isNew) came_.push_back(path);
}

void TreeLoader::withdraw(const std::string& path) {
  unplaced_.erase(path);
  const auto place = places_.find(path);
  if (!place.entity) return;
  if (place.owner && isReferredTo(*place.entity)) {
    waiting_.remove(path);
    condemned_.insert(place.entity.get());
  } else {
    remove(path, place);
  }
}

void TreeLoader::removeCondemned(const Kel::Entity& entity) {
  const auto path = places_.pathOf(entity);
  remove(path, places_.find(path));
}

// Undoes what the document at `path` did: a fixed entity gets its defaults, another one is deleted. The latter keeps
// its attributes to the end, since reactors may read them.
void TreeLoader::remove(const std::string& path, const TreePlace& place) {
  auto& entity = *place.entity;
  waiting_.remove(path);
  condemned_.erase(&entity);
  documents_.erase(&entity);
  for (const auto& attribute : entity.kelTypeInfo().attributes()) {
    if (attribute.kind == AttributeKind::reference) untie({&entity, &attribute});
  }
  if (place.owner) {
    detachReferrers(path, entity);
    TreePlaces::remove(path, place);
  } else {
    setDefaults(path, entity);
  }
}

// Resolves the references to new entities, loads the documents that waited for them, and deletes condemned entities
// that lost their last reference.
void TreeLoader::workOff() {
  while (!came_.empty() || !freed_.empty()) {
    for (const auto& target : std::exchange(came_, {})) {
      for (const auto& reference : dangling_.to(target)) setTarget(reference, target);
      for (const auto& path : waiting_.waitingFor(target)) {
        setAttributesWhenComplete(path, *entityAt(path), *waiting_.take(path));
      }
    }
    for (auto* entity : std::exchange(freed_, {})) {
      if (condemned_.contains(entity) && !isReferredTo(*entity)) removeCondemned(*entity);
    }
  }
}

void TreeLoader::beginPass() {
  ++pass_;
  sweptEntity_ = nullptr;
  sweptPath_.clear();
  unreadable_.clear();
  isUnplacedDamage_ = false;
}

bool TreeLoader::sweep(std::size_t limit) {
  if (isUnplacedDamage_) return false;
  for (auto at = documents_.upper_bound(sweptEntity_); at != documents_.end();
       at = documents_.upper_bound(sweptEntity_)) {
    if (limit-- == 0) return true;
    sweptEntity_ = at->first;
    if (at->second != pass_) deleteDocument(places_.pathOf(*at->first));
  }
  for (auto at = unplaced_.upper_bound(sweptPath_); at != unplaced_.end(); at = unplaced_.upper_bound(sweptPath_)) {
    if (limit-- == 0) return true;
    sweptPath_ = at->first;
    if (at->second.pass != pass_) deleteDocument(sweptPath_);
  }
  return false;
}

bool TreeLoader::settle(std::size_t limit) {
  if (!unreadable_.empty()) return false;
  for (; limit > 0 && !waiting_.empty(); --limit) {
    const auto path = waiting_.first();
    setAttributes(path, *entityAt(path), *waiting_.take(path));
    workOff();
  }
  for (; limit > 0 && !condemned_.empty(); --limit) {
    removeCondemned(**condemned_.begin());
    workOff();
  }
  return !waiting_.empty() || !condemned_.empty();
}

void TreeLoader::reportUnplaced() {
  for (const auto& path : unreported_) {
    const auto unplaced = unplaced_.find(path);
    if (unplaced == unplaced_.end()) continue;
    QTRACE(treeLoaderTrace, 0) << escapeBytes(path) << ": document left out: " << unplaced->second.obstacle;
  }
  unreported_.clear();
}

// ---- attributes

void TreeLoader::setAttributesWhenComplete(const std::string& path, Kel::Entity& entity, Document document) {
  std::set<std::string> absent;
  for (const auto& [attribute, target] : targetsOf(entity, document)) {
    if (!target.empty() && !entityAt(target)) absent.insert(target);
  }
  if (absent.empty()) {
    setAttributes(path, entity, document);
  } else {
    waiting_.add(path, std::move(document), std::move(absent));
  }
}

// Reactors read values together with references. So references are set before the values, and cleared after them.
void TreeLoader::setAttributes(const std::string& path, Kel::Entity& entity, const Document& document) {
  const auto& type = entity.kelTypeInfo();
  const Kel::Datum attributes(document.attributes);
  const auto targets = targetsOf(entity, document);
  for (const auto& [attribute, target] : targets) {
    if (entityAt(target)) setTarget({&entity, attribute}, target);
  }
  for (const auto& attribute : type.attributes()) {
    if (attribute.fromDatum) setValue(path, entity, attribute, attributes.member(attribute.name));
  }
  for (const auto& [attribute, target] : targets) {
    if (!entityAt(target)) setTarget({&entity, attribute}, target);
  }
  badAttributes(path, type, document);
}

void TreeLoader::setValue(const std::string& path, Kel::Entity& entity, const AttributeInfo& attribute,
                          const Kel::Datum* value) {
  if (value) {
    try {
      attribute.fromDatum(entity, *value);
      return;
    } catch (const Kel::RangeException& error) {
      QTRACE(treeLoaderTrace, 0) << escapeBytes(path) << ": attribute '" << attribute.name
                                 << "' left out: " << escapeBytes(error.what());
    } catch (const std::exception& error) {
      reactorFailed(path, error.what());
      return;
    }
  }
  react(path, [&] { attribute.fromDatum(entity, defaults_[&entity.kelTypeInfo()][&attribute]); });
}

void TreeLoader::setDefaults(const std::string& path, Kel::Entity& entity) {
  for (const auto& entry : defaults_[&entity.kelTypeInfo()]) {
    react(path, [&] { entry.first->fromDatum(entity, entry.second); });
  }
}

void TreeLoader::learnDefaults(const Kel::Entity& fresh) {
  const auto& type = fresh.kelTypeInfo();
  const auto [at, isNew] = defaults_.try_emplace(&type);
  if (!isNew) return;
  for (const auto& attribute : type.attributes()) {
    if (attribute.fromDatum) at->second[&attribute] = attribute.toDatum(fresh);
  }
}

void TreeLoader::badAttributes(const std::string& path, const Kel::TypeInfo& type, const Document& document) {
  for (const auto& [name, value] : document.attributes) {
    const auto* attribute = type.find(name);
    if (attribute && attribute->kind == AttributeKind::reference) {
      if (value.isNull() || value.getIf<std::string>()) continue;
      QTRACE(treeLoaderTrace, 0) << escapeBytes(path) << ": attribute '" << name
                                 << "' left out: expected a path or null, found " << value.kindName();
      continue;
    }
    if (attribute && isDocumentAttribute(*attribute)) continue;
    // A newer publisher writes it into every document, so it is traced once for a type.
    constexpr std::size_t mostRemembered = 1000;
    const auto fault =
        fmt::format("{} has no attribute '{}' that a document can set; left out", type.name(), escapeBytes(name));
    const bool isNews = unknown_.size() < mostRemembered && unknown_.insert(fault).second;
    QTRACE(treeLoaderTrace, isNews ? 0 : 6) << escapeBytes(path) << ": " << fault;
  }
}

// ---- references

TreeLoader::Targets TreeLoader::targetsOf(const Kel::Entity& entity, const Document& document) {
  Targets targets;
  for (const auto& attribute : entity.kelTypeInfo().attributes()) {
    if (attribute.kind != AttributeKind::reference) continue;
    auto& target = targets.emplace_back(&attribute, "").second;
    for (const auto& [name, value] : document.attributes) {
      const auto* path = value.getIf<std::string>();
      if (name == attribute.name && path) target = *path;
    }
  }
  return targets;
}

// `target`: a path; empty for null.
void TreeLoader::setTarget(const TreeReference& reference, const std::string& target) {
  untie(reference);
  setReference(reference, entityAt(target));
  if (const auto* held = targetHeldBy(reference)) {
    referrers_.emplace(held, reference);
  } else if (!target.empty()) {
    dangling_.add(reference, target);
  }
}

void TreeLoader::setReference(const TreeReference& reference, const Kel::Ptr<Kel::Entity>& target) {
  const auto& [entity, attribute] = reference;
  const auto path = places_.pathOf(*entity);
  try {
    attribute->referenceIs(*entity, target);
  } catch (const Kel::AttributeException& error) {
    QTRACE(treeLoaderTrace, 0) << escapeBytes(path) << ": attribute '" << attribute->name
                               << "' left out: " << escapeBytes(error.what());
    react(path, [&attribute = attribute, &entity = entity] { attribute->referenceIs(*entity, nullptr); });
  } catch (const std::exception& error) {
    reactorFailed(path, error.what());
  }
}

// Forgets what is known of the reference's target, before the reference changes or its entity goes.
void TreeLoader::untie(const TreeReference& reference) {
  dangling_.remove(reference);
  auto* held = targetHeldBy(reference);
  if (!held) return;
  referrers_.erase({held, reference});
  if (condemned_.contains(held)) freed_.push_back(held);
}

// Sets the references to an entity that goes to null, until an entity comes to its path again.
void TreeLoader::detachReferrers(const std::string& path, const Kel::Entity& target) {
  for (auto at = referrers_.lower_bound({&target, {}}); at != referrers_.end() && at->first == &target;
       at = referrers_.lower_bound({&target, {}})) {
    const auto reference = at->second;
    referrers_.erase(at);
    setReference(reference, nullptr);
    dangling_.add(reference, path);
  }
}

// True when another entity refers to it.
bool TreeLoader::isReferredTo(const Kel::Entity& target) const {
  for (auto at = referrers_.lower_bound({&target, {}}); at != referrers_.end() && at->first == &target; ++at) {
    if (at->second.first != &target) return true;
  }
  return false;
}

}  // namespace Varnix
