#include "varnix/TreeLoader.h"

#include <fmt/format.h>

#include "kel/Trace.h"
#include "varnix/ByteText.h"

namespace Varnix {
namespace {

Kel::TraceHandle treeLoaderTrace("VarnixLoader");

using Kel::AttributeInfo;
using Kel::AttributeKind;

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

// Returns whether the path has an entity.
bool TreeLoader::keep(const std::string& path) {
  unreadable_.insert(path);
  const auto at = entries_.find(path);
  if (at == entries_.end()) return places_.fixed().contains(path);
  at->second.pass = pass_;
  condemned_.erase(path);
  return true;
}

void TreeLoader::take(const std::string& path, std::string_view text) {
  try {
    auto document = documentFromText(text);
    unreadable_.erase(path);
    take(path, entries_[path], std::move(document));
  } catch (const DocumentException& error) {
    QTRACE(treeLoaderTrace, 0) << escapeBytes(path) << ": document left out: " << escapeBytes(error.what());
    keep(path);
  }
}

void TreeLoader::take(const std::string& path, Entry& entry, Document document) {
  entry.pass = pass_;
  waiting_.remove(path);
  condemned_.erase(path);
  auto& entity = entry.place.entity;
  if (entity && entity->kelTypeInfo().name() != document.type) displace(path, entry);
  const bool isNew = !entity;
  std::string obstacle;
  if (isNew) entry.place = places_.make(path, document.type, obstacle);
  if (!entity) {
    if (unplaced_.insert_or_assign(path, std::move(obstacle)).second) unreported_.push_back(path);
    return;
  }
  if (isNew) learnDefaults(*entity);
  setAttributesWhenComplete(path, entry, std::move(document));
  if (!isNew) return;
  unplaced_.erase(path);
  came_.push_back(path);
}

void TreeLoader::withdraw(const std::string& path) {
  const auto at = entries_.find(path);
  if (at == entries_.end()) return;
  if (at->second.place.owner && isReferredTo(path)) {
    waiting_.remove(path);
    condemned_.insert(path);
  } else {
    remove(path);
  }
}

void TreeLoader::remove(const std::string& path) {
  const auto at = entries_.find(path);
  waiting_.remove(path);
  condemned_.erase(path);
  if (at->second.place.entity) displace(path, at->second);
  unplaced_.erase(path);
  entries_.erase(at);
}

// Resolves the references to new entities, loads the documents that waited for them, and deletes condemned entities
// that lost their last reference.
void TreeLoader::workOff() {
  while (!came_.empty() || !freed_.empty()) {
    for (const auto& target : std::exchange(came_, {})) {
      resolveReferrers(target);
      for (const auto& path : waiting_.waitingFor(target)) {
        setAttributesWhenComplete(path, entries_.at(path), *waiting_.take(path));
      }
    }
    for (const auto& path : std::exchange(freed_, {})) {
      if (condemned_.contains(path) && !isReferredTo(path)) remove(path);
    }
  }
}

void TreeLoader::beginPass() {
  ++pass_;
  sweepFrom_.clear();
  unreadable_.clear();
  isUnplacedDamage_ = false;
}

bool TreeLoader::sweep(std::size_t limit) {
  if (isUnplacedDamage_) return false;
  for (auto at = entries_.lower_bound(sweepFrom_); at != entries_.end(); at = entries_.lower_bound(sweepFrom_)) {
    if (limit-- == 0) return true;
    const auto path = at->first;
    sweepFrom_ = path + '\0';
    if (at->second.pass != pass_) deleteDocument(path);
  }
  return false;
}

bool TreeLoader::settle(std::size_t limit) {
  if (!unreadable_.empty()) return false;
  for (; limit > 0 && !waiting_.empty(); --limit) {
    const auto path = waiting_.first();
    setAttributes(path, entries_.at(path), *waiting_.take(path));
    workOff();
  }
  for (; limit > 0 && !condemned_.empty(); --limit) {
    remove(std::string(*condemned_.begin()));
    workOff();
  }
  return !waiting_.empty() || !condemned_.empty();
}

void TreeLoader::reportUnplaced() {
  for (const auto& path : unreported_) {
    const auto unplaced = unplaced_.find(path);
    if (unplaced == unplaced_.end()) continue;
    QTRACE(treeLoaderTrace, 0) << escapeBytes(path) << ": document left out: " << unplaced->second;
  }
  unreported_.clear();
}

void TreeLoader::displace(const std::string& path, Entry& entry) {
  if (!entry.place.owner) {
    clearTargets(path, entry);
    setDefaults(path, *std::exchange(entry.place.entity, nullptr));
    return;
  }
  const auto place = std::exchange(entry.place, {});
  clearTargets(path, entry);
  resolveReferrers(path);  // to null, since the entry has no entity now
  TreePlaces::remove(path, place);
}

// ---- attributes

void TreeLoader::setAttributesWhenComplete(const std::string& path, Entry& entry, Document document) {
  std::set<std::string> absent;
  for (const auto& [attribute, target] : targetsOf(entry, document)) {
    if (!target.empty() && !entityAt(target)) absent.insert(target);
  }
  if (absent.empty()) {
    setAttributes(path, entry, document);
  } else {
    waiting_.add(path, std::move(document), std::move(absent));
  }
}

// Reactors read values together with references. So references are set before the values, and cleared after them.
void TreeLoader::setAttributes(const std::string& path, Entry& entry, const Document& document) {
  const auto& type = entry.place.entity->kelTypeInfo();
  const Kel::Datum attributes(document.attributes);
  const auto targets = targetsOf(entry, document);
  for (const auto& [attribute, target] : targets) {
    if (entityAt(target)) setTarget(path, entry, *attribute, target);
  }
  for (const auto& attribute : type.attributes()) {
    if (attribute.fromDatum) {
      setValue(path, *entry.place.entity, attribute, attributes.member(attribute.name));
    }
  }
  for (const auto& [attribute, target] : targets) {
    if (!entityAt(target)) setTarget(path, entry, *attribute, target);
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

// The target path of each reference attribute in the document; empty for null.
TreeLoader::Targets TreeLoader::targetsOf(const Entry& entry, const Document& document) {
  Targets targets;
  for (const auto& attribute : entry.place.entity->kelTypeInfo().attributes()) {
    if (attribute.kind == AttributeKind::reference) targets[&attribute];
  }
  for (const auto& [name, value] : document.attributes) {
    const auto at = targets.find(entry.place.entity->kelTypeInfo().find(name));
    const auto* path = value.getIf<std::string>();
    if (at != targets.end() && path) at->second = *path;
  }
  return targets;
}

void TreeLoader::setTarget(const std::string& path, Entry& entry, const AttributeInfo& attribute,
                           std::string target) {
  auto known = entry.targets.find(&attribute);
  if (known != entry.targets.end() && known->second != target) {
    const auto at = referrers_.find(known->second);
    at->second.erase(path);
    if (at->second.empty()) referrers_.erase(at);
    if (condemned_.contains(known->second)) freed_.push_back(known->second);
  }
  if (target.empty()) {
    if (known == entry.targets.end()) return;
    entry.targets.erase(known);
  } else {
    referrers_[target].insert(path);
    entry.targets[&attribute] = std::move(target);
  }
  if (entry.place.entity) resolve(path, entry, attribute);
}

void TreeLoader::clearTargets(const std::string& path, Entry& entry) {
  while (!entry.targets.empty()) setTarget(path, entry, *entry.targets.begin()->first, "");
}

void TreeLoader::resolve(const std::string& path, Entry& entry, const AttributeInfo& attribute) {
  const auto known = entry.targets.find(&attribute);
  const auto target = known == entry.targets.end() ? nullptr : entityAt(known->second);
  try {
    attribute.referenceIs(*entry.place.entity, target);
  } catch (const Kel::AttributeException& error) {
    QTRACE(treeLoaderTrace, 0) << escapeBytes(path) << ": attribute '" << attribute.name
                               << "' left out: " << escapeBytes(error.what());
    react(path, [&] { attribute.referenceIs(*entry.place.entity, nullptr); });
  } catch (const std::exception& error) {
    reactorFailed(path, error.what());
  }
}

void TreeLoader::resolveReferrers(const std::string& target) {
  const auto at = referrers_.find(target);
  if (at == referrers_.end()) return;
  for (const auto& path : std::set<std::string>(at->second)) {
    const auto referrer = entries_.find(path);
    if (referrer == entries_.end() || !referrer->second.place.entity) continue;
    for (const auto& [attribute, path_] : referrer->second.targets) {
      if (path_ == target) resolve(path, referrer->second, *attribute);
    }
  }
}

bool TreeLoader::isReferredTo(const std::string& path) const {
  const auto at = referrers_.find(path);
  return at != referrers_.end() && (at->second.size() > 1 || !at->second.contains(path));
}

Kel::Ptr<Kel::Entity> TreeLoader::entityAt(const std::string& path) const {
  if (const auto at = entries_.find(path); at != entries_.end() && at->second.place.entity) {
    return at->second.place.entity;
  }
  const auto at = places_.fixed().find(path);
  return at == places_.fixed().end() ? nullptr : at->second;
}

}  // namespace Varnix
