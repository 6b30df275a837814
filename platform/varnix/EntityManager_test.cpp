#include "varnix/EntityManager.h"

#include <gmock/gmock.h>

#include <fstream>

#include "kel/System.h"
#include "varnix/testing/TestTree.h"

namespace VarnixTest {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

TEST(EntityManager, everyTypeAndEveryNameArrives) {
  const Directory directory;
  Writer writer(directory.path());
  const auto& names = someNames();
  for (const auto& name : names) {
    writer.tree.routingVrfInfoDir->entityIs(Kel::makePtr<Routing::VrfInfo>(name));
    writer.tree.routing6VrfInfoDir->entityIs(Kel::makePtr<Routing::VrfInfo>(name));
  }
  for (const auto& entity : entitiesOf(writer.tree)) {
    for (const auto& attribute : entity->kelTypeInfo().attributes()) {
      if (!attribute.createNamed) continue;
      for (const auto& name : names) attribute.createNamed(*entity, name);
    }
  }
  for (const auto& entity : entitiesOf(writer.tree)) {
    for (const auto& attribute : entity->kelTypeInfo().attributes()) {
      if (attribute.fromDatum) acceptedValues(*entity, attribute);  // leaves the last one that it accepts
    }
  }
  for (const auto& name : names) {
    writer.tree.ipStatus->ipIntfStatus(id(name))->l3StatusIs(writer.tree.l3StatusDir->intfStatus(id(name)));
  }
  writer.documents.publishAll();

  Traces traces;
  Reader reader(directory.path());
  reader.follow();
  EXPECT_EQ(textOf(reader.tree()), textOf(writer.tree));
  EXPECT_TRUE(reader.manager->ready());
  EXPECT_EQ(reader.manager->status(), "");
  EXPECT_THAT(traces.take(), IsEmpty());
  for (const auto& name : names) {
    const auto status = reader.tree().ipStatus->ipIntfStatus(id(name));
    EXPECT_EQ(status->l3Status(), reader.tree().l3StatusDir->intfStatus(id(name)));
    EXPECT_EQ(Kel::resolve(reader.top, status->fullName()), status);
    const auto info = reader.tree().routing6VrfInfoDir->entityPtr(name);
    ASSERT_TRUE(info) << name;
    EXPECT_EQ(Kel::resolve(reader.top, info->fullName()), info);
  }
}

TEST(EntityManager, followingEqualsReadingAnew) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    const Directory directory;
    Writer writer(directory.path());
    Mutator mutator(writer.tree, seed);
    Reader follower(directory.path());
    for (int round = 0; round < 25; ++round) {
      for (int i = 0; i < 40; ++i) mutator.change();
      round == 0 ? writer.documents.publishAll() : writer.documents.publish();
      if (round % 3 != 0) continue;  // several commits between two looks
      follower.follow(7);
      ASSERT_EQ(textOf(follower.tree()), textOf(writer.tree)) << "seed " << seed << ", round " << round;
    }
    Reader fresh(directory.path());
    fresh.follow(1000);
    follower.follow(1);
    ASSERT_EQ(textOf(follower.tree()), textOf(fresh.tree())) << "seed " << seed;
    ASSERT_EQ(textOf(fresh.tree()), textOf(writer.tree)) << "seed " << seed;
  }
}

// Tombstones run out, publishers are restarted and stores made anew: the tree is right all the same.
TEST(EntityManager, rebuildsWhenItCannotFollow) {
  const Directory directory;
  Kel::Ptr<Kel::Dir> root = Kel::makePtr<Kel::Dir>("");
  Varnix::Tree tree(root);
  Mutator mutator(tree, 99);
  Reader follower(directory.path());
  for (int round = 0; round < 12; ++round) {
    Quillo::Publisher store(
        {.directory = directory.path(), .name = "forgetful", .recreate = round % 4 == 3, .tombstoneLimit = 2});
    Varnix::DocumentPublisher documents(tree, store);
    documents.publishAll();
    for (int i = 0; i < 100; ++i) mutator.change();
    documents.publish();
    if (round % 2 == 0) follower.follow(5);
    for (int i = 0; i < 100; ++i) mutator.change();
    documents.publish();
    follower.follow(5);
    ASSERT_EQ(textOf(follower.tree()), textOf(tree)) << "round " << round;
    ASSERT_TRUE(follower.manager->ready());
  }
}

