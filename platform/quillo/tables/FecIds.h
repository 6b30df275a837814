#pragma once
// The ids that our publishers give to FECs.

#include <vector>

#include "quillo/tables/Fec.h"

namespace Quillo {

// Sorts the vias and removes repeated ones.
void sortVias(std::vector<Fib::Via>& vias);

// A hash of the vias, never 0. So a restarted publisher assigns the same ids. If another FEC has the id already, the
// publisher takes the next number. Requires: sortVias() was called. Throws Kel::RangeException above Fec::maxVias vias.
Fib::FecId fecIdOf(const std::vector<Fib::Via>& vias);

}  // namespace Quillo
