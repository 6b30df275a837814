#pragma once
// Small types that the framework's own tests watch, list and print.

#include "kel/Dir.h"

namespace KelTest {

enum Colour : int { red = 1, green = 2 };
BOOST_DESCRIBE_ENUM(Colour, red, green)

class Position {
  KEL_VALUE_TYPE("KelTest::Position", Position, ((int, row))((Kel::String, column)))
};

class Lamp : public Kel::Entity {
  KEL_TYPE_BEGIN("KelTest::Lamp", Lamp, Kel::Entity)
 public:
  KEL_NAMED(Lamp, Kel::Entity)
  KEL_STORED(bool, lit, Lit, false)
  KEL_STORED(Colour, colour, Colour, red)
  KEL_STORED(Position, position, Position)
  KEL_VALUES(Ordered, Kel::Name, int, sockets, Sockets)
  KEL_REFERENCE(const Lamp, neighbour, Neighbour)
  Kel::String label() const { return name() + (lit_ ? " on" : " off"); }
  KEL_COMPUTED(label)
  KEL_TYPE_END
};

class Row : public Kel::Notifier {
  KEL_TYPE_BEGIN("KelTest::Row", Row, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(Row, ((Position, index))((Kel::Ptr<const Lamp>, lamp)))
  KEL_STORED(unsigned, count, Count, 0)
  KEL_TYPE_END
};

class House : public Kel::Entity {
  KEL_TYPE_BEGIN("KelTest::House", House, Kel::Entity)
 public:
  KEL_NAMED(House, Kel::Entity)
  KEL_MEMBERS(Hashed, Kel::Name, Lamp, lamp, Lamp)
  KEL_MEMBERS(Ordered, Position, Row, row, Row)
  KEL_CHILD(Lamp, porch, Porch)
  KEL_TYPE_END
};

inline std::string errorOf(auto call) {
  try {
    call();
  } catch (const Kel::Exception& error) {
    return error.what();
  }
  return "no error";
}

}  // namespace KelTest
