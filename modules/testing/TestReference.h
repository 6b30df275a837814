#pragma once
// For tests: the expected answers of all objects, computed from the rows of the caches without the code of the tables.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <map>
#include <set>

#include "ipsnmp/IpCidrRouteTableIteratorConst.h"
#include "modules/testing/MibObjects.h"
#include "modules/testing/TestIpTree.h"

namespace Modules {

inline const std::string ipObjects = "1.3.6.1.2.1.4";
inline const std::string ourObjects = textOf(enterpriseObject({3}));

// The names of a table's counters: its columns without the table's prefix, and without the last two.
inline Words countersOf(const std::string& table) {
  Words counters;
  for (const auto& object : mibObjects()) {
    if (object.name != table) continue;
    for (const auto& column : object.columns) counters.push_back(column.substr(table.size() - 5));
  }
  counters.resize(counters.size() - 2);
  return counters;
}

class Reference {
 public:
  void add(const std::string& name, int type, const std::string& value) {
    if (const Oid oid = oidOf(name); oid.size() <= MAX_OID_LEN) objects_[oid] = {name, type, value};
  }
  void add(const IpSnmp::IpMib& mib) {
    for (const auto& [addr, entry] : mib.ipAddressTable()) {
      const auto prefix = entry->prefixEntry();
      const auto pointer = prefix ? fmt::format("{}.32.1.5.{}", ipObjects, index(prefix->index())) : "0.0";
      row(ipObjects + ".34", index(addr), 3,
          {number(entry->ifIndex()),
           one,
           {ASN_OBJECT_ID, pointer},
           one,
           number(entry->intf().begin()->first.source() == IpSnmp::addressSourceConfig ? 4 : 1),
           noTime,
           noTime,
           one,
           one});
    }
    const Value forever{ASN_GAUGE, "4294967295"};
    for (const auto& [key, entry] : mib.ipAddressPrefixTable()) {
      row(ipObjects + ".32", index(key), 5, {one, one, number(2), forever, forever});
    }
    for (const auto& [addr, entry] : mib.ipAddrTable()) {
      row(ipObjects + ".20", addr.stringValue(), 1,
          {address(addr), number(entry->ipAdEntIfIndex()), address(entry->ipAdEntNetMask()), number(0),
           number(65535)});
    }
    for (const auto& [key, entry] : mib.ipNetToPhysicalTable()) addNeighbour(*entry);
    for (const auto& [key, entry] : mib.ipIfStatsTable()) {
      std::vector<Value> values;
      for (const auto& counter : countersOf("quorinIpIfStatsTable")) {
        values.push_back({ASN_COUNTER64, Kel::readAttribute(*entry, "ipIfStats" + counter).print()});
      }
      values.insert(values.end(), {noTime, {ASN_GAUGE, "2000"}});
      row(ourObjects + ".27.1.1", fmt::format("{}.{}", int{key.ipVersion()}, key.ifIndex()), 3, values);
    }
    for (const auto& [version, entry] : mib.ipSwFwdStats()) {
      std::vector<Value> values;
      for (const auto& counter : countersOf("quorinSwFwdIpStatsTable")) {
        const bool isWide = counter.starts_with("HC");
        const auto value = swFwdCounter(*entry, isWide ? counter.substr(2) : counter);
        const int type = isWide ? int{ASN_COUNTER64} : int{ASN_COUNTER};
        values.push_back({type, std::to_string(isWide ? value : value & 0xFFFFFFFF)});
      }
      values.insert(values.end(), {noTime, {ASN_GAUGE, "500"}});
      row(ourObjects + ".1.1.1", std::to_string(version), 3, values);
      // ipSystemStatsTable has the same columns, but no instance of a counter that the kernel lacks. For IPv4 it has
      // the octets of IpExt.
      const bool isIpv4 = version == Ip::ipVersion4;
      std::uint64_t octets = 26;  // the first value of IpExt in the tests' files
      for (unsigned column : {5U, 32U, 36U, 40U}) {
        for (auto* value : {&values[column - 3], &values[column - 2]}) {
          if (isIpv4) value->text = std::to_string(octets);
        }
        ++octets;
      }
      // In the tests' files outTransmits would be negative; IPv6 has no broadcasts.
      std::fill_n(values.begin() + (30 - 3), 2, Value());
      if (!isIpv4) std::fill_n(values.begin() + (42 - 3), 4, Value());
      row(ipObjects + ".31.1", std::to_string(version), 3, values);
    }
  }
  // Interfaces, their counters and the default routers.
  void addInterfaces(const IpSnmp::IpMib& mib) {
    for (const char* lastChange : {".27.0", ".29.0", ".31.2.0"}) add(ipObjects + lastChange, ASN_TIMETICKS, "0");
    for (const auto& [key, entry] : mib.ipInterfaceTable()) {
      const auto& told = entry->protocol()->parameters();
      const auto gauge = [](std::uint32_t value) { return Value{ASN_GAUGE, std::to_string(value)}; };
      const Value status = number(told.isEnabled() ? 1 : 2), retransmit = gauge(told.retransmitTime());
      const auto ifIndex = std::to_string(key.ifIndex());
      if (key.ipVersion() == Ip::ipVersion4) {
        row(ipObjects + ".28", ifIndex, 2, {number(told.reasmMaxSize()), status, retransmit});
      } else {
        const Value identifier{ASN_OCTET_STR, entry->addresses()->addr().empty() ? "" : "010203fffe040506"};
        row(ipObjects + ".30", ifIndex, 2,
            {gauge(told.reasmMaxSize()), identifier, Value(), status, gauge(told.reachableTime()), retransmit,
             number(told.forwarding() ? 1 : 2)});
      }
    }
    for (const auto& [key, entry] : mib.ipIfTrafficTable()) addTraffic(key, *entry->stats());
    for (const auto& [key, entry] : mib.ipDefaultRouterTable()) {
      row(ipObjects + ".37", fmt::format("{}.{}", index(key.addr()), key.ifIndex()), 4,
          {{ASN_GAUGE, "65535"}, number(entry->preference())});
    }
  }
  void add(const std::vector<IpSnmp::IpCidrRouteTableEntry>& routes) {
    const std::map<unsigned, int> protocols{{7, 3},   {10, 8},  {11, 2},  {15, 13}, {16, 13}, {17, 13},
                                            {18, 13}, {19, 13}, {20, 13}, {21, 14}, {22, 14}, {23, 14}};
    const Value none = number(-1);
    for (const auto& route : routes) {
      const auto& key = route.index();
      const auto protocol = protocols.find(route.protocol().value());
      row(ipObjects + ".24.4",
          fmt::format("{}.{}.0.{}", key.dest().stringValue(), key.mask().stringValue(),
                      key.nextHop().stringValue()),
          1,
          {address(key.dest()),
           address(key.mask()),
           number(0),
           address(key.nextHop()),
           number(route.ifIndex()),
           number(route.type()),
           number(protocol == protocols.end() ? 1 : protocol->second),
           none,
           {ASN_OBJECT_ID, "0.0"},
           number(0),
           number(route.metric().value()),
           number(route.preference().value()),
           none,
           none,
           none,
           one});
    }
  }
  // inetCidrRouteTable: of both IP versions, with next hops of both.
  void add(const IpSnmpTest::RouteTables& tables) {
    addInet(tables, *tables.routes, {0, 1, 3, 5},
            {{7, 3},
             {10, 8},
             {11, 2},
             {15, 13},
             {16, 13},
             {17, 13},
             {18, 13},
             {19, 13},
             {20, 13},
             {21, 14},
             {22, 14},
             {23, 14},
             {24, 9},
             {25, 9}});
    addInet(tables, *tables.routes6, {0, 3},
            {{4, 3}, {6, 8}, {7, 2}, {9, 14}, {10, 13}, {11, 13}, {12, 14}, {13, 9}, {14, 9}, {15, 3}, {16, 3}});
  }
  void add(const IpSnmp::IpVrfMib& mib) {
    for (const auto& [name, entry] : mib.vrfTable()) {
      const auto routing = entry->vrfRoutingStatus();
      const int bits = routing ? (routing->ipv4() ? 0x80 : 0) + (routing->ipv6() ? 0x40 : 0) : 0;
      row(ourObjects + ".18.1.1", index(name), 2,
          {{ASN_OCTET_STR, fmt::format("{:02x}", bits)},
           octets(entry->routeDistinguisher().stringValue()),
           number(entry->vrfState() == Ip::vrfStateActive ? 1 : 2)});
    }
    for (const auto& [ifIndex, entry] : mib.vrfIfTable()) {
      row(ourObjects + ".18.1.2", std::to_string(ifIndex), 1, {octets(entry->vrfName())});
    }
  }
  void addContexts(const std::vector<Kel::String>& names) {
    for (const auto& name : names) row("1.3.6.1.6.3.16.1.1", index(Snmp::String(name)), 1, {octets(name)});
  }
  // The initial values of the scalars, and the VRFs.
  void add(const AgentSnmp::AgentMib& mib) {
    const auto objects = textOf(enterpriseObject({4, 1}));
    const Value never{ASN_OCTET_STR, "0000000000000000"}, none{ASN_GAUGE, "0"}, counted{ASN_COUNTER, "0"};
    const Value unknownAge{ASN_GAUGE, "4294967295"};
    const Value vrfs{ASN_GAUGE, std::to_string(mib.vrfTable().size())};
    unsigned at = 0;
    for (const auto& [type, text] : {one, octets(""), never, unknownAge, unknownAge, never, number(2), number(2),
                                     none, counted, vrfs, none, none, none, none, none, counted, none}) {
      add(fmt::format("{}.{}.0", objects, ++at), type, text);
    }
    for (const auto& [name, entry] : mib.vrfTable())
      row(objects + ".19", index(name), 2, {number(entry->readiness())});
  }
  void add(const FibStatsSnmp::FibStatsMib& mib) {
    const auto count = [&](unsigned table, const std::string& key, const FibStatsSnmp::RouteCount& counted) {
      row(fmt::format("{}.23.1.{}", ourObjects, table), key, 2,
          {{ASN_GAUGE, std::to_string(counted.totalRoutes())}});
    };
    for (const auto& [version, entry] : mib.summaryTable()) count(1, std::to_string(version), *entry);
    for (const auto& [key, entry] : mib.routeTypeTable()) {
      count(2, fmt::format("{}.{}", int{key.addressFamily()}, int{key.routeType()}), *entry);
    }
    for (const auto& [key, entry] : mib.prefixLenTable()) {
      count(3, fmt::format("{}.{}", int{key.addressFamily()}, key.prefixLen().value()), *entry);
    }
  }

