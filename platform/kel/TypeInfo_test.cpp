#include "kel/TypeInfo.h"

#include <gtest/gtest.h>

#include "kel/testing/TestTypes.h"

namespace KelTest {
namespace {

using Kel::Datum;
using Kel::makePtr;
using Kel::Value;

std::string errorOf(auto call) {
  try {
    call();
  } catch (const Kel::Exception& error) {
    return error.what();
  }
  return "no error";
}

TEST(TypeInfo, listsAttributesBaseFirstInOrderOfDeclaration) {
  std::vector<std::string> names;
  for (const auto& attribute : Lamp::kelStaticTypeInfo().attributes()) names.push_back(attribute.name);
  EXPECT_EQ(names, (std::vector<std::string>{"name", "fullName", "parent", "parentAttrName", "entity", "lit",
                                             "colour", "position", "sockets", "neighbour", "label"}));
  EXPECT_EQ(Lamp::kelStaticTypeInfo().name(), "KelTest::Lamp");
}

TEST(TypeInfo, printsValues) {
  EXPECT_EQ(Kel::print(Position(3, "b")), "Value('KelTest::Position', ** {'row': 3, 'column': 'b'})");
  EXPECT_EQ(Kel::print(green), "green");
  EXPECT_EQ(Kel::print(static_cast<Colour>(9)), "9");
  auto lamp = makePtr<Lamp>("hall");
  EXPECT_EQ(Kel::readAttribute(*lamp, "label").print(), "'hall off'");
  EXPECT_EQ(Kel::readAttribute(*lamp, "neighbour").print(), "None");
  EXPECT_EQ(Kel::print(lamp), "Entity('hall')");
  EXPECT_NE(Kel::describe(*lamp).find("'colour': red"), std::string::npos);
  EXPECT_EQ(errorOf([&] { Kel::readAttribute(*lamp, "height"); }),
            "KelTest::Lamp has no readable attribute 'height'");
}

TEST(TypeInfo, dataGoOutAndComeBack) {
  auto lamp = makePtr<Lamp>("hall");
  lamp->colourIs(green);
  lamp->positionIs(Position(-4, "c"));
  lamp->socketsIs("a", 1);
  lamp->socketsIs("b", 2);
  auto copy = makePtr<Lamp>("copy");
  copy->socketsIs("gone", 9);
  for (const auto& attribute : lamp->kelTypeInfo().attributes()) {
    if (attribute.fromDatum) attribute.fromDatum(*copy, attribute.toDatum(*lamp));
  }
  EXPECT_EQ(copy->colour(), green);
  EXPECT_EQ(copy->position(), Position(-4, "c"));
  EXPECT_EQ(copy->sockets().keys(), (std::vector<Kel::Name>{"a", "b"}));
}

TEST(TypeInfo, badDataAreRefusedAndChangeNothing) {
  auto lamp = makePtr<Lamp>("hall");
  const auto set = [&](const char* name, Datum datum) {
    return errorOf([&] { lamp->kelTypeInfo().find(name)->fromDatum(*lamp, datum); });
  };
  EXPECT_EQ(set("lit", Datum("yes")), "expected a boolean, found a text");
  EXPECT_EQ(set("colour", Datum("blue")), "'blue' is not a value of KelTest::Colour; expected one of red, green");
  EXPECT_EQ(set("position", Datum(Datum::Object{{"row", Datum(std::int64_t{1})}})), "field 'column' is missing");
  lamp->socketsIs("a", 1);
  EXPECT_EQ(
      set("sockets", Datum(Datum::Object{{"b", Datum(std::int64_t{1})}, {"c", Datum(std::uint64_t{1} << 40)}})),
      "integer out of range -2147483648 to 2147483647");
  EXPECT_EQ(lamp->sockets().keys(), std::vector<Kel::Name>{"a"});
}

TEST(TypeInfo, createOrGetByName) {
  auto house = makePtr<House>("house");
  auto lamp = Kel::callOperation(*house, "lampIs", {Kel::Name("hall")});
  EXPECT_EQ(lamp, house->lamp("hall"));
  auto row = Kel::callOperation(*house, "rowIs", {Position(1, "a"), Kel::Ptr<const Lamp>(house->lamp("hall"))});
  EXPECT_EQ(row, house->row(Position(1, "a")));
  EXPECT_FALSE(Kel::callOperation(*house, "lampDel", {Kel::Name("hall")}));
  EXPECT_TRUE(house->lamp().empty());
  Kel::callOperation(*house, "rowDelAll", {});
  EXPECT_TRUE(house->row().empty());
}

TEST(TypeInfo, createByNameSaysWhatIsWrong) {
  auto house = makePtr<House>("house");
  EXPECT_EQ(errorOf([&] { Kel::callOperation(*house, "roofIs", {}); }), "KelTest::House has no operation 'roofIs'");
  EXPECT_EQ(errorOf([&] { Kel::callOperation(*house, "rowIs", {Position(1, "a")}); }),
            "KelTest::House::rowIs: takes 2 arguments, 1 were given");
  EXPECT_EQ(errorOf([&] {
              Kel::callOperation(*house, "rowIs", {Position(1, "a"), house});
            }),
            "KelTest::House::rowIs: argument 2 (lamp): expected KelTest::Lamp const, found Entity('house') of type "
            "KelTest::House");
  EXPECT_TRUE(house->row().empty());
}

TEST(TypeInfo, readOnlyHandlesDoNotBecomeWritable) {
  const Value value{Kel::Ptr<const Lamp>(makePtr<Lamp>("hall"))};
  EXPECT_EQ(value.as<Kel::Ptr<const Lamp>>()->name(), "hall");
  EXPECT_THROW(value.as<Kel::Ptr<Lamp>>(), Kel::AttributeException);
}

}  // namespace
}  // namespace KelTest
