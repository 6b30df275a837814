// The way from a real kernel to a real store, in network namespaces of the tests' own.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "mirror/testing/MirrorServiceTest.h"

namespace Mirror {
namespace {

using namespace Test;
using testing::HasSubstr;

TEST_F(MirrorServiceTest, linksAndAddressesAsTheyComeAndGo) {
  ip("addr add 10.0.0.1/24 dev eth0 label eth0:1");
  ip("addr add 10.0.0.2/24 dev eth0");
  ip("addr add 192.0.2.1 peer 192.0.2.9/32 dev eth0");
  ip("addr add 2001:db8::1/64 dev eth0");
  start();
  expectAgreement();
  const Vantu::IntfId eth0("eth0");
  EXPECT_EQ(service_->tree().intfStatusDir->intfStatus(eth0)->ethAddr().stringValue(), "02:00:00:00:00:01");
  EXPECT_EQ(primaries(service_->tree())["eth0"], "10.0.0.1/24");
  EXPECT_TRUE(isInStore("ip/status.ipIntfStatus/eth0", "192.0.2.1/32")) << "the local address of the two";

  for (const char* change :
       {"addr del 10.0.0.1/24 dev eth0", "link set eth0 down", "addr add 10.0.0.3/24 dev eth0",
        "link set eth0 name lan", "link set lan up", "addr add 2001:db8::2/64 dev lan", "link set eth0-p down",
        "link set eth0-p up", "link add eth0 type veth peer name other", "addr add 10.0.0.1/24 dev eth0",
        "addr flush dev lan", "link del lan", "link set eth0 address 02:00:00:00:00:02", "link set lo down"}) {
    SCOPED_TRACE(change);
    ip(change);
    expectAgreement();
  }
  EXPECT_FALSE(isInStore("ip/status.ipIntfStatus/lan"));
  EXPECT_EQ(service_->mirror().completeDumps(), 1U) << "notifications alone did it";
}

TEST_F(MirrorServiceTest, overrunIsMadeGoodAndJournalsOnlyWhatDiffers) {
  ip("link add quiet type veth peer name quiet-p");
  ip("addr add 10.1.0.1/24 dev quiet");
  start(1);
  expectAgreement();
  std::vector<std::string> lines;
  for (int number = 0; number < 500; ++number) {
    lines.push_back("addr add 10.2." + std::to_string(number / 250) + "." + std::to_string(number % 250 + 1) +
                    "/32 dev eth0");
  }
  const auto before = journalHead();
  ipBatch(lines);
  expectAgreement();
  EXPECT_GT(service_->mirror().overruns(), 0U) << "or this test tests nothing";
  EXPECT_GE(journalHead(), before + 2) << "two records of eth0 ...";
  EXPECT_LE(journalHead(), before + 2 * service_->mirror().completeDumps()) << "... and of nothing else";
}

TEST_F(MirrorServiceTest, aMirrorThatStartsAgainJournalsOnlyWhatDiffers) {
  ip("addr add 10.0.0.1/24 dev eth0");
  ip("addr add 10.0.0.2/24 dev eth0");
  start();
  expectAgreement();
  const auto before = journalHead();
  service_.reset();
  start();
  expectAgreement();
  EXPECT_EQ(journalHead(), before + counterRecords());
  service_.reset();
  ip("addr add 10.0.0.3/24 dev eth0");
  ip("link del eth0-p");
  ip("link add eth1 type veth peer name eth1-p");
  start();
  expectAgreement();
  EXPECT_FALSE(isInStore("interface/status.intfStatus/eth0"));
  EXPECT_TRUE(isInStore("interface/status.intfStatus/eth1"));
}

TEST_F(MirrorServiceTest, whatDoesNotFitIntoAFullStoreComesLater) {
  ASSERT_EQ(mount("tmpfs", directory_.c_str(), "tmpfs", 0, "size=1m"), 0);
  isMounted_ = true;
  start();
  const std::string filler = directory_ + "/filler";
  {
    const int fd = open(filler.c_str(), O_CREAT | O_WRONLY, 0600);
    const std::vector<char> block(4096);
    while (write(fd, block.data(), block.size()) > 0) {
    }
    close(fd);
  }
  std::vector<std::string> lines;
  for (int number = 1; number < 250; ++number) {
    for (const char* net : {"10.0.0.", "10.0.1.", "10.0.2.", "10.0.3."}) {
      lines.push_back("addr add " + (net + std::to_string(number)) + "/32 dev eth0");
    }
  }
  lines.push_back("neigh add 10.0.0.99 lladdr 02:00:00:00:00:09 dev eth0");
  ipBatch(lines);
  expectAgreement();
  service_->poll();
  EXPECT_FALSE(service_->publisher().isUpToDate()) << "or the store was not full";
  EXPECT_FALSE(isInStore("ip/config.ipIntfConfig/eth0", "10.0."));
  ip("addr del 10.0.3.249/32 dev eth0");
  expectAgreement();
  std::filesystem::remove(filler);
  service_->poll();
  EXPECT_TRUE(service_->publisher().isUpToDate());
  EXPECT_TRUE(isInStore("ip/config.ipIntfConfig/eth0", "10.0.3.248/32"));
  EXPECT_FALSE(isInStore("ip/config.ipIntfConfig/eth0", "10.0.3.249/32"));
  EXPECT_THAT(neighbourLines(store_), testing::Contains("eth0 neighbour 0 10.0.0.99 02:00:00:00:00:09 static"));
}

TEST_F(MirrorServiceTest, aStoreThatWasRemovedIsMadeAnew) {
  ip("addr add 10.0.0.1/24 dev eth0");
  start();
  for (const bool isChanged : {false, true}) {
    std::filesystem::remove_all(store_);
    if (isChanged) ip("addr add 10.0.0.2/24 dev eth0");
    expectAgreement();
    service_->poll();
    const auto reader = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{store_});
    reader->refresh();
    ASSERT_EQ(reader->state(), Quillo::Mount::State::ready) << reader->stateText();
    EXPECT_TRUE(reader->snapshot().get(Quillo::TableId::varnix, "ip/status.ipIntfStatus/eth0"));
    EXPECT_TRUE(reader->snapshot().firstPassComplete());
  }
}

TEST_F(MirrorServiceTest, namesOfAnyBytes) {
  start();
  ip("link add 'a.b#c' type veth peer name $(printf '\\303\\244\\377')");
  ip("addr add 10.0.0.1/24 dev 'a.b#c'");
  ip("addr add 10.0.0.2/24 dev eth0");
  waitFor([&] { return isInStore("ip/config.ipIntfConfig/eth0", "10.0.0.2/24"); },
          "the change after the odd names");
  EXPECT_TRUE(service_->tree().intfStatusDir->intfStatusHas(Vantu::IntfId("\303\244\377")));
  EXPECT_TRUE(isInStore("ip/config.ipIntfConfig/a.b#c", "10.0.0.1/24"));
}

TEST_F(MirrorServiceTest, twoNamespacesAreApart) {
  start();
  const std::string other = name_ + "-b";
  outputOf("ip netns add " + other);
  ip("link set eth0-p netns " + other);
  outputOf("ip -n " + other + " addr add 10.7.7.7/24 dev eth0-p");
  expectAgreement();
  EXPECT_FALSE(service_->tree().intfStatusDir->intfStatusHas(Vantu::IntfId("eth0-p")));
  outputOf("ip netns del " + other);
  expectAgreement();
}

}  // namespace
}  // namespace Mirror
