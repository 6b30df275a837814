#include "mirror/kernel/ForwardingFlags.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

namespace Mirror {

namespace {

[[noreturn]] void fail(const std::string& file, const char* why) {
  throw UnreadableFlagException(fmt::format("cannot read {}: {}", file, why));
}

// The files of a directory of sysctls. A path below /proc/sys/net takes the kernel longer the more namespaces there are,
// so the directory is looked up once for all of its files.
class SysctlDirectory {
 public:
  explicit SysctlDirectory(std::string path)
      : path_(std::move(path)), fd_(::open(path_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    if (fd_ < 0 && errno != ENOENT) fail(path_, std::strerror(errno));
  }
  ~SysctlDirectory() {
    if (fd_ >= 0) ::close(fd_);
  }
  SysctlDirectory(const SysctlDirectory&) = delete;
  SysctlDirectory& operator=(const SysctlDirectory&) = delete;

  // 0 without such a file. Throws UnreadableFlagException.
  long number(const char* name) const;
  std::uint32_t positive(const char* name) const { return static_cast<std::uint32_t>(std::max(number(name), 0L)); }

 private:
  const std::string path_;
  const int fd_;  // negative: there is no such directory
};

long SysctlDirectory::number(const char* name) const {
  if (fd_ < 0) return 0;
  const auto file = path_ + "/" + name;
  const int fd = ::openat(fd_, name, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ENOENT) return 0;
    fail(file, std::strerror(errno));
  }
  char text[16] = {};
  const ssize_t size = ::read(fd, text, sizeof(text) - 1);
  const int error = errno;
  ::close(fd);
  if (size < 0) fail(file, std::strerror(error));
  char* end = text;
  const long value = std::strtol(text, &end, 10);
  if (end == text) fail(file, "no number is in it");
  return value;
}

}  // namespace

IpSysctls ForwardingFlags::read() const {
  std::optional<Vantu::NetNsGuard> inside;
  try {
    inside.emplace(*ns_);
  } catch (const Kel::Exception& error) {
    fail(directory_, error.what());
  }
  const SysctlDirectory ipv4(directory_ + "/net/ipv4"), ipv6(directory_ + "/net/ipv6/conf");
  return {.forwardsIpv4 = ipv4.number("ip_forward") != 0,
          .forwardsIpv6 = ipv6.number("all/forwarding") != 0,
          .defaults = {.ttl = ipv4.positive("ip_default_ttl"),
                       .reasmTimeout = ipv4.positive("ipfrag_time"),
                       .hopLimit = ipv6.positive("default/hop_limit")}};
}

}  // namespace Mirror
