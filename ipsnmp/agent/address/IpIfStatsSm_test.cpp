#include "ipsnmp/agent/address/IpIfStatsSm.h"

#include "ipsnmp/agent/testing/TestWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

using Rows = std::map<unsigned, std::uint64_t>;

struct IpIfStatsSmTest : testing::Test, World {
  // Counters from `first` on.
  Ptr<Ip::IntfStats> statsIs(std::string_view intf, std::uint64_t first) {
    const auto stats = tree.ip6IntfStats->intfStatsIs(intfOf(intf));
    stats->countersIs(Ip::IntfCounters(first, first + 1, first + 2, first + 3, first + 4, first + 5, first + 6,
                                       first + 7, first + 8, first + 9, first + 10, first + 11));
    return stats;
  }
  Ptr<IpIfStatsEntry> row(unsigned ifIndex) const {
    return ipMib->ipIfStatsTable(IpVersionIfIndex(Ip::ipVersion6, ifIndex));
  }
  // The first counter by ifIndex.
  Rows rows() const {
    Rows all;
    for (const auto& [key, row] : ipMib->ipIfStatsTable()) all[key.ifIndex()] = row->ipIfStatsInPkts();
    return all;
  }
  void machineIs() {
    machine = Kel::makePtr<IpIfStatsSm>(Ip::ipVersion6, tree.intfStatusDir, tree.ip6IntfStats, ipMib);
  }
  Ptr<IpIfStatsSm> machine;
};

TEST_F(IpIfStatsSmTest, aRowTakesCountersAndAnIfIndex) {
  machineIs();
  statsIs("eth0", 100);
  const auto status = intfIs("eth0", 3);
  std::uint64_t expected = 100;
  for (const auto& attribute : row(3)->kelTypeInfo().attributes()) {
    if (!attribute.name.starts_with("ipIfStats")) continue;
    EXPECT_EQ(Kel::readAttribute(*row(3), attribute.name).print(), std::to_string(expected++)) << attribute.name;
  }
  EXPECT_EQ(expected, 112U);
  statsIs("eth0", 200);
  status->ifIndexIs(4);
  EXPECT_EQ(rows(), (Rows{{4, 200}}));
  tree.intfStatusDir->intfStatusDel(intfOf("eth0"));
  EXPECT_EQ(rows(), (Rows{}));
  intfIs("eth0", 5);
  const auto other = ipMib->ipIfStatsTableIs(IpVersionIfIndex(Ip::ipVersion6, 9));
  EXPECT_EQ(rows(), (Rows{{5, 200}, {9, 0}}));
  machine = nullptr;
  statsIs("eth0", 300);
  EXPECT_EQ(rows(), (Rows{{9, 0}})) << "its rows go with the machine";
  machineIs();
  EXPECT_EQ(rows(), (Rows{{5, 300}, {9, 0}}));
  // An ifIndex that passes on keeps its row.
  intfIs("eth1", 5);
  statsIs("eth1", 400);
  tree.ip6IntfStats->intfStatsDel(intfOf("eth0"));
  EXPECT_EQ(rows(), (Rows{{5, 400}, {9, 0}}));
  tree.ip6IntfStats->intfStatsDel(intfOf("eth1"));
  EXPECT_EQ(rows(), (Rows{{9, 0}}));
}

// The wall clock was set between the starts of publisher and agent, or between those of two publishers.
TEST_F(IpIfStatsSmTest, discontinuityIsReckonedByThePublishersOffset) {
  machineIs();
  intfIs("eth0", 3);
  const auto now = Kel::System::currentTime();
  const auto stats = statsIs("eth0", 100);
  stats->discontinuityTimeIs(7);
  EXPECT_EQ(row(3)->discontinuityTime(), 7.0) << "of a publisher whose offset is not known";
  for (const Kel::Seconds step : {-3600.0, 0.0, 86400.0}) {
    stats->discontinuityTimeIs(now + step);
    stats->utcOffsetIs(Kel::System::utcOffset() + step);
    EXPECT_NEAR(row(3)->discontinuityTime(), now, 1e-3) << step;
  }
}

}  // namespace
}  // namespace IpSnmpTest
