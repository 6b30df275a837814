#pragma once
// How the switch keeps its forwarding equivalence classes (FECs).

#include <boost/describe.hpp>

namespace Quillo::Fib {

enum FecMode : int {
  fecModeUnknown = 0,
  fecModePerVrf = 1,   // a forwarding-status table for each VRF
  fecModeUnified = 2,  // one for all of them
};
BOOST_DESCRIBE_ENUM(FecMode, fecModeUnknown, fecModePerVrf, fecModeUnified)

}  // namespace Quillo::Fib
