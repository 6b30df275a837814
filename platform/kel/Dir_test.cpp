// Names and paths, and the collections that give entities their place.

#include "kel/Dir.h"

#include <gtest/gtest.h>

#include "kel/testing/TestTypes.h"

namespace KelTest {
namespace {

using Kel::makePtr;
using Kel::Ptr;

TEST(Dir, fullNamesResolveToTheirEntitiesAndOtherPathsToNothing) {
  auto root = makePtr<Kel::Dir>("");
  auto house = makePtr<House>("house");
  root->dirIs("main")->dirIs("street")->entityIs(house);
  house->porchIs("lantern");
  root->dirIs("x.y/z")->entityIs(makePtr<Lamp>("l"));
  for (const auto* name : {"hall", "a", "a.b", "a/b", "a.porch", "a/b.c/d", ".x", "/", "blank name", "\xff\x01"}) {
    auto lamp = house->lampIs(name);
    EXPECT_EQ(lamp->fullName(), "main/street/house.lamp/" + std::string(name));
    EXPECT_EQ(Kel::resolve(root, lamp->fullName()), lamp) << name;
  }
  for (const auto* path : {"main/street/house.porch", "main/street", "x.y/z/l"}) {
    const auto found = Kel::resolve(root, path);
    EXPECT_EQ(found ? found->fullName() : "", path);
  }
  for (const auto* path : {"main/", "main/street/", "main/lane", "main/street/house.", "main/street/house.lamp",
                           "main/street/house.lamp/", "main/street/house.lamp/attic", "main/street/house.porch/",
                           "main/street/house.nothing", "main.street", "/main", "main/street/house.lamp/hall/x"}) {
    EXPECT_EQ(Kel::resolve(root, path), nullptr) << path;
  }
}

TEST(Dir, entriesAreNotifiedAndKeptApart) {
  struct Watcher : Kel::Dir::Notifiee {
    std::string calls;
    void handleEntityPtr(const Kel::Name& name) override {
      calls += (notifier()->entityPtrHas(name) ? " +" : " -") + name;
    }
  };
  auto dir = makePtr<Kel::Dir>("dir");
  auto watcher = makePtr<Watcher>();
  watcher->notifierIs(dir);
  auto lamp = makePtr<Lamp>("hall");
  for (int i = 0; i < 2; ++i) dir->entityIs(lamp);
  EXPECT_THROW(dir->entityIs(makePtr<Lamp>("hall")), Kel::ReinstantiationException);
  EXPECT_THROW(dir->dirIs("hall"), Kel::AttributeException);
  EXPECT_TRUE(dir->entityDel(lamp->name()));
  EXPECT_FALSE(dir->entityDel("hall"));
  EXPECT_EQ(watcher->calls, " +hall -hall");
  EXPECT_EQ(lamp->fullName(), "hall");
}

TEST(Collection, versionChangesWithMembersAndOtherParametersAreRefused) {
  auto house = makePtr<House>("house");
  auto lamp = makePtr<Lamp>("hall");
  const Position key(1, "a");
  const auto empty = house->row().version();
  auto row = house->rowIs(key, lamp);
  const auto one = house->row().version();
  EXPECT_NE(one, empty);
  row->countIs(7);
  EXPECT_EQ(house->rowIs(key, lamp), row);
  EXPECT_EQ(errorOf([&] { house->rowIs(key, makePtr<Lamp>("kitchen")); }),
            "Reinstantiating the pointer interface where constructor parameter attribute _lamp has a different "
            "value of Entity('kitchen')");
  EXPECT_FALSE(house->rowDel(Position(9, "z")));
  EXPECT_EQ(house->row().version(), one);
  EXPECT_TRUE(house->rowDel(row->index()));  // the key given lives in the deleted member, and stays readable
  EXPECT_NE(house->row().version(), one);
  EXPECT_EQ(row->index(), key);
  house->porchIs("lantern");
  EXPECT_EQ(errorOf([&] { house->porchIs("torch"); }),
            "Reinstantiating the entity with fullName house.porch where constructor parameter attribute 'name' has "
            "a different value of 'torch'");
}

}  // namespace
}  // namespace KelTest
