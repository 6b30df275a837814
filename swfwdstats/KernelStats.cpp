#include "swfwdstats/KernelStats.h"

#include <fmt/format.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string_view>

#include "kel/Trace.h"
#include "swfwdstats/Counter.h"

namespace Ip {
namespace {

Kel::TraceHandle kernelStatsTrace("IpSwFwdStats");

// net/ipv4/proc.c of the kernel; kernels since 6.6 have one name more.
constexpr std::string_view knownHeader =
    "Ip: Forwarding DefaultTTL InReceives InHdrErrors InAddrErrors ForwDatagrams InUnknownProtos InDiscards "
    "InDelivers OutRequests OutDiscards OutNoRoutes ReasmTimeout ReasmReqds ReasmOKs ReasmFails FragOKs FragFails "
    "FragCreates";
constexpr std::streamsize knownHeaderLength = 224;  // with the line end
static_assert(knownHeader.size() + 1 == knownHeaderLength);
constexpr std::streamsize longestHeader = 1024;

std::string pathOf(const char* variable, const char* usual) {
  const char* const named = std::getenv(variable);
  return named != nullptr ? named : usual;
}
const std::string& snmpPath() {
  static const auto path = pathOf("PROC_NET_SNMP", "/proc/net/snmp");
  return path;
}
const std::string& netstatPath() {
  static const auto path = pathOf("PROC_NET_NETSTAT", "/proc/net/netstat");
  return path;
}
const std::string& snmp6Path() {
  static const auto path = pathOf("PROC_NET_SNMP6", "/proc/net/snmp6");
  return path;
}

bool opens(std::ifstream& file, const std::string& path) {
  file.open(path);
  if (file) return true;
  QTRACE(kernelStatsTrace, 0) << "Failed to open " << path;
  return false;
}

// Reads the header line, up to longestHeader characters. `length` includes its line end.
std::string headerLine(std::istream& file, std::streamsize& length) {
  std::string line(longestHeader, '\0');
  std::size_t size = 0;
  length = 0;
  for (int c = 0; length < longestHeader && (c = file.get()) != std::char_traits<char>::eof();) {
    ++length;
    if (c == '\n') break;
    line[size++] = static_cast<char>(c);
  }
  line.resize(size);
  return line;
}

bool hasKnownNames(std::string_view line) {
  return line == knownHeader || line.starts_with(std::string(knownHeader) + ' ');
}

// `hasOutTransmits`: the header names one more counter after the known ones.
bool readSnmp(std::istream& file, SwFwdStatsData& data, SwFwdStatsMore& more, bool hasOutTransmits) {
  constexpr std::streamsize longestField = 100;
  for (int skipped = 0; skipped < 3; ++skipped) file.ignore(longestField, ' ');  // "Ip:", forwarding, default TTL
  for (auto* value : {&data.inReceives, &data.inHdrErrors, &data.inAddrErrors, &data.forwDatagrams,
                      &data.inUnknownProtos, &data.inDiscards, &data.inDelivers, &data.outRequests,
                      &data.outDiscards, &data.outNoRoutes, &data.reasmTimeout, &data.reasmReqds, &data.reasmOKs,
                      &data.reasmFails, &data.fragOKs, &data.fragFails, &data.fragCreates}) {
    file >> *value;
  }
  if (!file) {
    QTRACE(kernelStatsTrace, 0) << "Failed to read the values in " << snmpPath();
    return false;
  }
  std::uint64_t outTransmits = 0;
  if (hasOutTransmits && file >> outTransmits) more.outTransmits = outTransmits;
  return true;
}

// Moves to the values line, the second of two lines with this prefix.
bool findIpExtValues(std::istream& file) {
  constexpr std::streamsize longestLine = 4096;
  bool isHeaderSeen = false;
  char word[10];
  while (file.get(word, sizeof(word), ' ')) {
    if (std::strcmp(word, "IpExt:") == 0) {
      if (isHeaderSeen) return true;
      isHeaderSeen = true;
    }
    file.ignore(longestLine, '\n');
  }
  return false;
}

void readIpExt(std::istream& file, SwFwdStatsData& data, SwFwdStatsMore& more) {
  if (!findIpExtValues(file)) return;
  SwFwdStatsData read = data;
  file >> read.inNoRoutes >> read.inTruncatedPkts >> read.inMcastPkts >> read.outMcastPkts >> read.inBcastPkts >>
      read.outBcastPkts;
  if (!file) return;
  data = read;
  more.hasIpExt = true;
  for (auto* octets : {&more.inOctets, &more.outOctets, &more.inMcastOctets, &more.outMcastOctets}) {
    std::uint64_t value = 0;
    if (file >> value) *octets = value;
  }
}

}  // namespace

bool readKernelIp4(SwFwdStatsData& data, IpHeader header, SwFwdStatsMore* given) {
  std::ifstream snmp;
  if (!opens(snmp, snmpPath())) return false;
  std::streamsize length = 0;
  const auto line = headerLine(snmp, length);
  if (length != knownHeaderLength && !(header == IpHeader::any && hasKnownNames(line))) {
    QTRACE(kernelStatsTrace, 0) << "Header is " << length;
    return false;
  }
  SwFwdStatsMore more;
  const bool hasOutTransmits = line.starts_with(std::string(knownHeader) + " OutTransmits");
  if (!readSnmp(snmp, data, more, hasOutTransmits)) return false;
  std::ifstream netstat;
  if (!opens(netstat, netstatPath())) return false;
  readIpExt(netstat, data, more);
  if (given != nullptr) *given = more;
  return true;
}

bool readKernelIp6(SwFwdStatsData& data, SwFwdStatsMore* given) {
  std::ifstream file;
  if (!opens(file, snmp6Path())) return false;
  SwFwdStatsMore more;
  char name[80];
  std::uint64_t value = 0;
  while (file.get(name, sizeof(name), ' ') && file >> value) {
    file.ignore();
    QTRACE(kernelStatsTrace, 1) << "stat is " << name << ", value is " << value;
    if (std::strcmp(name, "Ip6OutTransmits") == 0) more.outTransmits = value;
    const Counter* const found = counter(name, static_cast<unsigned>(std::strlen(name)));
    if (found == nullptr) {
      QTRACE(kernelStatsTrace, 8) << "no counter found for stat string " << name;
      continue;
    }
    QTRACE(kernelStatsTrace, 8) << "setting " << found->name() << " (counter for stat string " << name << ") to "
                                << value;
    found->write(data, value);
  }
  if (file.bad()) {
    QTRACE(kernelStatsTrace, 0) << "Failed to read " << snmp6Path();
    return false;
  }
  if (given != nullptr) *given = more;
  return true;
}

Kel::String adviceOnIpHeader() {
  std::ifstream snmp(snmpPath());
  std::streamsize length = 0;
  const auto line = headerLine(snmp, length);
  if (length == knownHeaderLength || !hasKnownNames(line)) return {};
  return fmt::format(
      "the running kernel's IPv4 statistics ({}) begin with a line of {} characters where {} are expected, so the "
      "IPv4 row of the software-forwarding statistics stays as it is; 'quorinKernelIpHeader any' in the "
      "configuration has them read",
      snmpPath(), length, knownHeaderLength);
}

}  // namespace Ip
