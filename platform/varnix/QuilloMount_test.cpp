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
  const auto follower =
      Kel::makePtr<Quillo::TableFollower>(Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{"/nonexistent/store"}));
  const StoreMount mount(follower, ids);
  const auto odd = mount.mounted<RouteStatus>("routing/vrf/status/a/b.c");
  ASSERT_TRUE(odd);
  EXPECT_EQ(odd, mount.mounted<RouteStatus>("routing/vrf/status/a/b.c"));
  EXPECT_TRUE(mount.mounted<Quillo::Fib6::RouteStatus>("routing6/vrf/status/a/b.c"));
  EXPECT_TRUE(mount.mounted<ForwardingStatus>("forwarding/vrf/status/a/b.c"));
  EXPECT_FALSE(mount.mounted<ForwardingStatus>("routing/vrf/status/a/b.c"));
  EXPECT_FALSE(mount.table("routing/vrf/status/red"));
  EXPECT_FALSE(mount.table("routing/vrf/status/"));
  EXPECT_FALSE(mount.table("routing/vrf/status/" + std::string(5000, 'x')));
  EXPECT_FALSE(mount.table("routing/vrf/config/a/b.c"));
  // The default VRF has its usual id until another one is published.
  const auto usual = mount.mounted<RouteStatus>("routing/vrf/status/default");
  ASSERT_TRUE(usual);
  ids->vrfIdIs(L3::VrfName("default"), VrfId(3));
  EXPECT_NE(usual, mount.mounted<RouteStatus>("routing/vrf/status/default"));
}

}  // namespace
}  // namespace KelQuillo
