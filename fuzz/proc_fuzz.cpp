// The kernel's counter files: the first byte says how the input is divided between them.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "kel/Trace.h"
#include "swfwdstats/KernelStats.h"

namespace {

const char* const variables[] = {"PROC_NET_SNMP", "PROC_NET_NETSTAT", "PROC_NET_SNMP6"};
std::string files[3];
unsigned complaints = 0;

void write(const std::string& file, std::string_view text) {
  const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
  ::close(fd);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  for (std::size_t i = 0; i < std::size(files); ++i) {
    files[i] = "/dev/shm/quorin-fuzz-" + std::to_string(getpid()) + "-" + std::to_string(i);
    setenv(variables[i], files[i].c_str(), 1);
  }
  Kel::TraceConfig::setSink([](const auto&, unsigned level, const auto&) { complaints += level == 0 ? 1 : 0; });
  std::atexit([] {
    for (const auto& file : files) ::unlink(file.c_str());
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::size_t first = text.size() * (data[0] >> 4) / 15;
  const std::size_t second = (text.size() - first) * (data[0] & 15) / 15;
  write(files[0], text.substr(0, first));
  write(files[1], text.substr(first, second));
  write(files[2], text.substr(first + second));
  for (const auto header : {Ip::IpHeader::strict, Ip::IpHeader::any}) {
    Ip::SwFwdStatsData counters;
    complaints = 0;
    if (!Ip::readKernelIp4(counters, header) && complaints == 0) std::abort();
  }
  Ip::SwFwdStatsData counters;
  complaints = 0;
  if (!Ip::readKernelIp6(counters) && complaints == 0) std::abort();
  return 0;
}
