#pragma once
// Finds, creates and deletes the entity at a document's path.
//
// Three kinds of entities have a path: fixed ones, in directories; entries of open directories; members of a fixed
// entity's collection, `<owner>.<attribute>/<name>`. Only fixed entities exist without a document.

#include <map>
#include <string>
#include <vector>

#include "varnix/Tree.h"

namespace Varnix {

struct TreePlace {
  Kel::Ptr<Kel::Entity> entity;                   // null: the tree has no such place
  Kel::Ptr<Kel::Entity> owner;                    // of a member, or the open directory; null for a fixed entity
  const Kel::AttributeInfo* attribute = nullptr;  // the member's collection; null for an entry of an open directory
};

// Traces an exception of a reactor at level 0. `path`: the entity that was changed.
void reactorFailed(const std::string& path, std::string_view what);

// Calls `change`, which changes the tree, and traces an exception of a reactor. The change remains in effect.
template <typename Change>
void react(const std::string& path, const Change& change) {
  try {
    change();
  } catch (const std::exception& error) {
    reactorFailed(path, error.what());
  }
}

class TreePlaces {
 public:
  using Fixed = std::map<std::string, Kel::Ptr<Kel::Entity>>;

  TreePlaces(Kel::Ptr<Kel::Dir> root, const std::vector<OpenDir>& openDirs);

  const Fixed& fixed() const { return fixed_; }

  // Returns the fixed entity at `path`, or creates the entry or member. The result is empty, and `obstacle` names the
  // reason, if the tree has no such place, its entities are of another type, or the entry or member exists already.
  TreePlace make(const std::string& path, const std::string& type, std::string& obstacle) const;
  // Returns the entity at `path`, or an empty place if there is none.
  TreePlace find(const std::string& path) const;
  // The path of an entity in the tree: find() finds the entity there.
  std::string pathOf(const Kel::Entity& entity) const;
  // Deletes an entry or member. Requires: `place` is the result of make() or find() for `path`, and not a fixed entity.
  static void remove(const std::string& path, const TreePlace& place);

 private:
  bool makeEntry(const std::string& path, const std::string& type, TreePlace& place, std::string& obstacle) const;
  void makeMember(const std::string& path, const std::string& type, TreePlace& place, std::string& obstacle) const;

  Kel::Ptr<Kel::Dir> root_;
  Fixed fixed_;
  std::map<std::string, OpenDir> open_;  // by path and '/'
};

}  // namespace Varnix
