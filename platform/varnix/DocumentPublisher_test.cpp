#include "varnix/DocumentPublisher.h"

#include <gmock/gmock.h>

#include "varnix/testing/TestTree.h"

namespace VarnixTest {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// What the store holds: all documents by path.
std::map<std::string, std::string> stored(const std::string& directory) {
  const auto mount = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{directory});
  mount->refresh();
  const auto snapshot = mount->snapshot();
  std::map<std::string, std::string> documents;
  for (auto scan = snapshot.scan(Varnix::documentTable); scan.valid(); scan.next()) {
    documents[std::string(scan.key())] = std::string(scan.value());
  }
  return documents;
}

// The documents that a tree stands for: those of its entities with attributes.
std::map<std::string, std::string> expected(const Varnix::Tree& tree) {
  auto documents = textOf(tree);
  for (const auto& entity : entitiesOf(tree)) {
    if (!Varnix::hasDocumentAttributes(entity->kelTypeInfo()))
      documents.erase(*Varnix::pathBelow(*tree.root, *entity));
  }
  return documents;
}

TEST(DocumentPublisher, writesExactlyWhatChanged) {
  const Directory directory;
  Writer writer(directory.path());
  const auto& tree = writer.tree;
  const Vantu::IntfId eth0("eth0");
  EXPECT_TRUE(writer.documents.pending());
  EXPECT_EQ(writer.documents.publishAll().changes,
            5u);  // routing/config, routing6/config, vrf/id/status, vrf/name/status, l3/config
  EXPECT_FALSE(writer.documents.pending());
  EXPECT_EQ(writer.documents.publish().changes, 0u);

  tree.intfStatusDir->intfStatusIs(eth0)->ifIndexIs(4);
  tree.l3StatusDir->intfStatusIs(eth0);
  EXPECT_EQ(writer.documents.publish().changes, 2u);
  tree.intfStatusDir->intfStatus(eth0)->ifIndexIs(5);
  EXPECT_EQ(writer.documents.publish().changes, 1u);
  tree.intfStatusDir->intfStatus(eth0)->ifIndexIs(6);
  tree.intfStatusDir->intfStatus(eth0)->ifIndexIs(5);
  tree.intfStatusDir->intfStatusDel(eth0);
  tree.intfStatusDir->intfStatusIs(eth0)->ifIndexIs(5);
  EXPECT_TRUE(writer.documents.pending());
  EXPECT_EQ(writer.documents.publish().changes, 0u);
  tree.intfStatusDir->intfStatusDel(eth0);
  EXPECT_EQ(writer.documents.publish().changes, 1u);
  EXPECT_EQ(stored(directory.path()), expected(tree));
}

TEST(DocumentPublisher, entriesOfOpenDirectoriesAreWrittenAndDeleted) {
  const Directory directory;
  Writer writer(directory.path());
  const auto& dir = writer.tree.routingVrfInfoDir;
  writer.documents.publishAll();
  dir->entityIs(Kel::makePtr<Routing::VrfInfo>("a.b/c"));
  EXPECT_EQ(writer.documents.publish().changes, 1u);
  dir->entityDel("a.b/c");
  const auto again = Kel::makePtr<Routing::VrfInfo>("a.b/c");
  dir->entityIs(again);
  EXPECT_EQ(writer.documents.publish().changes, 0u);
  again->kernelTableIs(254);
  EXPECT_EQ(writer.documents.publish().changes, 1u);
  EXPECT_EQ(stored(directory.path()), expected(writer.tree));

  Traces traces;
  dir->entityDel("a.b/c");
  dir->entityIs(Kel::makePtr<Routing::Config>("a.b/c"));
  EXPECT_EQ(writer.documents.publish().changes, 1u);
  EXPECT_EQ(stored(directory.path()).count("routing/vrf/info/a.b/c"), 0u);
  EXPECT_THAT(traces.take(), ElementsAre(AllOf(HasSubstr("routing/vrf/info/a.b/c: not published"),
                                               HasSubstr("Routing::Config, that of entries"))));
}

