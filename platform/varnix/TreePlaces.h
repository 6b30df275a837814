#pragma once
// Where in a tree a document belongs: makes the entity at a path, and takes it away again. Internal to the entity
// manager.
//
// Entities that stand in directories are fixed, but for those of open directories, which come and go. Everything
// else is a member of a collection, `<owner>.<attribute>/<name>`.

#include <map>
#include <string>
#include <vector>

#include "varnix/Tree.h"

namespace Varnix {

struct TreePlace {
  Kel::Ptr<Kel::Entity> entity;                   // null: there is no such place
  Kel::Ptr<Kel::Entity> owner;                    // of a member, or the open directory; null: the entity is fixed
  const Kel::AttributeInfo* attribute = nullptr;  // that the member is in; null: an entry of an open directory
  std::string name;
};

// Carries out a change of the tree, in which reactors run. What they throw is traced at level 0 and goes no further:
// the change is made, and the books that are kept of it must follow.
template <typename Change>
void react(const std::string& path, const Change& change);
void reactorFailed(const std::string& path, std::string_view what);

class TreePlaces {
 public:
  using Fixed = std::map<std::string, Kel::Ptr<Kel::Entity>>;

  TreePlaces(Kel::Ptr<Kel::Dir> root, const std::vector<OpenDir>& openDirs);

  const Fixed& fixed() const { return fixed_; }

  // The fixed entity, or a new one. Without a place, `obstacle` says why.
  TreePlace make(const std::string& path, const std::string& type, std::string& obstacle) const;
  // Not for fixed entities.
  static void remove(const std::string& path, const TreePlace& place);

 private:
  bool makeEntry(const std::string& path, const std::string& type, TreePlace& place, std::string& obstacle) const;
  bool makeMember(const std::string& path, const std::string& type, std::size_t dot, TreePlace& place,
                  std::string& obstacle) const;

  Kel::Ptr<Kel::Dir> root_;
  Fixed fixed_;
  std::map<std::string, OpenDir> open_;  // by path and '/'
};

template <typename Change>
void react(const std::string& path, const Change& change) {
  try {
    change();
  } catch (const std::exception& error) {
    reactorFailed(path, error.what());
  }
}

}  // namespace Varnix
