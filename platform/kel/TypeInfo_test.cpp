#include "kel/TypeInfo.h"

#include <gtest/gtest.h>

#include "kel/testing/TestTypes.h"

namespace KelTest {
namespace {

using Kel::makePtr;

TEST(TypeInfo, listsAndPrintsAttributesBaseFirstInOrderOfDeclaration) {
  std::vector<std::string> names;
  for (const auto& attribute : Lamp::kelStaticTypeInfo().attributes()) names.push_back(attribute.name);
  EXPECT_EQ(names, (std::vector<std::string>{"name", "fullName", "parent", "parentAttrName", "entity", "lit",
                                             "colour", "position", "sockets", "neighbour", "label"}));
  EXPECT_EQ(Kel::print(Position(3, "b")), "Value('KelTest::Position', ** {'row': 3, 'column': 'b'})");
  EXPECT_EQ(Kel::print(green), "green");
  EXPECT_EQ(Kel::print(static_cast<Colour>(9)), "9");
  auto lamp = makePtr<Lamp>("hall");
  EXPECT_EQ(Kel::readAttribute(*lamp, "label").print(), "'hall off'");
  EXPECT_EQ(Kel::readAttribute(*lamp, "neighbour").print(), "None");
  EXPECT_EQ(Kel::print(lamp), "Entity('hall')");
  EXPECT_EQ(errorOf([&] { Kel::readAttribute(*lamp, "height"); }),
            "KelTest::Lamp has no readable attribute 'height'");
}

TEST(TypeInfo, operationsByNameCreateGetAndDelete) {
  auto house = makePtr<House>("house");
  const auto call = [&](const char* operation, const std::vector<Kel::Value>& arguments) {
    return Kel::callOperation(*house, operation, arguments);
  };
  auto lamp = call("lampIs", {Kel::Name("hall")});
  EXPECT_EQ(lamp, house->lamp("hall"));
  auto row = call("rowIs", {Position(1, "a"), Kel::Ptr<const Lamp>(house->lamp("hall"))});
  EXPECT_TRUE(row && row == house->row(Position(1, "a")));
  EXPECT_FALSE(call("lampDel", {Kel::Name("hall")}));
  EXPECT_TRUE(house->lamp().empty());
  call("rowDelAll", {});
  EXPECT_EQ(errorOf([&] { call("roofIs", {}); }), "KelTest::House has no operation 'roofIs'");
  EXPECT_EQ(errorOf([&] { call("rowIs", {Position(1, "a")}); }),
            "KelTest::House::rowIs: takes 2 arguments, 1 were given");
  EXPECT_EQ(errorOf([&] {
              call("rowIs", {Position(1, "a"), house});
            }),
            "KelTest::House::rowIs: argument 2 (lamp): expected KelTest::Lamp const, found Entity('house') of type "
            "KelTest::House");
  EXPECT_TRUE(house->row().empty());
  const Kel::Value readOnly{Kel::Ptr<const Lamp>(makePtr<Lamp>("hall"))};
  EXPECT_EQ(readOnly.as<Kel::Ptr<const Lamp>>()->name(), "hall");
  EXPECT_THROW(readOnly.as<Kel::Ptr<Lamp>>(), Kel::AttributeException);
}

}  // namespace
}  // namespace KelTest
