#include "vantu/RouteDistinguisher.h"

#include <gtest/gtest.h>

#include "kel/Errors.h"

namespace Vantu {
namespace {

using Bytes = RouteDistinguisher::Bytes;

TEST(RouteDistinguishers, bytesFollowTheTypes) {
  EXPECT_EQ(RouteDistinguisher::fromString("65000:1").bytes(), (Bytes{0, 0, 0xFD, 0xE8, 0, 0, 0, 1}));
  EXPECT_EQ(RouteDistinguisher::fromString("10.0.0.1:258").bytes(), (Bytes{0, 1, 10, 0, 0, 1, 1, 2}));
  EXPECT_EQ(RouteDistinguisher::fromString("4200000000:7").bytes(), (Bytes{0, 2, 0xFA, 0x56, 0xEA, 0, 0, 7}));
  EXPECT_EQ(RouteDistinguisher::fromString("1.10:7").bytes(), (Bytes{0, 2, 0, 1, 0, 10, 0, 7}));
  EXPECT_EQ(RouteDistinguisher::fromString("65546:7"), RouteDistinguisher::fromString("1.10:7"));
}

TEST(RouteDistinguishers, unsetIsNotTheZeroValue) {
  EXPECT_FALSE(RouteDistinguisher().isSet());
  EXPECT_TRUE(RouteDistinguisher(Bytes{}).isSet());
  EXPECT_EQ(RouteDistinguisher(Bytes{}).stringValue(), "0:0");
}

TEST(RouteDistinguishers, unfitBytesAreRefused) {
  const Bytes unknownType{0, 3, 0, 0, 0, 1, 0, 1};
  EXPECT_THROW(RouteDistinguisher::fromBytes(unknownType), Kel::RangeException);
  EXPECT_THROW(RouteDistinguisher::fromBytes(std::span(unknownType).first(7)), Kel::RangeException);
  EXPECT_THROW(RouteDistinguisher(Bytes{1, 0, 0, 0, 0, 0, 0, 0}), Kel::RangeException);
  EXPECT_THROW(RouteDistinguisher::fromAs(65536, 65536), Kel::RangeException);
}

}  // namespace
}  // namespace Vantu