struct IntfWatch : Interface::AllIntfStatusDir::Notifiee {
  std::vector<std::string> calls;
  void handleIntfStatus(const Vantu::IntfId& key) override {
    calls.push_back((notifier()->intfStatusHas(key) ? "+" : "-") + key.stringValue());
  }
};
struct IfIndexWatch : Interface::IntfStatus::Notifiee {
  std::vector<std::uint32_t> calls;
  void handleIfIndex() override { calls.push_back(notifier()->ifIndex()); }
};

struct Thrower : Interface::AllIntfStatusDir::Notifiee {
  void handleIntfStatus(const Vantu::IntfId& key) override {
    if (key.stringValue() == "eth1") throw Kel::RangeException("cannot react");
  }
};
struct IfIndexThrower : Interface::IntfStatus::Notifiee {
  void handleIfIndex() override { throw std::runtime_error("cannot react either"); }
};

TEST(EntityManager, aReactorThatThrowsTakesNothingFromTheRest) {
  const Directory directory;
  Writer writer(directory.path());
  const auto dir = writer.tree.intfStatusDir;
  dir->intfStatusIs(id("eth0"))->ifIndexIs(1);
  writer.documents.publishAll();
  Traces traces;
  Reader reader(directory.path());
  reader.follow();
  const auto members = Kel::makePtr<Thrower>();
  members->notifierIs(reader.tree().intfStatusDir);
  const auto eth0 = Kel::makePtr<IfIndexThrower>();
  eth0->notifierIs(reader.tree().intfStatusDir->intfStatus(id("eth0")));

  for (const auto* name : {"eth0", "eth1", "eth2"}) dir->intfStatusIs(id(name))->ifIndexIs(9);
  writer.documents.publish();
  reader.follow();
  EXPECT_EQ(textOf(reader.tree()), textOf(writer.tree));
  EXPECT_THAT(traces.take(),
              UnorderedElementsAre(AllOf(HasSubstr("intfStatus/eth0"), HasSubstr("cannot react either")),
                                   AllOf(HasSubstr("intfStatus/eth1"), HasSubstr("cannot react"))));

  // The one that failed is still known: it changes, goes and comes again.
  dir->intfStatus(id("eth1"))->ifIndexIs(10);
  writer.documents.publish();
  reader.follow();
  EXPECT_EQ(textOf(reader.tree()), textOf(writer.tree));
  dir->intfStatusDel(id("eth1"));
  dir->intfStatusIs(id("eth3"));
  writer.documents.publish();
  reader.follow();
  EXPECT_EQ(textOf(reader.tree()), textOf(writer.tree));
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("intfStatus/eth1")));
}

TEST(EntityManager, aRebuildDisturbsNothingThatStaysTheSame) {
  const Directory directory;
  auto writer = std::make_unique<Writer>(directory.path());
  const auto fill = [](const Varnix::Tree& tree) {
    for (const auto* name : {"eth0", "eth1", "eth2"}) tree.intfStatusDir->intfStatusIs(id(name))->ifIndexIs(3);
    tree.routingConfig->routingIs(true);
  };
  fill(writer->tree);
  writer->documents.publishAll();
  Reader reader(directory.path());
  reader.follow();
  auto members = Kel::makePtr<IntfWatch>();
  members->notifierIs(reader.tree().intfStatusDir);
  auto eth0 = Kel::makePtr<IfIndexWatch>();
  eth0->notifierIs(reader.tree().intfStatusDir->intfStatus(id("eth0")));
  auto eth1 = Kel::makePtr<IfIndexWatch>();
  eth1->notifierIs(reader.tree().intfStatusDir->intfStatus(id("eth1")));

  writer.reset();
  writer = std::make_unique<Writer>(directory.path(), true);
  reader.follow();
  // The new store is empty as yet: what the old one held is served on.
  EXPECT_EQ(reader.tree().intfStatusDir->intfStatus().size(), 3u);
  EXPECT_THAT(reader.manager->status(), AllOf(HasSubstr("was made anew"), HasSubstr("test-publisher")));
  EXPECT_TRUE(reader.manager->ready());
  fill(writer->tree);
  writer->tree.intfStatusDir->intfStatusDel(id("eth2"));
  writer->tree.intfStatusDir->intfStatus(id("eth1"))->ifIndexIs(4);
  writer->documents.publishAll();
  reader.follow(1);
  EXPECT_EQ(textOf(reader.tree()), textOf(writer->tree));
  EXPECT_EQ(members->calls, std::vector<std::string>{"-eth2"});
  EXPECT_THAT(eth0->calls, IsEmpty());
  EXPECT_THAT(eth1->calls, ElementsAre(4u));
  EXPECT_EQ(reader.manager->status(), "");
}