  Answer next(const std::string& name) const {
    const auto at = objects_.upper_bound(oidOf(name));
    return at == objects_.end() ? Answer{name, SNMP_ENDOFMIBVIEW, "endOfMibView"} : at->second;
  }
  // Null when there is no such object.
  const Answer* get(const std::string& name) const {
    const auto at = objects_.find(oidOf(name));
    return at == objects_.end() ? nullptr : &at->second;
  }
  std::vector<Answer> below(const std::string& root) const {
    std::vector<Answer> answers;
    for (const auto& [name, answer] : objects_) {
      if (answer.name.starts_with(root + ".")) answers.push_back(answer);
    }
    return answers;
  }

  // The sub-identifiers of an octet string in an index, the length first.
  static std::string index(const Snmp::String& bytes) {
    std::string text = std::to_string(bytes.bytes());
    for (const auto byte : bytes.octets()) text += fmt::format(".{}", byte);
    return text;
  }

 private:
  struct Value {
    int type = 0;  // 0: the row has no such instance
    std::string text;
  };
  template <class T>
  static Value number(T value) {
    return {ASN_INTEGER, std::to_string(static_cast<int>(value))};
  }
  static Value address(const Vantu::IpAddr& addr) { return {ASN_IPADDRESS, addr.stringValue()}; }
  static Value octets(const std::string& bytes) {
    return {ASN_OCTET_STR,
            fmt::format("{:02x}", fmt::join(std::vector<unsigned char>(bytes.begin(), bytes.end()), ""))};
  }
  inline static const Value one = number(1), noTime{ASN_TIMETICKS, "0"};

