#pragma once
// What the tests of this folder share: a store in a directory of its own, trees as text, and changes at random that
// reach every attribute through reflection.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "quillo/testing/TestStore.h"
#include "varnix/Document.h"
#include "varnix/DocumentPublisher.h"
#include "varnix/EntityManager.h"

namespace VarnixTest {

inline Vantu::IntfId id(const std::string& text) {
  return Vantu::IntfId(text);
}

class Directory {
 public:
  Directory() {
    char name[] = "/tmp/varnix-test-XXXXXX";
    path_ = mkdtemp(name);
  }
  ~Directory() { std::filesystem::remove_all(path_); }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

using Quillo::Test::Traces;

inline void collect(const Kel::Ptr<Kel::Entity>& entity, std::vector<Kel::Ptr<Kel::Entity>>& all) {
  if (const auto dir = Kel::dynamicPtr<Kel::Dir>(entity)) {
    for (const auto& [name, entry] : dir->entityPtr()) collect(entry, all);
    return;
  }
  all.push_back(entity);
  for (const auto& attribute : entity->kelTypeInfo().attributes()) {
    if (attribute.kind != Kel::AttributeKind::members) continue;
    for (const auto& name : attribute.memberNames(*entity)) {
      collect(Kel::dynamicPtr<Kel::Entity>(attribute.member(*entity, name)), all);
    }
  }
}

// Every entity of a tree but the directories.
inline std::vector<Kel::Ptr<Kel::Entity>> entitiesOf(const Varnix::Tree& tree) {
  std::vector<Kel::Ptr<Kel::Entity>> all;
  collect(tree.root, all);
  return all;
}

// All documents of a tree by path.
inline std::map<std::string, std::string> textOf(const Varnix::Tree& tree) {
  std::map<std::string, std::string> text;
  for (const auto& entity : entitiesOf(tree)) {
    text[*Varnix::pathBelow(*tree.root, *entity)] = Varnix::documentText(Varnix::documentOf(*entity, *tree.root));
  }
  return text;
}

// Values of every kind; which of them an attribute accepts, it says itself.
inline const std::vector<Kel::Datum>& someValues() {
  using Kel::Datum;
  static const auto state = [](const char* name) { return Datum(Datum::Object{{"state", Datum(name)}}); };
  static const auto facts = [](bool group) {
    return Datum(Datum::Object{{"nexthopGroup", Datum(group)}, {"persistent", Datum(true)}});
  };
  static const auto counters = [](std::uint64_t count) {
    Datum::Object fields;
    for (const char* direction : {"in", "out"}) {
      for (const char* what : {"Pkts", "Octets", "UcastPkts", "UcastOctets", "McastPkts", "McastOctets"}) {
        fields.emplace_back(std::string(direction) + what, Datum(count++));
      }
    }
    return Datum(std::move(fields));
  };
  static const std::vector<Datum> values{
      Datum(true),
      Datum(false),
      Datum(std::uint64_t{7}),
      Datum(std::uint64_t{4294967295}),
      Datum("red"),
      Datum("a.b/c"),
      Datum("\xff\n\\x"),
      Datum("10.1.2.3/24"),
      Datum("192.0.2.1/32"),
      Datum("2001:db8::1/64"),
      Datum("02:00:00:00:00:01"),
      Datum("0a:0b:0c:0d:0e:0f"),
      Datum("65000:1"),
      Datum("192.0.2.1:7"),
      Datum("operStatusUp"),
      Datum("operStatusDown"),
      Datum("vrfStateActive"),
      Datum("vrfStateDeleting"),
      Datum("fecModePerVrf"),
      Datum("fecModeUnified"),
      counters(1),
      counters(std::uint64_t{1} << 63),
      Datum(Datum::Object{}),
      Datum(Datum::Object{{"10.2.0.1/16", Datum(true)}}),
      Datum(Datum::Object{{"10.2.0.1/16", Datum(true)}, {"10.3.0.1/8", Datum(true)}}),
      Datum(Datum::Object{{"2001:db8::2/64", state("addressStatePreferred")}}),
      Datum(Datum::Object{{"2001:db8::2/64", state("addressStateTentative")}}),
      Datum(Datum::Object{{"10.2.0.0/16 1", facts(true)}}),
      Datum(Datum::Object{{"10.2.0.0/16 1", facts(false)}, {"0.0.0.0/0 4294967295", facts(true)}}),
      Datum(Datum::Object{{"2001:db8::/64 1", facts(true)}}),
      Datum(Datum::Object{{"2001:db8::/64 1", facts(false)}}),
      Datum(Datum::Object{{"0", Datum("default")}}),
      Datum(Datum::Object{{"0", Datum("default")}, {"16777214", Datum("\xff\n\\x")}}),
      Datum(Datum::Object{{"default", Datum("0")}}),
      Datum(Datum::Object{{"\xff\n\\x", Datum("16777214")}, {"a.b/c", Datum("1")}}),
  };
  return values;
}

// The values among them that the attribute accepts and that differ, as the attribute itself shows them.
inline std::vector<Kel::Datum> acceptedValues(Kel::Entity& entity, const Kel::AttributeInfo& attribute) {
  std::vector<Kel::Datum> accepted;
  for (const auto& value : someValues()) {
    try {
      attribute.fromDatum(entity, value);
    } catch (const Kel::RangeException&) {
      continue;
    }
    const auto shown = attribute.toDatum(entity);
    if (std::find(accepted.begin(), accepted.end(), shown) == accepted.end()) accepted.push_back(shown);
  }
  return accepted;
}

// Names of every kind that VRFs and interfaces can have.
inline const std::vector<std::string>& someNames() {
  static const std::vector<std::string> names{"eth0",
                                              "eth1",
                                              "a.b",
                                              "a/b",
                                              "a",
                                              "default",
                                              "\xff",
                                              "a.vrf/b",
                                              "x/y.z/",
                                              std::string(100, 'n'),
                                              std::string("\n\0\\x41", 6)};
  return names;
}

// Changes a tree at random: members and entries come and go, attributes and references are set.
class Mutator {
 public:
  Mutator(const Varnix::Tree& tree, unsigned seed) : tree_(tree), random_(seed) {}

