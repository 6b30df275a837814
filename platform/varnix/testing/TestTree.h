#pragma once
// For tests: a store with a publisher's tree and an agent's tree, trees as text, and random changes that reach every
// attribute through reflection.

#include <map>
#include <random>
#include <string>
#include <vector>

#include "quillo/testing/TestStore.h"
#include "varnix/Document.h"
#include "varnix/DocumentPublisher.h"
#include "varnix/EntityManager.h"

namespace VarnixTest {

using Quillo::Test::Traces;

inline Vantu::IntfId id(const std::string& text) {
  return Vantu::IntfId(text);
}

// Every entity of a tree, without the directories.
inline std::vector<Kel::Ptr<Kel::Entity>> entitiesOf(const Varnix::Tree& tree) {
  std::vector<Kel::Ptr<Kel::Entity>> all, dirs{tree.root};
  while (!dirs.empty()) {
    const auto dir = Kel::dynamicPtr<Kel::Dir>(dirs.back());
    dirs.pop_back();
    for (const auto& [name, entity] : dir->entityPtr()) {
      (Kel::dynamicPtr<Kel::Dir>(entity) ? dirs : all).push_back(entity);
      for (const auto& attribute : entity->kelTypeInfo().attributes()) {
        if (attribute.kind != Kel::AttributeKind::members || Kel::dynamicPtr<Kel::Dir>(entity)) continue;
        for (const auto& member : attribute.memberNames(*entity)) {
          all.push_back(Kel::dynamicPtr<Kel::Entity>(attribute.member(*entity, member)));
        }
      }
    }
  }
  return all;
}

inline std::map<std::string, std::string> textOf(const Varnix::Tree& tree) {
  std::map<std::string, std::string> text;
  for (const auto& entity : entitiesOf(tree)) {
    text[*Varnix::pathBelow(*tree.root, *entity)] = Varnix::documentText(Varnix::documentOf(*entity, *tree.root));
  }
  return text;
}

// Values of every kind; each attribute accepts some of them, at least two.
inline const Kel::Datum::List& someValues() {
  static const auto document = Varnix::documentFromText(R"({"type":"", "attributes":{"values":[
    true, false, 7, 4294967295, "red", "a.b/c", "\\xff\\x0a\\x5cx", "10.1.2.3/24", "192.0.2.1/32", "2001:db8::1/64",
    "02:00:00:00:00:01", "0a:0b:0c:0d:0e:0f", "65000:1", "192.0.2.1:7", "operStatusUp", "operStatusDown",
    "vrfStateActive", "vrfStateDeleting", "fecModePerVrf", "fecModeUnified", "adminStatusUp", "duplexFull",
    {"inOctets":1, "inPkts":2, "inMcastPkts":3, "inDiscards":4, "inErrors":5, "outOctets":6, "outPkts":7,
     "outDiscards":8, "outErrors":9},
    {"inHdrErrors":1, "inNoRoutes":2, "inAddrErrors":3, "inUnknownProtos":4, "inTruncatedPkts":5, "inDiscards":6,
     "inDelivers":7, "outForwDatagrams":8, "outRequests":9, "outDiscards":10, "reasmReqds":11, "reasmOKs":12,
     "reasmFails":13, "fragOKs":14, "fragFails":15, "fragCreates":16},
    {"isEnabled":true, "forwarding":true, "reasmMaxSize":65535, "retransmitTime":1000, "reachableTime":30000},
    {"192.0.2.1 eth0":{"expires":0.0, "utcOffset":1.5, "preference":0}},
    {"inPkts":1, "inOctets":2, "outPkts":3, "outOctets":4, "inUcastPkts":5, "inUcastOctets":6, "outUcastPkts":7,
     "outUcastOctets":8, "inMcastPkts":9, "inMcastOctets":10, "outMcastPkts":11, "outMcastOctets":12},
    {"inPkts":9223372036854775808, "inOctets":2, "outPkts":3, "outOctets":4, "inUcastPkts":5, "inUcastOctets":6,
     "outUcastPkts":7, "outUcastOctets":8, "inMcastPkts":9, "inMcastOctets":10, "outMcastPkts":11, "outMcastOctets":0},
    {}, {"10.2.0.1/16":true}, {"10.2.0.1/16":true, "10.3.0.1/8":true},
    {"2001:db8::2/64":{"state":"addressStatePreferred"}}, {"2001:db8::2/64":{"state":"addressStateTentative"}},
    {"10.2.0.0/16 1":{"nexthopGroup":true, "persistent":true}},
    {"10.2.0.0/16 1":{"nexthopGroup":false, "persistent":true}, "0.0.0.0/0 255":{"nexthopGroup":true, "persistent":true}},
    {"2001:db8::/64 1":{"nexthopGroup":true, "persistent":true}},
    {"2001:db8::/64 1":{"nexthopGroup":false, "persistent":true}},
    {"0":"default"}, {"0":"default", "16777214":"\\xff\\x0a\\x5cx"},
    {"default":"0"}, {"\\xff\\x0a\\x5cx":"16777214", "a.b/c":"1"}]}})");
  return *document.attributes.front().second.getIf<Kel::Datum::List>();
}

// Names of every kind that VRFs and interfaces can have.
inline const std::vector<std::string>& someNames() {
  static const std::vector<std::string> names{"eth0",          "eth1", "a.b",     "a/b",    "a",
                                              "default",       "\xff", "a.vrf/b", "x/y.z/", std::string(100, 'n'),
                                              {"\n\0\\x41", 6}};
  return names;
}

// Changes a tree at random: members and entries are created and deleted, attributes and references are set.
class Mutator {
 public:
  Mutator(const Varnix::Tree& tree, unsigned seed) : tree_(tree), random_(seed) {}

  void change(int count) {
    while (count-- > 0) change();
  }

 private:
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
    try {
      if (attribute.fromDatum) {
        attribute.fromDatum(*entity, someValues()[pick(someValues().size())]);
      } else if (attribute.referenceIs) {
        attribute.referenceIs(*entity, pick(4) == 0 ? nullptr : all[pick(all.size())]);
      } else if (attribute.createNamed && pick(3) == 0) {
        attribute.remove(*entity, name);
      } else if (attribute.createNamed) {
        attribute.createNamed(*entity, name);
      }
    } catch (const Kel::Exception&) {  // the attribute accepts no such value
    }
  }
  std::size_t pick(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_); }
  const Varnix::Tree& tree_;
  std::mt19937 random_;
};

struct Writer {
  explicit Writer(const std::string& directory, bool recreate = false)
      : Writer({.directory = directory, .name = "test-publisher", .recreate = recreate},
               Varnix::Tree(Kel::makePtr<Kel::Dir>(""))) {}
  Writer(const Quillo::PublisherConfig& config, const Varnix::Tree& published) : tree(published), store(config) {}
  Varnix::Tree tree;
  Quillo::Publisher store;
  Varnix::DocumentPublisher documents{tree, store};
};

struct Reader {
  explicit Reader(const std::string& directory)
      : mount(Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{directory})),
        manager(Kel::makePtr<Varnix::EntityManager>(top->dirIs("Varnix"), mount)) {}
  // Refreshes the mount and applies everything, as an event loop does.
  void follow(std::size_t limit = 100) const {
    while (mount->refresh()) {
      while (manager->step(limit)) {
      }
    }
  }
  const Varnix::Tree& tree() const { return manager->tree(); }

  Kel::Ptr<Kel::Dir> top = Kel::makePtr<Kel::Dir>("");
  Kel::Ptr<Quillo::Mount> mount;
  Kel::Ptr<Varnix::EntityManager> manager;
};

}  // namespace VarnixTest