  static std::string index(const IpSnmp::InetAddress& addr) {
    return fmt::format("{}.{}", int{addr.version()}, index(addr.bytes()));
  }
  static std::string index(const IpSnmp::IpAddressPrefixKey& key) {
    return fmt::format("{}.{}.{}.{}", key.ifIndex(), int{key.version()}, index(key.bytes()), key.length());
  }

  // Adds a row; `values` are those of the columns from `column` on.
  void row(const std::string& table, const std::string& key, unsigned column, const std::vector<Value>& values) {
    for (const auto& [type, text] : values) {
      if (type != 0) add(fmt::format("{}.1.{}.{}", table, column, key), type, text);
      ++column;
    }
  }

  // Adds a row of ipIfStatsTable, each column from the field of `stats` that has the name below.
  void addTraffic(const IpSnmp::IpVersionIfIndex& key, const Ip::IntfStats& stats) {
    std::map<std::string, std::uint64_t> values;
    const auto take = [&](const char* name, std::uint64_t value) { values[name] = value; };
    stats.counters().kelForEachField(take);
    stats.datagrams().kelForEachField(take);
    std::erase_if(values, [](const auto& entry) { return entry.second == ~std::uint64_t{0}; });
    if (values.contains("fragOKs")) values["fragReqds"] = values["fragOKs"] + values["fragFails"];
    static const std::map<unsigned, std::string> columns{
        {4, "inPkts"},         {6, "inOctets"},          {7, "inHdrErrors"},      {8, "inNoRoutes"},
        {9, "inAddrErrors"},   {10, "inUnknownProtos"},  {11, "inTruncatedPkts"}, {14, "reasmReqds"},
        {15, "reasmOKs"},      {16, "reasmFails"},       {17, "inDiscards"},      {19, "inDelivers"},
        {21, "outRequests"},   {24, "outForwDatagrams"}, {25, "outDiscards"},     {26, "fragReqds"},
        {27, "fragOKs"},       {28, "fragFails"},        {29, "fragCreates"},     {31, "outPkts"},
        {33, "outOctets"},     {35, "inMcastPkts"},      {37, "inMcastOctets"},   {39, "outMcastPkts"},
        {41, "outMcastOctets"}};
    const std::set<unsigned> wide{4, 6, 19, 21, 24, 31, 33, 35, 37, 39, 41};
    std::vector<Value> row(47 - 2);
    for (const auto& [column, name] : columns) {
      const auto at = values.find(name);
      if (at == values.end()) continue;
      const bool isWide = wide.contains(column);
      row[column - (isWide ? 4 : 3)] = {ASN_COUNTER, std::to_string(at->second & 0xFFFFFFFF)};
      if (isWide) row[column - 3] = {ASN_COUNTER64, std::to_string(at->second)};
    }
    row[46 - 3] = noTime;
    row[47 - 3] = {ASN_GAUGE, "2000"};
    this->row(ipObjects + ".31.3", fmt::format("{}.{}", int{key.ipVersion()}, key.ifIndex()), 3, row);
  }

