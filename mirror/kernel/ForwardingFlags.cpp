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

}  // namespace

class ForwardingFlags::Directory {
 public:
  // Requires: the thread is in the namespace, here and in the following operations.
  explicit Directory(std::string path)
      : path_(std::move(path)), fd_(::open(path_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    if (fd_ < 0 && errno != ENOENT) fail(path_, std::strerror(errno));
  }
  ~Directory() {
    if (fd_ >= 0) ::close(fd_);
  }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  bool exists() const { return fd_ >= 0; }
  // The number in a file of the directory; 0 without such a file. Throws UnreadableFlagException.
  long number(const char* name) const;
  std::uint32_t positive(const char* name) const { return static_cast<std::uint32_t>(std::max(number(name), 0L)); }

 private:
  const std::string path_;
  const int fd_;  // negative: there is no such directory
};

long ForwardingFlags::Directory::number(const char* name) const {
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

ForwardingFlags::ForwardingFlags(std::shared_ptr<const Vantu::NetNs> ns, std::string directory)
    : ns_(std::move(ns)), root_(std::move(directory)) {
}

ForwardingFlags::ForwardingFlags(ForwardingFlags&&) noexcept = default;
ForwardingFlags::~ForwardingFlags() = default;

const ForwardingFlags::Directory& ForwardingFlags::open(std::unique_ptr<Directory>& directory,
                                                        const char* name) const {
  if (!directory || !directory->exists()) directory = std::make_unique<Directory>(root_ + name);
  return *directory;
}

IpSysctls ForwardingFlags::read() {
  std::optional<Vantu::NetNsGuard> inside;
  try {
    inside.emplace(*ns_);
  } catch (const Kel::Exception& error) {
    fail(root_, error.what());
  }
  const Directory& ipv4 = open(ipv4_, "/net/ipv4");
  const Directory& ipv6 = open(ipv6_, "/net/ipv6");
  return {.forwardsIpv4 = ipv4.number("ip_forward") != 0,
          .forwardsIpv6 = ipv6.number("conf/all/forwarding") != 0,
          .defaults = {.ttl = ipv4.positive("ip_default_ttl"),
                       .reasmTimeout = ipv4.positive("ipfrag_time"),
                       .hopLimit = ipv6.positive("conf/default/hop_limit")}};
}

}  // namespace Mirror
