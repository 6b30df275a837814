// hosts_ctl() of TCP wrappers, in front of the library's own.
//
// net-snmp asks it for every packet, and the library reads /etc/hosts.allow and /etc/hosts.deny each time: ten system
// calls, a third of a GETNEXT. While neither file holds a rule, everyone is allowed, so nothing needs to be read. With
// a rule in one of them the library is asked as ever. A change of the files counts within a second.
//
// The program's definition takes precedence over that of the shared library (ld.so(8)), for net-snmp too.

#include <dlfcn.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <fstream>
#include <string>

namespace {

constexpr std::array<const char*, 2> files{"/etc/hosts.allow", "/etc/hosts.deny"};

// What changes when a file does; all zero for a file that does not exist.
struct Version {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec changed{};

  friend bool operator==(const Version& a, const Version& b) {
    return a.device == b.device && a.inode == b.inode && a.size == b.size && a.changed.tv_sec == b.changed.tv_sec &&
           a.changed.tv_nsec == b.changed.tv_nsec;
  }
};

Version versionOf(const char* file) {
  struct stat found {};
  if (stat(file, &found) != 0) return {};
  return {found.st_dev, found.st_ino, found.st_size, found.st_ctim};
}

// A file that cannot be read is left to the library, and so is a line that its buffer may divide.
bool mayHoldRule(const char* file) {
  constexpr std::size_t longestLine = 1000;
  std::ifstream in(file);
  if (!in) return errno != ENOENT;
  for (std::string line; std::getline(in, line);) {
    const auto first = line.find_first_not_of(" \t\r");
    if (line.size() > longestLine || (first != std::string::npos && line[first] != '#')) return true;
  }
  return in.bad();
}

bool isThereARule() {
  static std::array<Version, files.size()> versions;
  static time_t lookedAt = -1;
  static bool isRule = true;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  if (now.tv_sec == lookedAt) return isRule;
  std::array<Version, files.size()> found;
  for (std::size_t i = 0; i < files.size(); ++i) found[i] = versionOf(files[i]);
  if (lookedAt < 0 || !(found == versions)) {
    versions = found;
    isRule = mayHoldRule(files[0]) || mayHoldRule(files[1]);
  }
  lookedAt = now.tv_sec;
  return isRule;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int hosts_ctl(char* daemon, char* name, char* address,
                                                                char* user) {
  if (!isThereARule()) return 1;
  static const auto ask = reinterpret_cast<decltype(&hosts_ctl)>(dlsym(RTLD_NEXT, "hosts_ctl"));
  return ask != nullptr ? ask(daemon, name, address, user) : 0;
}