  void addInet(const IpSnmpTest::RouteTables& tables, const auto& routes, const std::set<unsigned>& withoutRows,
               std::map<unsigned, int> protocols) {
    for (const auto& [prefix, route] : routes.map) {
      const auto fec = tables.fecs->map.find(route.fecId);
      if (withoutRows.contains(route.routeType.value()) || fec == tables.fecs->map.end()) continue;
      std::map<std::string, std::set<unsigned>> interfaces;  // by next hop, as in the index
      for (const auto& [hop, intfId] : fec->second.via) {
        const auto* known = tables.ifMib->ifIndexByIntfId(intfId);
        const bool isTunnel = intfId.text().find("DynamicTunnel") != std::string::npos;
        if (!intfId.empty() && (isTunnel || known == nullptr || *known == 0)) continue;
        interfaces[hop.isZero() ? "0.0" : index(IpSnmp::InetAddress::fromIpGenAddr(hop))].insert(
            intfId.empty() ? 0 : static_cast<unsigned>(*known));
      }
      const auto action = static_cast<int>(route.action);
      if (action != 0) {
        interfaces.clear();
        interfaces["0.0"].insert(0);
      }
      const auto dest = index(IpSnmp::InetAddress::fromIpGenAddr(prefix.address()));
      const int protocol = protocols.emplace(route.routeType.value(), 1).first->second;
      const Value none{ASN_GAUGE, "0"}, unused = number(-1);
      for (const auto& [hop, ifIndexes] : interfaces) {
        for (const unsigned ifIndex : ifIndexes) {
          const auto policy = ifIndexes.size() > 1 ? fmt::format("3.0.0.{}", ifIndex) : "2.0.0";
          const int type = action == 1 ? 5 : action > 1 ? 2 : hop == "0.0" ? 3 : 4;
          row(ipObjects + ".24.7", fmt::format("{}.{}.{}.{}", dest, prefix.length(), policy, hop), 7,
              {number(ifIndex), number(type), number(protocol), none, none, number(route.metric.value()), unused,
               unused, unused, unused, one});
        }
      }
    }
  }