  void change() {
    const auto& name = someNames()[pick(someNames().size())];
    if (pick(8) == 0) {
      const auto& dir = pick(2) == 0 ? tree_.routingVrfInfoDir : tree_.routing6VrfInfoDir;
      if (!dir->entityDel(name)) dir->entityIs(Kel::makePtr<Routing::VrfInfo>(name));
      return;
    }
    const auto all = entitiesOf(tree_);
    const auto entity = all[pick(all.size())];
    const auto& attributes = entity->kelTypeInfo().attributes();
    const auto& attribute = attributes[pick(attributes.size())];
    if (attribute.fromDatum) {
      try {
        attribute.fromDatum(*entity, someValues()[pick(someValues().size())]);
      } catch (const Kel::RangeException&) {
      }
    } else if (attribute.referenceIs) {
      try {
        attribute.referenceIs(*entity, pick(4) == 0 ? nullptr : all[pick(all.size())]);
      } catch (const Kel::AttributeException&) {
      }
    } else if (attribute.createNamed) {
      if (pick(3) == 0) {
        attribute.remove(*entity, name);
      } else {
        attribute.createNamed(*entity, name);
      }
    }
  }

 private:
  std::size_t pick(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_); }
  const Varnix::Tree& tree_;
  std::mt19937 random_;
};

// A publisher with a tree of its own.
struct Writer {
  explicit Writer(const std::string& directory, bool recreate = false)
      : store({.directory = directory, .name = "test-publisher", .recreate = recreate}) {}
  Varnix::Tree tree{Kel::makePtr<Kel::Dir>("")};
  Quillo::Publisher store;
  Varnix::DocumentPublisher documents{tree, store};
};

// An agent's tree.
struct Reader {
  explicit Reader(const std::string& directory)
      : mount(Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{directory})),
        manager(Kel::makePtr<Varnix::EntityManager>(top->dirIs("Varnix"), mount)) {}
  // As an event loop does it. The number of steps that were taken.
  unsigned follow(std::size_t limit = 100) {
    unsigned steps = 0;
    while (mount->refresh()) {
      for (++steps; manager->step(limit); ++steps) {
      }
    }
    return steps;
  }
  const Varnix::Tree& tree() const { return manager->tree(); }

  Kel::Ptr<Kel::Dir> top = Kel::makePtr<Kel::Dir>("");
  Kel::Ptr<Quillo::Mount> mount;
  Kel::Ptr<Varnix::EntityManager> manager;
};

}  // namespace VarnixTest
