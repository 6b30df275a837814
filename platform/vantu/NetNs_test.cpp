#include "vantu/NetNs.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "kel/Errors.h"

namespace Vantu {
namespace {

std::string errorOf(const char* nsName) {
  try {
    setNsByName(nsName);
  } catch (const Kel::Exception& error) {
    return error.what();
  }
  return "";
}

TEST(NetNsNames, fileThatIsNoNamespaceIsRefused) {
  const std::string name = "vantu-" + std::to_string(getpid()), file = testing::TempDir() + name;
  setNetNsDirectory(testing::TempDir());
  std::ofstream(file).put('\n');
  const auto error = errorOf(name.c_str());
  unlink(file.c_str());
  setNetNsDirectory(defaultNetNsDirectory);
  EXPECT_NE(error.find("is not a network namespace"), std::string::npos) << error;
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