TEST(EntityManager, worksInBoundedSteps) {
  const Directory directory;
  Writer writer(directory.path());
  constexpr int count = 10000;
  const auto name = [](int i) { return id("Ethernet" + std::to_string(i)); };
  for (int i = 0; i < count; ++i) writer.tree.intfStatusDir->intfStatusIs(name(i))->ifIndexIs(1);
  writer.documents.publishAll();

  // Counts what one step changes.
  struct Count : Interface::AllIntfStatusDir::Notifiee {
    unsigned inStep = 0;
    void handleIntfStatus(const Vantu::IntfId&) override { ++inStep; }
  };
  Reader reader(directory.path());
  auto counter = Kel::makePtr<Count>();
  counter->notifierIs(reader.tree().intfStatusDir);
  const auto drain = [&] {
    unsigned steps = 0;
    for (bool more = reader.mount->refresh(); more; ++steps) {
      counter->inStep = 0;
      more = reader.manager->step(100);
      EXPECT_LE(counter->inStep, 100u);
      if (more && steps == 3 && !reader.manager->ready()) {
        EXPECT_THAT(reader.manager->status(), HasSubstr("reading"));
      }
    }
    return steps;
  };
  EXPECT_GE(drain(), 200u);  // two for each hundred: reading and sweeping
  EXPECT_EQ(reader.tree().intfStatusDir->intfStatus().size(), std::size_t{count});

  for (int i = 0; i < count; i += 2) writer.tree.intfStatusDir->intfStatusDel(name(i));
  writer.documents.publish();
  EXPECT_GE(drain(), 50u);
  EXPECT_EQ(reader.tree().intfStatusDir->intfStatus().size(), std::size_t{count / 2});

  // A new store without them: the sweep is bounded too.
  writer.tree.intfStatusDir->intfStatusDelAll();
  writer.store.beginFullPass({Varnix::documentTable});
  writer.documents.rewriteAll();
  writer.store.endFullPass();
  drain();
  EXPECT_TRUE(reader.tree().intfStatusDir->intfStatus().empty());
}

TEST(EntityManager, saysWhatItWaitsFor) {
  const Directory directory;
  const auto store = directory.path() + "/store";
  Reader reader(store);
  reader.follow();
  EXPECT_FALSE(reader.manager->ready());
  EXPECT_THAT(reader.manager->status(), HasSubstr(store));
  {
    Writer writer(store);
    writer.tree.intfStatusDir->intfStatusIs(id("eth0"));
    writer.documents.publish();
    reader.follow();
    EXPECT_THAT(reader.manager->status(), AllOf(HasSubstr("not complete yet"), HasSubstr("test-publisher (pid ")));
  }
  // What is there is served, but is not all there is.
  EXPECT_TRUE(reader.tree().intfStatusDir->intfStatusHas(id("eth0")));
  EXPECT_FALSE(reader.manager->ready());
  Writer writer(store);
  writer.documents.publishAll();
  reader.follow();
  EXPECT_TRUE(reader.manager->ready());
  EXPECT_EQ(reader.manager->status(), "");

  std::filesystem::remove_all(store);
  reader.follow();
  EXPECT_TRUE(reader.manager->ready());
  EXPECT_THAT(reader.manager->status(), HasSubstr(store));
}

TEST(EntityManager, aForeignFileIsNamedAndLeftAlone) {
  const Directory directory;
  std::ofstream(directory.path() + "/data.mdb") << std::string(20000, 'x');
  Traces traces;
  Reader reader(directory.path());
  reader.follow();
  EXPECT_FALSE(reader.manager->ready());
  EXPECT_THAT(reader.manager->status(), HasSubstr(directory.path()));
  EXPECT_EQ(std::filesystem::file_size(directory.path() + "/data.mdb"), 20000u);
}

