#include "varnix/TreeLoader.h"

#include <fmt/format.h>

#include "kel/Trace.h"
#include "varnix/ByteText.h"

namespace Varnix {
namespace {

Kel::TraceHandle traceHandle("VarnixLoader");

using Kel::AttributeInfo;
using Kel::AttributeKind;

void collectFixed(const Kel::Ptr<Kel::Dir>& dir, const Kel::Entity& root,
                  std::map<std::string, Kel::Ptr<Kel::Entity>>& fixed) {
  for (const auto& [name, entity] : dir->entityPtr()) {
    if (const auto below = Kel::dynamicPtr<Kel::Dir>(entity)) {
      collectFixed(below, root, fixed);
    } else {
      fixed[*pathBelow(root, *entity)] = entity;
    }
  }
}

void reactorFailed(const std::string& path, std::string_view what) {
  QTRACE(traceHandle, 0) << escapeBytes(path) << ": a reactor failed: " << escapeBytes(what);
}

// Carries out a change of the tree, in which reactors run. What they throw goes no further: the change is made, and
// the loader's own books must follow it.
template <typename Change>
void react(const std::string& path, const Change& change) {
  try {
    change();
  } catch (const std::exception& error) {
    reactorFailed(path, error.what());
  }
}

}  // namespace

TreeLoader::TreeLoader(Kel::Ptr<Kel::Dir> root) : root_(std::move(root)) {
  collectFixed(root_, *root_, fixed_);
  for (const auto& [path, entity] : fixed_) learnDefaults(*entity);
}

// ---- documents

void TreeLoader::documentIs(const std::string& path, std::string_view text) {
  QTRACE_ENTRY(traceHandle, this);
  try {
    const auto document = documentFromText(text);
    documentIs(path, entries_[path], document, text);
  } catch (const DocumentException& error) {
    QTRACE(traceHandle, 0) << escapeBytes(path) << ": document left out: " << escapeBytes(error.what());
    documentDel(path);
  }
}

void TreeLoader::documentIs(const std::string& path, Entry& entry, const Document& document,
                            std::string_view text) {
  entry.pass = pass_;
  if (entry.entity && entry.entity->kelTypeInfo().name() != document.type) displace(path, entry);
  const bool isNew = !entry.entity;
  if (isNew) place(path, entry, document.type);
  if (!entry.entity) {
    entry.unplacedText = text;
    if (unplaced_.insert(path).second) unreported_.push_back(path);
    return;
  }
  attributesAre(path, entry, document);
  if (!isNew) return;
  entry.unplacedText.clear();
  unplaced_.erase(path);
  resolveReferrers(path);
  ownerCame(path);
}

void TreeLoader::documentDel(const std::string& path) {
  QTRACE_ENTRY(traceHandle, this);
  const auto at = entries_.find(path);
  if (at == entries_.end()) return;
  if (at->second.entity) displace(path, at->second);
  unplaced_.erase(path);
  entries_.erase(at);
}

void TreeLoader::passBegin() {
  ++pass_;
  sweepFrom_.clear();
}

bool TreeLoader::sweep(std::size_t limit) {
  for (auto at = entries_.lower_bound(sweepFrom_); at != entries_.end(); at = entries_.lower_bound(sweepFrom_)) {
    if (limit-- == 0) return true;
    const auto path = at->first;
    sweepFrom_ = path + '\0';
    if (at->second.pass != pass_) documentDel(path);
  }
  return false;
}

void TreeLoader::reportUnplaced() {
  for (const auto& path : unreported_) {
    if (!unplaced_.contains(path)) continue;
    QTRACE(traceHandle, 0) << escapeBytes(path) << ": document left out: " << entries_[path].obstacle;
  }
  unreported_.clear();
}

// ---- places

void TreeLoader::place(const std::string& path, Entry& entry, const std::string& type) {
  if (const auto at = fixed_.find(path); at != fixed_.end()) {
    const auto& actual = at->second->kelTypeInfo().name();
    if (actual == type) {
      entry.entity = at->second;
    } else {
      entry.obstacle = fmt::format("its type is '{}', the entity's {}", escapeBytes(type), actual);
    }
    return;
  }
  entry.obstacle = fmt::format("there is no place for it here (type '{}')", escapeBytes(type));
  // Names may hold dots, so each of them may be the one in front of the attribute.
  for (auto dot = path.find('.'); dot != std::string::npos; dot = path.find('.', dot + 1)) {
    if (placeMember(path, entry, type, dot)) return;
  }
}

bool TreeLoader::placeMember(const std::string& path, Entry& entry, const std::string& type, std::size_t dot) {
  const auto slash = path.find('/', dot);
  const auto owner = Kel::resolve(root_, std::string_view(path).substr(0, dot));
  if (slash == std::string::npos || !owner) return false;
  const auto* attribute = owner->kelTypeInfo().find(std::string_view(path).substr(dot + 1, slash - dot - 1));
  if (!attribute || attribute->kind != AttributeKind::members || !attribute->createNamed) return false;
  if (attribute->typeName != type) {
    entry.obstacle =
        fmt::format("its type is '{}', that of members here {}", escapeBytes(type), attribute->typeName);
    return false;
  }
  const auto name = path.substr(slash + 1);
  entry.obstacle = fmt::format("'{}' is not how a member is called", escapeBytes(name));
  if (name.empty() || attribute->member(*owner, name)) return false;
  std::string failure;
  try {
    attribute->createNamed(*owner, name);
  } catch (const std::exception& error) {
    failure = error.what();
  }
  const auto member = Kel::dynamicPtr<Kel::Entity>(attribute->member(*owner, name));
  if (!member) {
    if (!failure.empty()) entry.obstacle = escapeBytes(failure);
    return false;
  }
  if (!failure.empty()) reactorFailed(path, failure);  // it was made all the same
  if (pathBelow(*root_, *member) != path) {
    react(path, [&] { attribute->remove(*owner, name); });
    return false;
  }
  learnDefaults(*member);
  entry.entity = member;
  entry.owner = owner;
  entry.attribute = attribute;
  entry.name = name;
  return true;
}

void TreeLoader::displace(const std::string& path, Entry& entry) {
  if (!entry.owner) {
    targetsDelAll(path, entry);
    defaultsAre(path, *std::exchange(entry.entity, nullptr));
    return;
  }
  membersDel(path, *entry.entity);
  entry.entity = nullptr;
  targetsDelAll(path, entry);
  resolveReferrers(path);  // to nothing: nobody refers to what is no longer there
  const auto owner = std::exchange(entry.owner, nullptr);
  react(path, [&] { entry.attribute->remove(*owner, entry.name); });
}

// Members go with their owner. What begins with its path need not be one: a sibling's name may have a dot in it.
void TreeLoader::membersDel(const std::string& path, const Kel::Entity& owner) {
  const auto below = path + ".";
  std::vector<std::string> members;
  for (auto at = entries_.lower_bound(below); at != entries_.end() && at->first.starts_with(below); ++at) {
    if (at->second.owner.get() == &owner) members.push_back(at->first);
  }
  for (const auto& member : members) documentDel(member);
}

void TreeLoader::ownerCame(const std::string& path) {
  const auto below = path + ".";
  std::vector<std::string> waiting;
  for (auto at = unplaced_.lower_bound(below); at != unplaced_.end() && at->starts_with(below); ++at) {
    waiting.push_back(*at);
  }
  for (const auto& member : waiting) {
    const auto at = entries_.find(member);
    if (at == entries_.end() || at->second.entity) continue;  // placed by an owner that came within this loop
    const auto pass = at->second.pass;
    documentIs(member, std::string(at->second.unplacedText));
    at->second.pass = pass;
  }
}

// ---- attributes

void TreeLoader::attributesAre(const std::string& path, Entry& entry, const Document& document) {
  const auto& type = entry.entity->kelTypeInfo();
  const Kel::Datum attributes(document.attributes);
  for (const auto& attribute : type.attributes()) {
    const auto* value = attributes.member(attribute.name);
    if (attribute.fromDatum) {
      valueIs(path, *entry.entity, attribute, value);
    } else if (attribute.kind == AttributeKind::reference) {
      const auto* target = value ? value->getIf<std::string>() : nullptr;
      if (value && !target && !value->isNull()) {
        QTRACE(traceHandle, 0) << escapeBytes(path) << ": attribute '" << attribute.name
                               << "' left out: expected a path or null, found " << value->kindName();
      }
      targetIs(path, entry, attribute, target ? *target : std::string());
    }
  }
  unknownAttributes(path, type, document);
}

void TreeLoader::valueIs(const std::string& path, Kel::Entity& entity, const AttributeInfo& attribute,
                         const Kel::Datum* value) {
  if (value) {
    try {
      attribute.fromDatum(entity, *value);
      return;
    } catch (const Kel::RangeException& error) {
      QTRACE(traceHandle, 0) << escapeBytes(path) << ": attribute '" << attribute.name
                             << "' left out: " << escapeBytes(error.what());
    } catch (const std::exception& error) {
      reactorFailed(path, error.what());
      return;
    }
  }
  react(path, [&] { attribute.fromDatum(entity, defaults_[&entity.kelTypeInfo()][&attribute]); });
}

void TreeLoader::defaultsAre(const std::string& path, Kel::Entity& entity) {
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

void TreeLoader::unknownAttributes(const std::string& path, const Kel::TypeInfo& type, const Document& document) {
  for (const auto& [name, value] : document.attributes) {
    const auto* attribute = type.find(name);
    if (attribute && isDocumentAttribute(*attribute)) continue;
    // A newer publisher has it in every document: saying so once is enough.
    constexpr std::size_t mostRemembered = 1000;
    const auto fault =
        fmt::format("{} has no attribute '{}' that a document can set; left out", type.name(), escapeBytes(name));
    const bool isNews = unknown_.size() < mostRemembered && unknown_.insert(fault).second;
    QTRACE(traceHandle, isNews ? 0 : 6) << escapeBytes(path) << ": " << fault;
  }
}

// ---- references

void TreeLoader::targetIs(const std::string& path, Entry& entry, const AttributeInfo& attribute,
                          std::string target) {
  auto known = entry.targets.find(&attribute);
  if (known != entry.targets.end() && known->second != target) {
    const auto at = referrers_.find(known->second);
    at->second.erase(path);
    if (at->second.empty()) referrers_.erase(at);
  }
  if (target.empty()) {
    if (known == entry.targets.end()) return;
    entry.targets.erase(known);
  } else {
    referrers_[target].insert(path);
    entry.targets[&attribute] = std::move(target);
  }
  if (entry.entity) resolve(path, entry, attribute);
}

void TreeLoader::targetsDelAll(const std::string& path, Entry& entry) {
  while (!entry.targets.empty()) targetIs(path, entry, *entry.targets.begin()->first, "");
}

void TreeLoader::resolve(const std::string& path, Entry& entry, const AttributeInfo& attribute) {
  const auto known = entry.targets.find(&attribute);
  const auto target = known == entry.targets.end() ? nullptr : entityAt(known->second);
  try {
    attribute.referenceIs(*entry.entity, target);
  } catch (const Kel::AttributeException& error) {
    QTRACE(traceHandle, 0) << escapeBytes(path) << ": attribute '" << attribute.name
                           << "' left out: " << escapeBytes(error.what());
    react(path, [&] { attribute.referenceIs(*entry.entity, nullptr); });
  } catch (const std::exception& error) {
    reactorFailed(path, error.what());
  }
}

void TreeLoader::resolveReferrers(const std::string& target) {
  const auto at = referrers_.find(target);
  if (at == referrers_.end()) return;
  for (const auto& path : std::set<std::string>(at->second)) {
    const auto referrer = entries_.find(path);
    if (referrer == entries_.end() || !referrer->second.entity) continue;
    for (const auto& [attribute, path_] : referrer->second.targets) {
      if (path_ == target) resolve(path, referrer->second, *attribute);
    }
  }
}

Kel::Ptr<Kel::Entity> TreeLoader::entityAt(const std::string& path) const {
  if (const auto at = entries_.find(path); at != entries_.end() && at->second.entity) return at->second.entity;
  const auto at = fixed_.find(path);
  return at == fixed_.end() ? nullptr : at->second;
}

}  // namespace Varnix