  void addNeighbour(const IpSnmp::IpNetToPhysicalTableEntry& entry) {
    Value physical, type, mediaType;
    try {
      if (const auto known = entry.arpEntry(); known.exists()) {
        const auto& mac = known.ethAddr.bytes();
        physical = octets(std::string(mac.begin(), mac.end()));
        type = mediaType = number(known.status.isStatic ? 4 : 3);
      }
    } catch (const Pesk::CorruptionDetectedException&) {
      mediaType = number(3);
    }
    const bool isV4 = entry.ipGenAddr().af() == Vantu::ipv4_;
    row(ipObjects + ".35", fmt::format("{}.{}", entry.ifIndex(), index(entry.inetAddress())), 4,
        {physical, noTime, entry.ipGenAddr().isLinkLocal() ? number(5) : type, number(isV4 ? 6 : 1), one});
    if (!isV4) return;
    const auto addr = entry.ipGenAddr().v4();
    row(ipObjects + ".22", fmt::format("{}.{}", entry.ifIndex(), addr.stringValue()), 1,
        {number(entry.ifIndex()), physical, address(addr), mediaType});
  }

  static std::uint64_t swFwdCounter(const Ip::SwFwdStats& entry, const std::string& counter) {
    entry.doFreshen();
    std::map<std::string, std::uint64_t> values{{"inForwDatagrams", entry.inForwDatagrams()},
                                                {"fragReqds", entry.fragReqds()},
                                                {"outTransmits", entry.outTransmits()}};
    entry.data().kelForEachField([&](const char* name, const auto& value) { values[name] = value; });
    // OutFragOKs shows fragOKs.
    for (auto name : {counter, counter.substr(3)}) {
      name[0] = static_cast<char>(std::tolower(name[0]));
      if (const auto at = values.find(name); at != values.end()) return at->second;
    }
    throw std::out_of_range(counter);
  }

  std::map<Oid, Answer> objects_;
};

}  // namespace Modules
