#include "varnix/DocumentPublisher.h"

#include <gmock/gmock.h>

#include <set>

#include "varnix/testing/TestTree.h"

namespace VarnixTest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

using DocumentPublisherTest = Quillo::Test::TestStore;

// As the random histories of EntityManager_test.cpp take for granted.
TEST(Mutator, changesEveryAttributeOfEveryType) {
  const Varnix::Tree tree(Kel::makePtr<Kel::Dir>(""));
  Mutator mutator(tree, 1);
  std::map<std::string, std::set<std::string>> values;
  for (int round = 0; round < 20; ++round) {
    mutator.change(4000);
    for (const auto& entity : entitiesOf(tree)) {
      for (const auto& [name, value] : Varnix::documentOf(*entity, *tree.root).attributes) {
        values[entity->kelTypeInfo().name() + "." + name].insert(Varnix::documentText({"", {{"value", value}}}));
      }
    }
  }
  EXPECT_GT(values.size(), 30U);
  for (const auto& [attribute, found] : values) EXPECT_GE(found.size(), 2U) << attribute;
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
  EXPECT_FALSE(writer.documents.pending());
}

TEST_F(DocumentPublisherTest, aFullStoreLosesNothing) {
  const Varnix::Tree tree(Kel::makePtr<Kel::Dir>(""));
  Writer writer({.directory = directory_, .name = "small", .mapBytes = 1 << 20, .maxMapBytes = 1 << 20}, tree);
  const auto first = id("first");
  tree.ipStatus->ipIntfStatusIs(first)->l3StatusIs(tree.l3StatusDir->intfStatusIs(first));
  writer.documents.publishAll();
  const auto name = [](int i) { return id("Ethernet" + std::to_string(i)); };
  for (int i = 0; i < 10000; ++i) tree.intfStatusDir->intfStatusIs(name(i));
  tree.l3StatusDir->intfStatusDel(first);  // changes the document that refers to it
  EXPECT_THROW(writer.documents.publish(), Quillo::StoreException);
  for (int i = 100; i < 10000; ++i) tree.intfStatusDir->intfStatusDel(name(i));
  EXPECT_EQ(writer.documents.publish().changes, 102u);
  EXPECT_THAT(Quillo::Test::contents(mount()->snapshot()).at("ip/status.ipIntfStatus/first"),
              HasSubstr("\"l3Status\":null"));
}

}  // namespace
}  // namespace VarnixTest
