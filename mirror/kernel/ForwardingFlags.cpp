#include "mirror/kernel/ForwardingFlags.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace Mirror {

bool ForwardingFlags::read(Vantu::Af af) const {
  return number(af == Vantu::ipv4_ ? "/net/ipv4/ip_forward" : "/net/ipv6/conf/all/forwarding") != 0;
}

IpDefaults ForwardingFlags::readDefaults() const {
  const auto positive = [this](const char* sysctl) {
    return static_cast<std::uint32_t>(std::max(number(sysctl), 0L));
  };
  return {.ttl = positive("/net/ipv4/ip_default_ttl"),
          .reasmTimeout = positive("/net/ipv4/ipfrag_time"),
          .hopLimit = positive("/net/ipv6/conf/default/hop_limit")};
}

long ForwardingFlags::number(const char* sysctl) const {
  const auto file = directory_ + sysctl;
  const auto fail = [&](const char* why) {
    throw UnreadableFlagException(fmt::format("cannot read {}: {}", file, why));
  };
  std::optional<Vantu::NetNsGuard> inside;
  try {
    inside.emplace(*ns_);
  } catch (const Kel::Exception& error) {
    fail(error.what());
  }
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ENOENT) return 0;
    fail(std::strerror(errno));
  }
  char text[16] = {};
  const ssize_t size = ::read(fd, text, sizeof(text) - 1);
  const int error = errno;
  ::close(fd);
  if (size < 0) fail(std::strerror(error));
  char* end = text;
  const long value = std::strtol(text, &end, 10);
  if (end == text) fail("no number is in it");
  return value;
}

}  // namespace Mirror
