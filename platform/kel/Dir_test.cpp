#include <gtest/gtest.h>

#include "kel/testing/TestTypes.h"

namespace KelTest {
namespace {

using Kel::makePtr;
using Kel::Ptr;

struct Town {
  Ptr<Kel::Dir> root = makePtr<Kel::Dir>("");
  Ptr<House> house;
  Town() {
    auto street = root->dirIs("main")->dirIs("street");
    house = makePtr<House>("house");
    street->entityIs(house);
  }
  Kel::String at(std::string_view path) const {
    const auto found = Kel::resolve(root, path);
    return found ? found->fullName() : "nothing";
  }
};

TEST(Dir, fullNamesResolveToTheirEntities) {
  Town town;
  auto lamp = town.house->lampIs("hall");
  EXPECT_EQ(lamp->fullName(), "main/street/house.lamp/hall");
  EXPECT_EQ(Kel::resolve(town.root, lamp->fullName()), lamp);
  town.house->porchIs("lantern");
  EXPECT_EQ(town.at("main/street/house.porch"), "main/street/house.porch");
  EXPECT_EQ(town.at("main/street"), "main/street");
}

TEST(Dir, namesWithSeparatorsResolve) {
  Town town;
  for (const auto* name : {"a", "a.b", "a/b", "a.porch", "a/b.c/d", ".x", "/", "blank name", "\xff\x01"}) {
    auto lamp = town.house->lampIs(name);
    EXPECT_EQ(Kel::resolve(town.root, lamp->fullName()), lamp) << name;
  }
  // A directory entry may hold separators as well.
  town.root->dirIs("x.y/z")->entityIs(makePtr<Lamp>("l"));
  EXPECT_EQ(town.at("x.y/z/l"), "x.y/z/l");
}

TEST(Dir, whatDoesNotExistResolvesToNothing) {
  Town town;
  town.house->lampIs("hall");
  for (const auto* path : {"main/", "main/street/", "main/lane", "main/street/house.", "main/street/house.lamp",
                           "main/street/house.lamp/", "main/street/house.lamp/attic", "main/street/house.porch",
                           "main/street/house.nothing", "main.street", "/main", "main/street/house.lamp/hall/x"}) {
    EXPECT_EQ(town.at(path), "nothing") << path;
  }
}

TEST(Dir, entriesComeAndGoWithNotice) {
  struct Watcher : Kel::Dir::Notifiee {
    std::vector<std::string> calls;
    void handleEntityPtr(const Kel::Name& name) override {
      calls.push_back((notifier()->entityPtrHas(name) ? "+" : "-") + name);
    }
  };
  auto dir = makePtr<Kel::Dir>("dir");
  auto watcher = makePtr<Watcher>();
  watcher->notifierIs(dir);
  auto lamp = makePtr<Lamp>("hall");
  dir->entityIs(lamp);
  dir->entityIs(lamp);
  EXPECT_THROW(dir->entityIs(makePtr<Lamp>("hall")), Kel::ReinstantiationException);
  EXPECT_THROW(dir->dirIs("hall"), Kel::AttributeException);
  EXPECT_TRUE(dir->entityDel("hall"));
  EXPECT_FALSE(dir->entityDel("hall"));
  EXPECT_EQ(watcher->calls, (std::vector<std::string>{"+hall", "-hall"}));
  EXPECT_EQ(lamp->fullName(), "hall");
}

}  // namespace
}  // namespace KelTest
