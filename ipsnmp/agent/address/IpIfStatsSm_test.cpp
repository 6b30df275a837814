#include "ipsnmp/agent/address/IpIfStatsSm.h"

#include "ipsnmp/agent/testing/TestWorld.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

struct IpIfStatsSmTest : testing::Test, World {
  // Counters from `first` on.
  Ptr<Ip::IntfStats> statsIs(std::string_view intf, std::uint64_t first, double since = 1) {
    const auto stats = tree.ip6IntfStats->intfStatsIs(intfOf(intf));
    stats->countersIs(Ip::IntfCounters(first, first + 1, first + 2, first + 3, first + 4, first + 5, first + 6,
                                       first + 7, first + 8, first + 9, first + 10, first + 11));
    stats->discontinuityTimeIs(since);
    return stats;
  }
  // "<ifIndex> <first counter>;" for each IPv6 row.
  std::string rows() const {
    std::string text;
    for (const auto& [key, row] : ipMib->ipIfStatsTable()) {
      EXPECT_EQ(key.ipVersion(), Ip::ipVersion6);
      text += std::to_string(key.ifIndex()) + " " + std::to_string(row->ipIfStatsInPkts()) + ";";
    }
    return text;
  }
  Ptr<IpIfStatsSm> machine =
      Kel::makePtr<IpIfStatsSm>(Ip::ipVersion6, tree.intfStatusDir, tree.ip6IntfStats, ipMib);
};

TEST_F(IpIfStatsSmTest, aRowTakesCountersAndAnIfIndex) {
  statsIs("eth0", 100);
  EXPECT_EQ(rows(), "");
  const auto status = intfIs("eth0", 3);
  EXPECT_EQ(rows(), "3 100;");
  const auto row = ipMib->ipIfStatsTable(IpVersionIfIndex(Ip::ipVersion6, 3));
  const std::uint64_t counters[] = {
      row->ipIfStatsInPkts(),        row->ipIfStatsInOctets(),       row->ipIfStatsOutPkts(),
      row->ipIfStatsOutOctets(),     row->ipIfStatsInUcastPkts(),    row->ipIfStatsInUcastOctets(),
      row->ipIfStatsOutUcastPkts(),  row->ipIfStatsOutUcastOctets(), row->ipIfStatsInMcastPkts(),
      row->ipIfStatsInMcastOctets(), row->ipIfStatsOutMcastPkts(),   row->ipIfStatsOutMcastOctets()};
  for (std::size_t i = 0; i < std::size(counters); ++i) EXPECT_EQ(counters[i], 100 + i);
  statsIs("eth0", 200, 7);
  EXPECT_EQ(row->ipIfStatsOutMcastOctets(), 211u);
  EXPECT_EQ(row->discontinuityTime(), 7.0) << "of a publisher whose offset is not known";
  status->ifIndexIs(4);
  EXPECT_EQ(rows(), "4 200;");
  tree.intfStatusDir->intfStatusDel(intfOf("eth0"));
  EXPECT_EQ(rows(), "");
  intfIs("eth0", 5);
  EXPECT_EQ(rows(), "5 200;");
  tree.ip6IntfStats->intfStatsDel(intfOf("eth0"));
  EXPECT_EQ(rows(), "");
}

// The wall clock was set between the starts of publisher and agent, or between those of two publishers.
TEST_F(IpIfStatsSmTest, discontinuityIsReckonedByThePublishersOffset) {
  intfIs("eth0", 3);
  const auto now = Kel::System::currentTime();
  for (const Kel::Seconds step : {-3600.0, 0.0, 86400.0}) {
    const auto stats = statsIs("eth0", 100, now + step);
    stats->utcOffsetIs(Kel::System::utcOffset() + step);
    const auto row = ipMib->ipIfStatsTable(IpVersionIfIndex(Ip::ipVersion6, 3));
    EXPECT_NEAR(row->discontinuityTime(), now, 1e-3) << step;
  }
}

TEST_F(IpIfStatsSmTest, anIfIndexThatPassesOnKeepsItsRow) {
  for (const char* intf : {"eth0", "eth1"}) {
    intfIs(intf, 3);
    statsIs(intf, 100);
  }
  statsIs("eth1", 200);
  EXPECT_EQ(rows(), "3 200;");
  tree.ip6IntfStats->intfStatsDel(intfOf("eth0"));
  EXPECT_EQ(rows(), "3 200;");
}

TEST_F(IpIfStatsSmTest, itsRowsComeAndGoWithTheMachine) {
  intfIs("eth0", 3);
  statsIs("eth0", 100);
  const auto other = ipMib->ipIfStatsTableIs(IpVersionIfIndex(Ip::ipVersion6, 9));
  machine = nullptr;
  EXPECT_EQ(rows(), "9 0;");
  statsIs("eth0", 300);
  machine = Kel::makePtr<IpIfStatsSm>(Ip::ipVersion6, tree.intfStatusDir, tree.ip6IntfStats, ipMib);
  EXPECT_EQ(rows(), "3 300;9 0;");
}

}  // namespace
}  // namespace IpSnmpTest
