#pragma once
// What the address tables must hold, worked out from scratch from plain copies of the records, for tests.
//
// History counts in one place only: of several prefix lengths of one address that one record holds, the one told
// first is in force. So the model stamps each address of a record when it is told:
//   - all of them, in ascending order, when the record's source, VRF, ifIndex or VRF cache becomes another;
//   - those that remain, when another length of the same address goes;
//   - a new one, when it comes.

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>

#include "ipsnmp/agent/testing/TestWorld.h"

namespace IpSnmpTest {

enum RecordKind { config4, status4, config6, status6, recordKinds };

struct ModelAddr {
  IpSnmp::InetAddress addr;
  unsigned length = 0;
  std::string text;  // "10.1.1.1/24"
  friend bool operator==(const ModelAddr& a, const ModelAddr& b) {
    return a.addr == b.addr && a.length == b.length;
  }
  friend auto operator<=>(const ModelAddr& a, const ModelAddr& b) {
    return std::tie(a.addr, a.length) <=> std::tie(b.addr, b.length);
  }
};

struct ModelRecord {
  ModelAddr primary;  // length 0 and no address: none
  std::set<ModelAddr> others;
  bool borrowed = false;
  std::shared_ptr<const std::string> vrf;  // what the layer-3 record says that it refers to; null: refers to none

  std::set<ModelAddr> present() const {
    auto all = others;
    all.insert(primary);
    std::erase_if(all, [](const ModelAddr& at) {
      const auto octets = at.addr.bytes().octets();
      return std::all_of(octets.begin(), octets.end(), [](auto octet) { return octet == 0; });
    });
    return all;
  }
};

class AddressModel {
 public:
  using RecordId = std::pair<RecordKind, std::string>;
  std::map<RecordId, ModelRecord> records;
  std::map<std::string, std::uint32_t> ifIndex;  // of the interfaces that have a status record
  std::map<std::string, int> caches;             // by VRF, with a number that tells one from its successor

  // To be called after each change of the above.
  void settle() {
    ++now_;
    std::erase_if(told_, [&](const auto& at) { return !records.contains(at.first); });
    for (const auto& [id, record] : records) tell(told_[id], circumstances(id, record), record.present());
  }
  void everythingIsToldAgain() { told_.clear(); }

  // In the form of tables().
  std::string tables(const std::string& vrf) const {
    std::map<IpSnmp::InetAddress, std::map<std::pair<int, std::string>, std::pair<std::uint32_t, ModelAddr>>> all;
    for (const auto& [id, told] : told_) {
      const auto& [source, inVrf, index, cache] = told.under;
      if (inVrf != vrf || index < 1 || cache == 0) continue;
      std::map<IpSnmp::InetAddress, std::pair<Stamp, ModelAddr>> inForce;
      for (const auto& [addr, stamp] : told.stamps) {
        const auto at = inForce.find(addr.addr);
        if (at == inForce.end() || stamp < at->second.first)
          inForce.insert_or_assign(addr.addr, std::pair(stamp, addr));
      }
      for (const auto& [addr, chosen] : inForce) all[addr][{source, id.second}] = {index, chosen.second};
    }
    return print(all);
  }

 private:
  using Stamp = std::pair<long, int>;
  using Under = std::tuple<int, std::string, std::int64_t, int>;  // source, VRF, ifIndex, cache
  struct Told {
    Under under;
    std::map<ModelAddr, Stamp> stamps;
  };

  Under circumstances(const RecordId& id, const ModelRecord& record) const {
    const int source = id.first == config4 || id.first == config6 ? 1 : record.borrowed ? 2 : 0;
    const auto vrf = record.vrf ? *record.vrf : std::string("default");
    const auto index = ifIndex.find(id.second);
    const auto cache = caches.find(vrf);
    return {source, vrf, index == ifIndex.end() ? -1 : std::int64_t{index->second},
            cache == caches.end() ? 0 : cache->second};
  }

  void tell(Told& told, const Under& under, const std::set<ModelAddr>& present) {
    if (told.under != under) told = {under, {}};
    std::set<IpSnmp::InetAddress> disturbed;
    for (const auto& [addr, stamp] : told.stamps) {
      if (!present.contains(addr)) disturbed.insert(addr.addr);
    }
    std::erase_if(told.stamps, [&](const auto& at) { return !present.contains(at.first); });
    int order = 0;
    for (auto& [addr, stamp] : told.stamps) {
      if (disturbed.contains(addr.addr)) stamp = {now_, order++};
    }
    for (const auto& addr : present) told.stamps.try_emplace(addr, now_, order++);
  }

  static std::string print(const auto& all) {
    std::string entries;
    std::string rows;
    std::set<std::tuple<std::int64_t, IpSnmp::InetAddress, unsigned, std::string>> prefixes;
    for (const auto& [addr, pairs] : all) {
      entries += keyText(addr) + (pairs.begin()->first.first == 1 ? " config:" : " preferred:");
      for (const auto& [key, held] : pairs) {
        entries += fmt::format(" {}/{}={}/{}", key.first, key.second, held.first, held.second.length);
      }
      entries += "\n";
      const auto& [index, speaker] = pairs.begin()->second;
      prefixes.insert(prefix(index, speaker));
      if (addr.version() == Ip::ipVersion4) {
        const std::uint32_t netMask = speaker.length == 0 ? 0 : 0xFFFFFFFFu << (32 - speaker.length);
        rows += fmt::format("row {} {} {}\n", keyText(addr), index, Vantu::IpAddr(netMask).stringValue());
      }
    }
    for (const auto& [index, addr, length, text] : prefixes) rows += text;
    return entries + rows;
  }

  static std::tuple<std::int64_t, IpSnmp::InetAddress, unsigned, std::string> prefix(std::uint32_t index,
                                                                                     const ModelAddr& held) {
    auto bytes = held.addr.bytes().raw();
    for (unsigned bit = held.length; bit < bytes.size() * 8; ++bit) {
      bytes[bit / 8] = static_cast<char>(bytes[bit / 8] & ~(0x80 >> (bit % 8)));
    }
    const IpSnmp::InetAddress addr(held.addr.version(), Snmp::String(bytes));
    return {index, addr, held.length, fmt::format("prefix {} {}/{}\n", index, keyText(addr), held.length)};
  }

  std::map<RecordId, Told> told_;
  long now_ = 0;
};

}  // namespace IpSnmpTest
