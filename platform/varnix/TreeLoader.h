#pragma once
// Makes a tree of entities equal to a set of documents. Internal to the entity manager.
//
// Entities that stand in directories are fixed: a document sets their attributes, and without one these are at
// their defaults. Everything else comes and goes with its document: members of collections,
// `<owner>.<attribute>/<name>`, and the entries of open directories. What the tree holds once settle() is done
// depends only on the documents that are there, not on the order in which they came (a member whose owner is missing
// waits for it), and a value that stays the same is not set again.
//
// Documents come in pieces, and what refers to what may lie in different ones. So that nobody sees half a change:
// - a document that refers to an entity that is not there yet is not taken in before that is: until then its entity
//   keeps the attributes that it had, which are the defaults of a new one;
// - an entity that others refer to is not deleted before they have let go of it.
// settle() ends the waiting: a reference whose target is still not there is null.
//
// Bad documents are traced at level 0, once, and left out: malformed ones, types and places that the tree does not
// have, attributes that the type does not have. An attribute whose value is bad is at its default.

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "varnix/Document.h"
#include "varnix/TreePlaces.h"
#include "varnix/WaitingDocuments.h"

namespace Varnix {

class TreeLoader {
 public:
  // `root` holds the fixed entities, as yet untouched, and the open directories. Nobody else writes to the tree.
  explicit TreeLoader(Kel::Ptr<Kel::Dir> root, const std::vector<OpenDir>& openDirs = {});

  void documentIs(const std::string& path, std::string_view text);
  void documentDel(const std::string& path);

  // A new set of documents: what is not given again from here on goes with the sweep.
  void passBegin();
  // Looks at no more than `limit` documents. True while there is more to sweep.
  bool sweep(std::size_t limit);

  // To be called when all documents are in. Looks at no more than `limit` of those that wait; true while there are
  // more.
  bool settle(std::size_t limit);
  // Traces documents that have found no place in the tree. To be called when it is settled: until then they may be
  // waiting for an owner.
  void reportUnplaced();

 private:
  using Targets = std::map<const Kel::AttributeInfo*, std::string>;  // paths
  // What there is of a document in the tree.
  struct Entry {
    TreePlace place;
    std::uint64_t pass = 0;
    std::string unplacedText;  // the document, as long as it has no place
    std::string obstacle;      // why it has none
    Targets targets;
  };
  using Entries = std::map<std::string, Entry>;
  using Defaults = std::map<const Kel::AttributeInfo*, Kel::Datum>;

  void take(const std::string& path, std::string_view text);
  void take(const std::string& path, Entry& entry, Document document, std::string_view text);
  void withdraw(const std::string& path);
  void remove(const std::string& path);
  void displace(const std::string& path, Entry& entry);
  void membersDel(const std::string& path, const Kel::Entity& owner);
  void ownerCame(const std::string& path);

  void attributesWhenComplete(const std::string& path, Entry& entry, Document document);
  void attributesAre(const std::string& path, Entry& entry, const Document& document);
  void valueIs(const std::string& path, Kel::Entity& entity, const Kel::AttributeInfo& attribute,
               const Kel::Datum* value);
  void defaultsAre(const std::string& path, Kel::Entity& entity);
  void learnDefaults(const Kel::Entity& fresh);

  static Targets targetsOf(const Entry& entry, const Document& document);
  void targetIs(const std::string& path, Entry& entry, const Kel::AttributeInfo& attribute, std::string target);
  void targetsDelAll(const std::string& path, Entry& entry);
  void resolve(const std::string& path, Entry& entry, const Kel::AttributeInfo& attribute);
  void resolveReferrers(const std::string& target);
  bool isReferredTo(const std::string& path) const;
  Kel::Ptr<Kel::Entity> entityAt(const std::string& path) const;
  void workOff();

  void badAttributes(const std::string& path, const Kel::TypeInfo& type, const Document& document);

  TreePlaces places_;
  Entries entries_;
  std::uint64_t pass_ = 0;
  std::string sweepFrom_;
  std::set<std::string> unplaced_;
  std::vector<std::string> unreported_;
  std::map<std::string, std::set<std::string>> referrers_;  // by target
  WaitingDocuments waiting_;
  std::set<std::string> condemned_;  // paths whose document is gone, while something refers to their entity
  std::vector<std::string> came_;    // targets that came, and
  std::vector<std::string> freed_;   // condemned ones that nothing refers to any more, in this call
  std::map<const Kel::TypeInfo*, Defaults> defaults_;
  std::set<std::string> unknown_;  // attributes that were traced
};

}  // namespace Varnix
