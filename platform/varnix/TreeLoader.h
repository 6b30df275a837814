#pragma once
// Makes a tree of entities equal to a set of documents. Internal to EntityManager.
//
// A fixed entity always exists; without a document its attributes have their defaults. Members of collections and
// entries of open directories are created and deleted with their documents.
//
// Guarantees:
// - After settle() the tree depends only on the current documents, in any order of their arrival, if all can be read.
// - An entity whose document exists but cannot be read (keepDocument(), or malformed text) keeps its attributes. While
//   there is such a document, settle() sets no reference to null. An interface without its reference to a VRF, for
//   instance, would show its addresses in the default VRF.
// - A value that stays the same is not set again.
// - Reactors never see half a change. A document that refers to a missing entity waits for that entity. Until then
//   its own entity keeps its attributes (a new one its defaults). An entity is deleted after the last reference to
//   it. settle() ends the waiting: it sets a reference to null if the target is still missing.
// - A document of a wrong type or without a place is traced at level 0 and left out. So is an unknown attribute, once
//   for each type of entity. An attribute with a bad value gets its default. Malformed text is traced at level 0.

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "varnix/Document.h"
#include "varnix/TreePlaces.h"

namespace Varnix {

// Documents that wait for the entities to which they refer.
class WaitingDocuments {
 public:
  // Replaces an older document of the path. `missing`: the paths of the absent targets. Requires: at least one.
  void add(const std::string& path, Document document, std::set<std::string> missing) {
    remove(path);
    for (const auto& target : missing) awaited_[target].insert(path);
    waiting_[path] = {std::move(document), std::move(missing)};
  }
  // remove() drops the waiting document of the path, take() also returns it; none if no document of it waits.
  void remove(const std::string& path) { take(path); }
  std::optional<Document> take(const std::string& path) {
    const auto at = waiting_.find(path);
    if (at == waiting_.end()) return std::nullopt;
    for (const auto& target : at->second.missing) {
      const auto waiters = awaited_.find(target);
      waiters->second.erase(path);
      if (waiters->second.empty()) awaited_.erase(waiters);
    }
    std::optional<Document> document(std::move(at->second.document));
    waiting_.erase(at);
    return document;
  }

  // The paths of the documents that wait for `target`.
  std::vector<std::string> waitingFor(const std::string& target) const {
    const auto at = awaited_.find(target);
    if (at == awaited_.end()) return {};
    return {at->second.begin(), at->second.end()};
  }
  bool empty() const { return waiting_.empty(); }
  const std::string& first() const { return waiting_.begin()->first; }

 private:
  struct Waiting {
    Document document;
    std::set<std::string> missing;
  };
  std::map<std::string, Waiting> waiting_;                // by path
  std::map<std::string, std::set<std::string>> awaited_;  // by target
};

// A reference attribute of an entity in the tree.
using TreeReference = std::pair<Kel::Entity*, const Kel::AttributeInfo*>;

// References whose target is missing, or of a type that they do not take.
class DanglingReferences {
 public:
  // Replaces an older target of the reference.
  void add(const TreeReference& reference, const std::string& target) {
    remove(reference);
    byTarget_.emplace(target, reference);
    targets_.emplace(reference, target);
  }
  void remove(const TreeReference& reference) {
    const auto at = targets_.find(reference);
    if (at == targets_.end()) return;
    byTarget_.erase({at->second, reference});
    targets_.erase(at);
  }
  std::vector<TreeReference> to(const std::string& target) const {
    std::vector<TreeReference> references;
    for (auto at = byTarget_.lower_bound({target, {}}); at != byTarget_.end() && at->first == target; ++at) {
      references.push_back(at->second);
    }
    return references;
  }

 private:
  std::map<TreeReference, std::string> targets_;  // paths
  std::set<std::pair<std::string, TreeReference>> byTarget_;
};

class TreeLoader {
 public:
  // `root` holds the fixed entities, at their defaults, and the open directories. Requires: only this object changes
  // the tree.
  TreeLoader(Kel::Ptr<Kel::Dir> root, const std::vector<OpenDir>& openDirs);

