#include "varnix/DocumentPublisher.h"

#include <gmock/gmock.h>

#include <set>

#include "varnix/testing/TestTree.h"

namespace VarnixTest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class DocumentPublisherTest : public Quillo::Test::TestStore {
 protected:
  // The store holds one document for each entity with attributes.
  void expectStored(const Varnix::Tree& tree) const {
    auto documents = textOf(tree);
    for (const auto& entity : entitiesOf(tree)) {
      if (!Varnix::hasDocumentAttributes(entity->kelTypeInfo())) {
        documents.erase(*Varnix::pathBelow(*tree.root, *entity));
      }
    }
    EXPECT_EQ(Quillo::Test::contents(mount()->snapshot()), documents);
  }
};

TEST_F(DocumentPublisherTest, noticesEveryAttributeOfEveryType) {
  Writer writer(directory_);
  for (const auto& entity : entitiesOf(writer.tree)) {
    for (const auto& attribute : entity->kelTypeInfo().attributes()) {
      if (attribute.createNamed) attribute.createNamed(*entity, "one");
    }
  }
  for (const auto& open : writer.tree.openDirs()) open.dir->entityIs(open.make("one"));
  const auto entities = entitiesOf(writer.tree);
  for (const auto& entity : entities) {
    for (const auto& attribute : entity->kelTypeInfo().attributes()) {
      if (!Varnix::isDocumentAttribute(attribute)) continue;
      const auto name = entity->kelTypeInfo().name() + "." + attribute.name;
      writer.documents.publish();
      EXPECT_FALSE(writer.documents.pending());
      std::set<std::string> texts;
      const auto attempt = [&](const auto& set) {
        try {
          set();
        } catch (const Kel::Exception&) {  // the attribute does not accept it
        }
        texts.insert(Varnix::documentText(Varnix::documentOf(*entity, *writer.tree.root)));
      };
      if (attribute.referenceIs) {
        for (const auto& target : entities) attempt([&] { attribute.referenceIs(*entity, target); });
      } else {
        for (const auto& value : someValues()) attempt([&] { attribute.fromDatum(*entity, value); });
      }
      EXPECT_GE(texts.size(), 2u) << name << ": add values to someValues()";
      EXPECT_TRUE(writer.documents.pending()) << name << " is not watched";
    }
  }
  writer.documents.publish();
  expectStored(writer.tree);
}

TEST_F(DocumentPublisherTest, whatCannotBeWrittenIsTracedAndLeftOut) {
  Writer writer(directory_);
  Traces traces;
  const std::string longName(600, 'v');
  writer.tree.routingVrfConfigDir->vrfConfigIs(longName)->routingIs(true);
  writer.tree.routingVrfConfigDir->vrfConfigIs("red")->routingIs(true);
  writer.tree.routingVrfInfoDir->entityIs(Kel::makePtr<Routing::Config>("red"));
  EXPECT_EQ(writer.documents.publishAll().changes, 6u);
  EXPECT_THAT(
      traces.take(),
      ElementsAre(HasSubstr("routing/vrf/info/red: not published: its type is Routing::Config, that of entries"),
                  HasSubstr("v: not published")));
  writer.tree.routingVrfConfigDir->vrfConfigDel(longName);
  writer.tree.routingVrfInfoDir->entityDel("red");
  writer.documents.publish();
  EXPECT_THAT(traces.take(), ElementsAre());
  expectStored(writer.tree);
}

TEST_F(DocumentPublisherTest, aFullStoreLosesNothing) {
  Varnix::Tree tree(Kel::makePtr<Kel::Dir>(""));
  Quillo::Publisher store({.directory = directory_, .name = "small", .mapBytes = 1 << 20, .maxMapBytes = 1 << 20});
  Varnix::DocumentPublisher documents(tree, store);
  const auto first = id("first");
  tree.intfStatusDir->intfStatusIs(first);
  tree.ipStatus->ipIntfStatusIs(first)->l3StatusIs(tree.l3StatusDir->intfStatusIs(first));
  documents.publishAll();
  const auto before = Quillo::Test::contents(mount()->snapshot());
  const auto name = [](int i) { return id("Ethernet" + std::to_string(i)); };
  for (int i = 0; i < 10000; ++i) tree.intfStatusDir->intfStatusIs(name(i))->kindIs("linux");
  tree.l3StatusDir->intfStatusDel(first);  // changes the document that refers to it
  EXPECT_THAT([&] { documents.publish(); },
              ::testing::ThrowsMessage<Quillo::StoreException>(HasSubstr("reached its limit of 1048576 bytes")));
  EXPECT_TRUE(documents.pending());
  EXPECT_EQ(Quillo::Test::contents(mount()->snapshot()), before);
  for (int i = 100; i < 10000; ++i) tree.intfStatusDir->intfStatusDel(name(i));
  EXPECT_EQ(documents.publish().changes, 102u);
  expectStored(tree);
}

}  // namespace
}  // namespace VarnixTest
