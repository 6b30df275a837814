#include "varnix/QuilloMount.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace KelQuillo {
namespace {

using Quillo::Fib::ForwardingStatus;
using Quillo::Fib::RouteStatus;
using Vrf::VrfIdMap::VrfId;

TEST(QuilloMount, tablesAreFoundByPath) {
  const auto ids = Kel::makePtr<Vrf::VrfIdMap::NameToIdMapWrapper>("status");
  ids->vrfIdIs(L3::VrfName("a/b.c"), VrfId(7));
  const auto store = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{"/nonexistent/store"});
  const StoreMount mount(Kel::makePtr<Quillo::TableFollower>(store), ids);
  const auto table = mount.mounted<RouteStatus>("routing/vrf/status/a/b.c");
  EXPECT_TRUE(table);
  EXPECT_EQ(table, mount.table("routing/vrf/status/a/b.c"));
  EXPECT_TRUE(mount.mounted<Quillo::Fib6::RouteStatus>("routing6/vrf/status/a/b.c"));
  EXPECT_TRUE(mount.mounted<ForwardingStatus>("forwarding/vrf/status/a/b.c"));
  EXPECT_FALSE(mount.mounted<ForwardingStatus>("routing/vrf/status/a/b.c"));
  for (const auto& path : {"status/red", "status/", "config/a/b.c"}) {
    EXPECT_FALSE(mount.table(std::string("routing/vrf/") + path)) << path;
  }
  EXPECT_FALSE(mount.table("routing/vrf/status/" + std::string(5000, 'x')));
  // The default VRF has its usual id until another one is published.
  const auto usual = mount.table("routing/vrf/status/default");
  EXPECT_TRUE(usual);
  ids->vrfIdIs(L3::VrfName("default"), VrfId(3));
  EXPECT_NE(usual, mount.table("routing/vrf/status/default"));
}

}  // namespace
}  // namespace KelQuillo