TEST(EntityManager, malformedDocumentsDoNotHinderTheRest) {
  const Directory directory;
  Writer writer(directory.path());
  writer.tree.intfStatusDir->intfStatusIs(id("eth0"))->ifIndexIs(3);
  writer.documents.publishAll();
  auto batch = writer.store.begin();
  batch.put(Varnix::documentTable, "interface/status.intfStatus/eth1", "{\"type\":");
  batch.put(Varnix::documentTable, "future/thing", R"({"type":"Future::Thing","attributes":{}})");
  batch.put(Varnix::documentTable, "\xff\n", "");
  batch.commit();
  Traces traces;
  Reader reader(directory.path());
  reader.follow();
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("eth1: document left out: not well-formed JSON"),
                                         HasSubstr("\\xff\\x0a: document left out"),
                                         AllOf(HasSubstr("future/thing"), HasSubstr("'Future::Thing'"))));
  EXPECT_EQ(textOf(reader.tree()), textOf(writer.tree));
  EXPECT_TRUE(reader.manager->ready());
}

unsigned damage(const std::string& directory, const std::string& marker) {
  return Quillo::Test::damage(directory + "/data.mdb", marker);
}

TEST(EntityManager, damagedRecordsAreLeftOutAndTheRestServed) {
  const Directory directory;
  Writer writer(directory.path());
  // The first document of all, two in a row, and one with a key of the longest size.
  const std::string longest(Quillo::maxKeyBytes - std::string("routing/vrf/config.vrfConfig/").size(), 'v');
  const std::vector<std::string> broken{"a0", "b1", "b2"};
  for (const auto* name : {"a0", "a1", "b0", "b1", "b2", "b3"}) {
    writer.tree.intfStatusDir->intfStatusIs(id(name))->kindIs(std::string("MARK-") + name);
  }
  writer.tree.routingVrfConfigDir->vrfConfigIs(longest)->routingIs(true);
  writer.tree.routingVrfConfigDir->vrfConfigIs("w")->routingIs(true);
  writer.documents.publishAll();
  for (const auto& name : broken) ASSERT_GT(damage(directory.path(), "MARK-" + name), 0u);

  Traces traces;
  Reader reader(directory.path());
  for (const auto limit : {1U, 100U}) reader.follow(limit);
  EXPECT_THAT(traces.take(),
              ElementsAre(HasSubstr("intfStatus/a0"), HasSubstr("intfStatus/b1"), HasSubstr("intfStatus/b2")));
  EXPECT_EQ(reader.mount->corruptionCount(), 3u);
  auto expected = textOf(writer.tree);
  for (const auto& name : broken) expected.erase("interface/status.intfStatus/" + name);
  EXPECT_EQ(textOf(reader.tree()), expected);
  EXPECT_TRUE(reader.manager->ready());
  EXPECT_EQ(reader.manager->status(), "");

  // Following goes on.
  writer.tree.intfStatusDir->intfStatus(id("a1"))->ifIndexIs(9);
  writer.documents.publish();
  reader.follow();
  EXPECT_EQ(reader.tree().intfStatusDir->intfStatus(id("a1"))->ifIndex(), 9u);

  // Damage that comes later takes its entity when its record is met.
  ASSERT_GT(damage(directory.path(), "MARK-b3"), 0u);
  Reader later(directory.path());
  later.follow();
  EXPECT_FALSE(later.tree().intfStatusDir->intfStatusHas(id("b3")));
  EXPECT_THAT(traces.take(), Contains(HasSubstr("intfStatus/b3")));
}

TEST(EntityManager, aStoreThatIsCutShortTakesNothingAlong) {
  const Directory directory;
  auto writer = std::make_unique<Writer>(directory.path());
  for (int i = 0; i < 500; ++i) writer->tree.intfStatusDir->intfStatusIs(id("eth" + std::to_string(i)));
  writer->documents.publishAll();
  Reader reader(directory.path());
  reader.follow();
  const auto before = textOf(reader.tree());
  writer.reset();

  Traces traces;
  std::filesystem::resize_file(directory.path() + "/data.mdb", 8192);  // what is left names the store, not more
  reader.manager->step(10);
  reader.follow();
  EXPECT_EQ(textOf(reader.tree()), before);
  EXPECT_THAT(reader.manager->status(), HasSubstr(directory.path()));
  EXPECT_TRUE(reader.manager->ready());

  writer = std::make_unique<Writer>(directory.path(), true);
  writer->tree.routingConfig->routingIs(true);
  writer->documents.publishAll();
  const auto now = Kel::System::currentTime();
  Kel::System::clockIs([now] { return now + 60; });  // the mount's pause after damage is over
  reader.follow();
  Kel::System::clockIs({});
  EXPECT_EQ(textOf(reader.tree()), textOf(writer->tree));
  EXPECT_EQ(reader.manager->status(), "");
}

}  // namespace
}  // namespace VarnixTest
