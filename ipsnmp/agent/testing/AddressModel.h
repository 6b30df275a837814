#pragma once
// What the address tables must hold, computed from plain copies of the records, for tests.
//
// History counts in one place only: of several prefix lengths of one address that one record holds, the one reported
// first is in force. So the model stamps each address of a record when it is reported:
//   - all of them, in ascending order, when the record's source, VRF, ifIndex or VRF cache changes;
//   - the remaining ones, when another length of the same address is removed;
//   - a new one, when it is added.

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
  friend auto operator<=>(const ModelAddr&, const ModelAddr&) = default;
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
    std::erase_if(reported_, [&](const auto& at) { return !records.contains(at.first); });
    for (const auto& [id, record] : records) report(reported_[id], circumstances(id, record), record.present());
  }

  // In the form of tables().
  TableLines tables(const std::string& vrf) const {
    // By address and pair: the ifIndex and the prefix length in force.
    std::map<IpSnmp::InetAddress, std::map<std::pair<int, std::string>, std::pair<std::int64_t, unsigned>>> all;
    for (const auto& [id, reported] : reported_) {
      const auto& [source, inVrf, index, cache] = reported.under;
      if (inVrf != vrf || index < 1 || cache == 0) continue;
      std::map<IpSnmp::InetAddress, std::pair<Stamp, unsigned>> inForce;
      for (const auto& [addr, stamp] : reported.stamps) {
        auto& first = inForce.try_emplace(addr.addr, stamp, addr.length).first->second;
        first = std::min(first, {stamp, addr.length});
      }
      for (const auto& [addr, chosen] : inForce) all[addr][{source, id.second}] = {index, chosen.second};
    }
    TableLines lines;
    for (const auto& [addr, pairs] : all) {
      auto entry = keyText(addr) + (pairs.begin()->first.first == 1 ? " config:" : " preferred:");
      for (const auto& [key, held] : pairs) {
        entry += fmt::format(" {}/{}={}/{}", key.first, key.second, held.first, held.second);
      }
      lines.insert(entry);
      const auto& [index, length] = pairs.begin()->second;
      const bool isV4 = addr.version() == Ip::ipVersion4;
      const auto text = fmt::format("{}/{}", keyText(addr), length);
      const auto network = isV4 ? mask4(text).prefix().stringValue() : mask6(text).prefix().stringValue();
      lines.insert(fmt::format("prefix {} {}/{}", index, network, length));
      const auto netMask = Vantu::IpAddr::netmask(isV4 ? length : 0).stringValue();
      if (isV4) lines.insert(fmt::format("row {} {} {}", keyText(addr), index, netMask));
    }
    return lines;
  }

 private:
  using Stamp = std::pair<long, int>;
  using Under = std::tuple<int, std::string, std::int64_t, int>;  // source, VRF, ifIndex, cache
  struct Reported {
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

  void report(Reported& reported, const Under& under, const std::set<ModelAddr>& present) {
    if (reported.under != under) reported = {under, {}};
    std::set<IpSnmp::InetAddress> disturbed;
    for (const auto& [addr, stamp] : reported.stamps) {
      if (!present.contains(addr)) disturbed.insert(addr.addr);
    }
    std::erase_if(reported.stamps, [&](const auto& at) { return !present.contains(at.first); });
    int order = 0;
    for (auto& [addr, stamp] : reported.stamps) {
      if (disturbed.contains(addr.addr)) stamp = {now_, order++};
    }
    for (const auto& addr : present) reported.stamps.try_emplace(addr, now_, order++);
  }

  std::map<RecordId, Reported> reported_;
  long now_ = 0;
};

}  // namespace IpSnmpTest