  // The document at `path` was added or changed, or deleted. No operation throws: faults are traced.
  void loadDocument(const std::string& path, std::string_view text);
  void deleteDocument(const std::string& path);
  // The document exists but cannot be read: its entity keeps its attributes. If no entity has this path, the path
  // itself may be damaged, and any entity may be the document's. So the sweep of the current set then deletes nothing.
  void keepDocument(const std::string& path);

  // Begins a new set of documents: sweep() deletes the documents that were not loaded again since.
  void beginPass();
  // Looks at most at `limit` documents. Returns true while there is more to sweep.
  bool sweep(std::size_t limit);

  // Ends the waiting for references, after all documents were loaded; no-op while a document cannot be read. Looks at
  // most at `limit` documents; returns true while more of them wait.
  bool settle(std::size_t limit);
  // Traces the documents that have no place in the tree, each once.
  void reportUnplaced();

 private:
  using Pass = std::uint32_t;
  using Targets = std::vector<std::pair<const Kel::AttributeInfo*, std::string>>;  // paths; empty for null
  using Defaults = std::map<const Kel::AttributeInfo*, Kel::Datum>;
  struct Unplaced {
    std::string obstacle;  // why the document has no place
    Pass pass;
  };

  void take(const std::string& path, std::string_view text);
  void take(const std::string& path, Document document);
  void withdraw(const std::string& path);
  bool keep(const std::string& path);
  void remove(const std::string& path, const TreePlace& place);
  void removeCondemned(const Kel::Entity& entity);

  void setAttributesWhenComplete(const std::string& path, Kel::Entity& entity, Document document);
  void setAttributes(const std::string& path, Kel::Entity& entity, const Document& document);
  void setValue(const std::string& path, Kel::Entity& entity, const Kel::AttributeInfo& attribute,
                const Kel::Datum* value);
  void setDefaults(const std::string& path, Kel::Entity& entity);
  void learnDefaults(const Kel::Entity& fresh);

  static Targets targetsOf(const Kel::Entity& entity, const Document& document);
  Kel::Ptr<Kel::Entity> entityAt(const std::string& path) const { return places_.find(path).entity; }
  void setTarget(const TreeReference& reference, const std::string& target);
  void setReference(const TreeReference& reference, const Kel::Ptr<Kel::Entity>& target);
  void untie(const TreeReference& reference);
  void detachReferrers(const std::string& path, const Kel::Entity& target);
  bool isReferredTo(const Kel::Entity& target) const;
  void workOff();

  void badAttributes(const std::string& path, const Kel::TypeInfo& type, const Document& document);

  TreePlaces places_;
  // A VRF has ten documents and seven for each interface. So these hold no path: the entity knows its own.
  absl::btree_map<Kel::Entity*, Pass> documents_;  // by the document's entity: the pass in which it came last
  absl::btree_set<std::pair<const Kel::Entity*, TreeReference>> referrers_;  // by the target that they hold
  DanglingReferences dangling_;
  std::map<std::string, Unplaced> unplaced_;  // by path
  std::vector<std::string> unreported_;
  Pass pass_ = 0;
  Kel::Entity* sweptEntity_ = nullptr;  // where the sweep is in documents_, and then in unplaced_
  std::string sweptPath_;
  std::set<std::string> unreadable_;  // paths of the documents that cannot be read
  bool isUnplacedDamage_ = false;     // since the pass began, one of them belonged to no entity
  WaitingDocuments waiting_;
  std::set<Kel::Entity*> condemned_;  // entities without a document, to which there still are references
  std::vector<std::string> came_;     // within one call: paths of new entities
  std::vector<Kel::Entity*> freed_;   // within one call: condemned ones that lost a reference
  std::map<const Kel::TypeInfo*, Defaults> defaults_;
  std::set<std::string> unknown_;  // messages about unknown attributes that were traced
};

}  // namespace Varnix