// Whoever adds an attribute to a type, or a type to the tree, is told here when the publisher does not watch it.
TEST(DocumentPublisher, noticesEveryAttributeOfEveryType) {
  const Directory directory;
  Writer writer(directory.path());
  const auto& root = writer.tree.root;
  for (const auto& entity : entitiesOf(writer.tree)) {
    for (const auto& attribute : entity->kelTypeInfo().attributes()) {
      if (attribute.createNamed) attribute.createNamed(*entity, "one");
    }
  }
  for (const auto& open : writer.tree.openDirs()) open.dir->entityIs(open.make("one"));
  writer.documents.publish();
  unsigned attributes = 0;
  for (const auto& entity : entitiesOf(writer.tree)) {
    for (const auto& attribute : entity->kelTypeInfo().attributes()) {
      const auto name = entity->kelTypeInfo().name() + "." + attribute.name;
      if (attribute.kind == Kel::AttributeKind::reference) {
        for (const auto& target : entitiesOf(writer.tree)) {
          try {
            attribute.referenceIs(*entity, target);
          } catch (const Kel::AttributeException&) {
          }
        }
        EXPECT_TRUE(attribute.read(*entity).handle()) << name;
      } else if (attribute.fromDatum) {
        EXPECT_GE(acceptedValues(*entity, attribute).size(), 2u) << name << ": add a value to someValues()";
      } else {
        continue;
      }
      ++attributes;
      EXPECT_TRUE(writer.documents.pending()) << name << " is not watched";
      writer.documents.publish();
      const auto path = *Varnix::pathBelow(*root, *entity);
      EXPECT_EQ(stored(directory.path()).at(path), Varnix::documentText(Varnix::documentOf(*entity, *root)))
          << name;
    }
  }
  EXPECT_GE(attributes, 20u);
}

TEST(DocumentPublisher, aNewPublisherSweepsWhatItDoesNotHave) {
  const Directory directory;
  {
    Writer before(directory.path());
    before.tree.intfStatusDir->intfStatusIs(Vantu::IntfId("gone"));
    before.tree.intfStatusDir->intfStatusIs(Vantu::IntfId("stays"));
    before.documents.publishAll();
  }
  Writer writer(directory.path());
  writer.tree.intfStatusDir->intfStatusIs(Vantu::IntfId("stays"));
  EXPECT_EQ(writer.documents.publishAll().changes, 1u);
  EXPECT_EQ(stored(directory.path()), expected(writer.tree));

  // In a pass that somebody else leads, over this Varnix::documentTable and others.
  writer.store.beginFullPass({Varnix::documentTable});
  EXPECT_EQ(writer.documents.rewriteAll().changes, 0u);
  EXPECT_TRUE(writer.store.fullPassActive());
  EXPECT_EQ(writer.store.endFullPass().changes, 0u);
}

TEST(DocumentPublisher, whatDoesNotFitIsLeftOutAndTheRestWritten) {
  const Directory directory;
  Writer writer(directory.path());
  Traces traces;
  const std::string longName(600, 'v');
  writer.tree.routingVrfConfigDir->vrfConfigIs(longName)->routingIs(true);
  writer.tree.routingVrfConfigDir->vrfConfigIs("red")->routingIs(true);
  EXPECT_EQ(writer.documents.publishAll().changes, 6u);
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("not published")));
  writer.tree.routingVrfConfigDir->vrfConfigDel(longName);
  writer.documents.publish();
  EXPECT_THAT(traces.take(), IsEmpty());
  EXPECT_EQ(stored(directory.path()), expected(writer.tree));
}

TEST(DocumentPublisher, aFullStoreLosesNothing) {
  const Directory directory;
  Varnix::Tree tree(Kel::makePtr<Kel::Dir>(""));
  Quillo::Publisher store(
      {.directory = directory.path(), .name = "small", .mapBytes = 1 << 20, .maxMapBytes = 1 << 20});
  Varnix::DocumentPublisher documents(tree, store);
  const Vantu::IntfId first("first");
  tree.intfStatusDir->intfStatusIs(first);
  tree.ipStatus->ipIntfStatusIs(first)->l3StatusIs(tree.l3StatusDir->intfStatusIs(first));
  documents.publishAll();
  const auto before = stored(directory.path());
  const auto id = [](int i) { return Vantu::IntfId("Ethernet" + std::to_string(i)); };
  for (int i = 0; i < 10000; ++i) tree.intfStatusDir->intfStatusIs(id(i))->kindIs("linux");
  tree.l3StatusDir->intfStatusDel(first);  // changes its referrer
  EXPECT_THROW(documents.publish(), Quillo::StoreException);
  EXPECT_TRUE(documents.pending());
  EXPECT_EQ(stored(directory.path()), before);
  for (int i = 100; i < 10000; ++i) tree.intfStatusDir->intfStatusDel(id(i));
  EXPECT_EQ(documents.publish().changes, 102u);
  EXPECT_EQ(stored(directory.path()), expected(tree));
}

}  // namespace
}  // namespace VarnixTest
