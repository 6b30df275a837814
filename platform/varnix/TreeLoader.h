#pragma once
// Makes a tree of entities equal to a set of documents. Internal to the entity manager.
//
// Entities that stand in directories are fixed: a document sets their attributes, and without one these are at
// their defaults. Everything else is a member of a collection, `<owner>.<attribute>/<name>`: it comes and goes with
// its document. What the tree holds depends only on the documents that are there, not on the order in which they
// came (a member whose owner is missing waits for it; a reference waits for its target), and a value that stays the
// same is not set again.
//
// Bad documents are traced at level 0, once, and left out: malformed ones, types and places that the tree does not
// have, attributes that the type does not have. An attribute whose value is bad is at its default.

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kel/Dir.h"
#include "varnix/Document.h"

namespace Varnix {

class TreeLoader {
 public:
  // `root` holds the fixed entities, as yet untouched. Nobody else writes to the tree.
  explicit TreeLoader(Kel::Ptr<Kel::Dir> root);

  void documentIs(const std::string& path, std::string_view text);
  void documentDel(const std::string& path);

  // A new set of documents: what is not given again from here on goes with the sweep.
  void passBegin();
  // Looks at no more than `limit` documents. True while there is more to sweep.
  bool sweep(std::size_t limit);

  // Traces documents that have found no place in the tree. To be called when all documents are in: until then they
  // may be waiting for an owner.
  void reportUnplaced();

 private:
  // What there is of a document in the tree.
  struct Entry {
    Kel::Ptr<Kel::Entity> entity;  // null: no place
    Kel::Ptr<Kel::Entity> owner;   // null: the entity is fixed
    const Kel::AttributeInfo* attribute = nullptr;
    std::string name;
    std::uint64_t pass = 0;
    std::string unplacedText;                                  // the document, as long as it has no place
    std::string obstacle;                                      // why it has none
    std::map<const Kel::AttributeInfo*, std::string> targets;  // paths
  };
  using Entries = std::map<std::string, Entry>;
  using Defaults = std::map<const Kel::AttributeInfo*, Kel::Datum>;

  void place(const std::string& path, Entry& entry, const std::string& type);
  bool placeMember(const std::string& path, Entry& entry, const std::string& type, std::size_t dot);
  void documentIs(const std::string& path, Entry& entry, const Document& document, std::string_view text);
  void displace(const std::string& path, Entry& entry);
  void membersDel(const std::string& path, const Kel::Entity& owner);
  void ownerCame(const std::string& path);

  void attributesAre(const std::string& path, Entry& entry, const Document& document);
  void valueIs(const std::string& path, Kel::Entity& entity, const Kel::AttributeInfo& attribute,
               const Kel::Datum* value);
  void defaultsAre(const std::string& path, Kel::Entity& entity);
  void learnDefaults(const Kel::Entity& fresh);

  void targetIs(const std::string& path, Entry& entry, const Kel::AttributeInfo& attribute, std::string target);
  void targetsDelAll(const std::string& path, Entry& entry);
  void resolve(const std::string& path, Entry& entry, const Kel::AttributeInfo& attribute);
  void resolveReferrers(const std::string& target);
  Kel::Ptr<Kel::Entity> entityAt(const std::string& path) const;

  void unknownAttributes(const std::string& path, const Kel::TypeInfo& type, const Document& document);

  Kel::Ptr<Kel::Dir> root_;
  std::map<std::string, Kel::Ptr<Kel::Entity>> fixed_;
  Entries entries_;
  std::uint64_t pass_ = 0;
  std::string sweepFrom_;
  std::set<std::string> unplaced_;
  std::vector<std::string> unreported_;
  std::map<std::string, std::set<std::string>> referrers_;  // by target
  std::map<const Kel::TypeInfo*, Defaults> defaults_;
  std::set<std::string> unknown_;  // attributes that were traced
};

}  // namespace Varnix
