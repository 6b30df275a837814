#pragma once
// All that is published: what the mirrors of the namespaces keep, and what goes to the store from there.

#include "mirror/kernel/NeighbourTable.h"
#include "mirror/routes/PublishedRoutes.h"
#include "mirror/vrf/Vrfs.h"
#include "varnix/Tree.h"

namespace Mirror {

struct Picture {
  Varnix::Tree tree{Kel::makePtr<Kel::Dir>("")};
  NeighbourTable neighbours;
  PublishedRoutes routes;
  Vrfs vrfs{tree};
};

}  // namespace Mirror
