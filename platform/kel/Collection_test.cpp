#include <gtest/gtest.h>

#include "kel/testing/TestTypes.h"

namespace KelTest {
namespace {

using Kel::makePtr;
using Kel::Ptr;

Position at(int row, const char* column) {
  return Position(row, column);
}

TEST(Collection, iteratesInKeyOrderAndSearches) {
  auto house = makePtr<House>("house");
  auto lamp = makePtr<Lamp>("hall");
  for (const auto& key : {at(2, "a"), at(1, "b"), at(1, "a"), at(3, "")}) house->rowIs(key, lamp);
  std::vector<Position> walked;
  for (const auto& [key, row] : house->row()) walked.push_back(key);
  EXPECT_EQ(walked, (std::vector<Position>{at(1, "a"), at(1, "b"), at(2, "a"), at(3, "")}));
  EXPECT_EQ(house->row().lowerBound(at(1, "b"))->first, at(1, "b"));
  EXPECT_EQ(house->row().upperBound(at(1, "b"))->first, at(2, "a"));
  EXPECT_TRUE(house->row().upperBound(at(3, "")) == house->row().end());
}

TEST(Collection, versionChangesWhenMembersComeOrGoOnly) {
  auto house = makePtr<House>("house");
  auto lamp = makePtr<Lamp>("hall");
  const auto empty = house->row().version();
  auto row = house->rowIs(at(1, "a"), lamp);
  const auto one = house->row().version();
  EXPECT_NE(one, empty);
  row->countIs(7);
  EXPECT_EQ(house->rowIs(at(1, "a"), lamp), row);
  EXPECT_FALSE(house->rowDel(at(9, "z")));
  EXPECT_EQ(house->row().version(), one);
  house->rowDelAll();
  EXPECT_NE(house->row().version(), one);
  EXPECT_TRUE(house->row().empty());
}

class Resident : public Lamp::Notifiee {
 public:
  Resident(Kel::Name name, std::vector<std::string>* calls) : name_(std::move(name)), calls_(calls) {}
  static Kel::Name kelKeyOf(const Kel::Name& name, const std::vector<std::string>*) { return name; }
  void kelStart() { calls_->push_back("start " + name_); }
  void kelStop() { calls_->push_back("stop " + name_); }

 private:
  Kel::Name name_;
  std::vector<std::string>* calls_;
};

class Hotel : public Kel::Entity {
  KEL_TYPE_BEGIN("KelTest::Hotel", Hotel, Kel::Entity)
 public:
  KEL_NAMED(Hotel, Kel::Entity)
  KEL_MEMBERS(Ordered, Kel::Name, Resident, resident, Resident)
  KEL_TYPE_END
};

TEST(Collection, reactorsKeptAsMembersAreStartedAndStopped) {
  std::vector<std::string> calls;
  auto hotel = makePtr<Hotel>("hotel");
  hotel->residentIs("a", &calls);
  EXPECT_EQ(hotel->residentIs("a", &calls), hotel->resident("a"));
  hotel->residentIs("b", &calls);
  hotel->residentDel("a");
  hotel->residentDelAll();
  EXPECT_EQ(calls, (std::vector<std::string>{"start a", "start b", "stop a", "stop b"}));
}

TEST(Collection, removedMembersStayReadable) {
  auto house = makePtr<House>("house");
  auto row = house->rowIs(at(1, "a"), makePtr<Lamp>("hall"));
  house->rowDel(row->index());  // the key given lives in the member that goes
  EXPECT_EQ(row->index(), at(1, "a"));
  EXPECT_EQ(row->lamp()->name(), "hall");
}

TEST(Collection, reinstantiationWithOtherParametersIsRefused) {
  auto house = makePtr<House>("house");
  auto hall = makePtr<Lamp>("hall");
  auto row = house->rowIs(at(1, "a"), hall);
  try {
    house->rowIs(at(1, "a"), makePtr<Lamp>("kitchen"));
    FAIL() << "a row with another lamp was accepted";
  } catch (const Kel::ReinstantiationException& error) {
    EXPECT_STREQ(
        error.what(),
        "Reinstantiating the pointer interface where constructor parameter attribute _lamp has a different "
        "value of Entity('kitchen')");
  }
  EXPECT_EQ(row->lamp(), hall);
  house->porchIs("lantern");
  try {
    house->porchIs("torch");
    FAIL() << "a porch of another name was accepted";
  } catch (const Kel::ReinstantiationException& error) {
    EXPECT_STREQ(
        error.what(),
        "Reinstantiating the entity with fullName house.porch where constructor parameter attribute 'name' has "
        "a different value of 'torch'");
  }
}

}  // namespace
}  // namespace KelTest
