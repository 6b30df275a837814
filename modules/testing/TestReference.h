#pragma once
// For tests: what a manager must be answered, worked out from the rows alone, with nothing of the tables' own code.

#include <arpa/inet.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <map>
#include <span>
#include <vector>

#include "modules/testing/TestAgent.h"
#include "modules/testing/TestIpTree.h"
#include "quillo/testing/TestArpTable.h"

namespace Modules {

class Reference {
 public:
  void add(const std::string& name, int type, const std::string& value) {
    objects_[oidOf(name)] = {name, type, value};
  }
  void clear() { objects_.clear(); }
  Answer next(const std::string& name) const {
    const auto at = objects_.upper_bound(oidOf(name));
    return at == objects_.end() ? Answer{name, SNMP_ENDOFMIBVIEW, "endOfMibView"} : at->second;
  }
  Answer get(const std::string& name) const {
    const auto at = objects_.find(oidOf(name));
    return at == objects_.end() ? Answer{name, 0, "none"} : at->second;
  }
  std::vector<Answer> below(const std::string& root) const {
    std::vector<Answer> answers;
    for (const auto& [name, answer] : objects_) {
      if (answer.name.starts_with(root + ".")) answers.push_back(answer);
    }
    return answers;
  }

 private:
  std::map<Oid, Answer> objects_;
};

inline std::vector<unsigned> bytesOf(const std::string& text) {
  unsigned char bytes[16];
  const bool isV6 = text.find(':') != std::string::npos;
  inet_pton(isV6 ? AF_INET6 : AF_INET, text.c_str(), bytes);
  return {bytes, bytes + (isV6 ? 16 : 4)};
}
// The address as InetAddressType and InetAddress stand in an index: "1.4.10.0.0.1".
inline std::string inetIndex(const std::string& text) {
  const auto bytes = bytesOf(text);
  return fmt::format("{}.{}.{}", bytes.size() == 4 ? 1 : 2, bytes.size(), fmt::join(bytes, "."));
}

// Addresses and neighbours, entered into a cache and into the reference alike.
class TestIpRows {
 public:
  explicit TestIpRows(Kel::Ptr<IpSnmp::IpMib> cache) : mib(std::move(cache)) {}

  void addressIs(const std::string& text, unsigned prefixLength, std::uint32_t ifIndex,
                 IpSnmp::AddressSource source = IpSnmp::addressSourceStatus) {
    const auto version = bytesOf(text).size() == 4 ? Ip::ipVersion4 : Ip::ipVersion6;
    const auto entry = mib->ipAddressTableIs(inetAddress(text));
    auto masked = bytesOf(text);
    for (unsigned bit = prefixLength; bit < masked.size() * 8; ++bit) masked[bit / 8] &= ~(0x80U >> bit % 8);
    std::string prefixBytes(masked.begin(), masked.end());
    const auto prefix = mib->ipAddressPrefixTableIs(
        IpSnmp::IpAddressPrefixKey(ifIndex, version, Snmp::String(prefixBytes), prefixLength));
    entry->intfIs({IpSnmp::IntfDataKey(source, Vantu::IntfId("eth0")), prefix});
    const auto prefixIndex =
        fmt::format("{}.{}.{}.{}.{}", ifIndex, int{version}, masked.size(), fmt::join(masked, "."), prefixLength);
    const std::string index = inetIndex(text);
    const auto interface = std::to_string(static_cast<int>(ifIndex));
    const bool isConfigured = source == IpSnmp::addressSourceConfig;
    row("34", index, 3,
        {{ASN_INTEGER, interface},
         {ASN_INTEGER, "1"},
         {ASN_OBJECT_ID, "1.3.6.1.2.1.4.32.1.5." + prefixIndex},
         {ASN_INTEGER, "1"},
         {ASN_INTEGER, isConfigured ? "4" : "1"},
         {ASN_TIMETICKS, "0"},
         {ASN_TIMETICKS, "0"},
         {ASN_INTEGER, "1"},
         {ASN_INTEGER, "1"}});
    row("32", prefixIndex, 5,
        {{ASN_INTEGER, "1"},
         {ASN_INTEGER, "1"},
         {ASN_INTEGER, "2"},
         {ASN_GAUGE, "4294967295"},
         {ASN_GAUGE, "4294967295"}});
    if (version != Ip::ipVersion4) return;
    mib->ipAddrTableIs(entry);
    std::vector<unsigned> mask(4);
    for (unsigned bit = 0; bit < prefixLength; ++bit) mask[bit / 8] |= 0x80U >> bit % 8;
    row("20", text, 1,
        {{ASN_IPADDRESS, text},
         {ASN_INTEGER, interface},
         {ASN_IPADDRESS, fmt::format("{}", fmt::join(mask, "."))},
         {ASN_INTEGER, "0"},
         {ASN_INTEGER, "65535"}});
  }

  // A neighbour with its row. `mac` are the last two bytes of its hardware address, in hexadecimal.
  void neighbourIs(std::uint32_t ifIndex, const std::string& text, const std::string& mac, bool isStatic = false) {
    const bool isV4 = bytesOf(text).size() == 4;
    const auto addr = Vantu::IpGenAddr::fromString(text);
    const Vantu::IntfId intf("eth" + std::to_string(ifIndex));
    arp->entryIs({{vrfId, addr, intf},
                  Vantu::EthAddr::fromString("02:00:00:00:" + mac.substr(0, 2) + ":" + mac.substr(2)),
                  {isStatic}});
    mib->ipNetToPhysicalTableIs(IpSnmp::IpNetToPhysicalTableIndex(ifIndex, inetAddress(text)), intf, addr, arp,
                                vrfId)
        ->lastUpdatedIs(0);
    const bool isLinkLocal = text.starts_with("fe80:") || text.starts_with("169.254.");
    const std::string type = isStatic ? "4" : "3";
    row("35", fmt::format("{}.{}", ifIndex, inetIndex(text)), 4,
        {{ASN_OCTET_STR, "02000000" + mac},
         {ASN_TIMETICKS, "0"},
         {ASN_INTEGER, isLinkLocal ? "5" : type},
         {ASN_INTEGER, isV4 ? "6" : "1"},
         {ASN_INTEGER, "1"}});
    if (!isV4) return;
    row("22", fmt::format("{}.{}", ifIndex, text), 1,
        {{ASN_INTEGER, std::to_string(static_cast<int>(ifIndex))},
         {ASN_OCTET_STR, "02000000" + mac},
         {ASN_IPADDRESS, text},
         {ASN_INTEGER, type}});
  }

  static IpSnmp::InetAddress inetAddress(const std::string& text) {
    return IpSnmp::InetAddress::fromIpGenAddr(Vantu::IpGenAddr::fromString(text));
  }

  Kel::Ptr<IpSnmp::IpMib> mib;
  Kel::Ptr<Arp::Table::TestStatus> arp = Kel::makePtr<Arp::Table::TestStatus>();
  Vrf::VrfIdMap::VrfId vrfId{7};
  Reference reference;

 private:
  struct Value {
    int type;
    std::string text;
  };
  // `table` is a number below ip (1.3.6.1.2.1.4); the values are those of its columns from `column` on.
  void row(const char* table, const std::string& index, unsigned column, const std::vector<Value>& values) {
    for (const auto& [type, text] : values) {
      reference.add(fmt::format("1.3.6.1.2.1.4.{}.1.{}.{}", table, column++, index), type, text);
    }
  }
};

}  // namespace Modules
