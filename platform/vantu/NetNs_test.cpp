#include "vantu/NetNs.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "kel/Errors.h"

namespace Vantu {
namespace {

ino_t presentNs() {
  struct stat present {};
  EXPECT_EQ(stat("/proc/thread-self/ns/net", &present), 0);
  return present.st_ino;
}

std::string errorOf(const char* nsName) {
  try {
    setNsByName(nsName);
  } catch (const Kel::Exception& error) {
    return error.what();
  }
  return "";
}

class NetNs : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "making a network namespace needs root";
    ASSERT_EQ(std::system(("ip netns add " + name_).c_str()), 0);
    made_ = true;
  }
  void TearDown() override {
    if (made_) {
      EXPECT_EQ(std::system(("ip netns del " + name_).c_str()), 0);
    }
  }

  const std::string vrf_ = "vantu-" + std::to_string(getpid());
  const std::string name_ = nsNameOfVrf(vrf_);
  const ino_t start_ = presentNs();
  bool made_ = false;
};

TEST_F(NetNs, guardsAndNamesSwitchTheCallingThreadThereAndBack) {
  {
    const NetNsGuard outer(name_);
    const auto inside = presentNs();
    EXPECT_NE(inside, start_);
    std::ifstream devices("/proc/thread-self/net/dev");
    EXPECT_EQ(std::count(std::istreambuf_iterator<char>(devices), {}, '\n'), 3)
        << "two of heading, and the loopback";
    {
      const NetNsGuard inner("default");
      EXPECT_EQ(presentNs(), start_);
    }
    EXPECT_EQ(presentNs(), inside);
    EXPECT_THROW(NetNsGuard("ns-that-is-not-there"), Kel::Exception);
    EXPECT_EQ(presentNs(), inside);
  }
  EXPECT_EQ(presentNs(), start_);
  setNsByName(name_.c_str());
  EXPECT_NE(presentNs(), start_);
  setNsByName("default");
  EXPECT_EQ(presentNs(), start_);
}

TEST_F(NetNs, fileThatIsNoNamespaceIsRefused) {
  const std::string file = "/run/netns/" + name_ + "x";
  std::ofstream(file).put('\n');
  const auto error = errorOf((name_ + "x").c_str());
  unlink(file.c_str());
  EXPECT_NE(error.find("is not a network namespace"), std::string::npos) << error;
  EXPECT_EQ(presentNs(), start_);
}

TEST(NetNsNames, unknownOrUnusableNamesSayWhatIsMissing) {
  EXPECT_EQ(errorOf("ns-that-is-not-there"),
            "cannot enter network namespace \"ns-that-is-not-there\" (/run/netns/ns-that-is-not-there): "
            "No such file or directory; check that the namespace exists (ip netns list)");
  for (const char* name : {"", ".", "..", "../netns", "ns-a/b"}) EXPECT_NE(errorOf(name), "") << name;
  EXPECT_THROW(NetNsGuard(std::string("default\0x", 9)), Kel::Exception);
  for (const char* vrf : {"", "default"}) EXPECT_EQ(nsNameOfVrf(vrf), "default");
  EXPECT_EQ(vrfOfNsName(nsNameOfVrf("red")), "red");
  EXPECT_EQ(vrfOfNsName("red"), std::nullopt);
}

TEST(NetNsNames, ownNamespaceNeedsNoPrivilege) {
  // In a child that gives up root, if it has it, for good.
  EXPECT_EXIT(_exit(setresuid(65534, 65534, 65534) == 0 || geteuid() != 0 ? !errorOf("default").empty() : 2),
              testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace Vantu
