#include "mirror/kernel/ForwardingFlags.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace Mirror {

bool ForwardingFlags::read(Vantu::Af af) const {
  const auto file = directory_ + (af == Vantu::ipv4_ ? "/net/ipv4/ip_forward" : "/net/ipv6/conf/all/forwarding");
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
    if (errno == ENOENT) return false;
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
  return value != 0;
}

}  // namespace Mirror
