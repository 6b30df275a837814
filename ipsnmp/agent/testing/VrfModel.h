#pragma once
// For tests: a model that computes the expected contents of all VRFs' caches from plain copies of the records.

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
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
  std::shared_ptr<const std::string> vrf;  // the VRF of the layer-3 record that it refers to; null: refers to none

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

// The expected address tables. They depend on history in one case only: if one record holds an address with several
// prefix lengths, the length reported first is in force. So the model stamps each address of a record when it is
// reported:
//   - all of them, in ascending order, when the record's source, VRF, ifIndex or VRF cache changes;
//   - the remaining ones, when another length of the same address is removed;
//   - a new one, when it is added.
class AddressModel {
 public:
  using RecordId = std::pair<RecordKind, std::string>;
  std::map<RecordId, ModelRecord> records;
  std::map<std::string, std::uint32_t> ifIndex;  // of the interfaces that have a status record
  std::map<std::string, int> caches;  // by VRF: a number, which differs between a cache and its successor

  // Call it after each change of the members above.
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

struct ModelVrf {
  bool info = false, config = false, global = false, local = false, routing = false, routing6 = false;  // records
  bool routes = false;  // whether the IPv4 routing record is set to forward; the IPv6 one always is
  std::optional<unsigned> id;
};

// The expected caches of all VRFs. They depend on history in three cases: a VRF is created only by an event that
// examines it; it is removed when its local status is deleted; its interface rows are then absent until the interface
// or the VRF's row changes.
class VrfModel {
 public:
  std::map<std::string, ModelVrf> vrfs;
  std::set<std::tuple<unsigned, IpSnmp::InetAddress, std::string>> entries;  // id, address, interface
  bool isReady = false;
  AddressModel addresses;

  VrfModel() { addresses.caches["default"] = ++cacheCount_; }

  bool isMade(const std::string& vrf) const { return made_.contains(vrf); }

  // Events. Call them after changing the members above.
  void agentIsReady() {
    isReady = true;
    for (const auto& [name, vrf] : vrfs) examine(name);
  }
  // The VRF may have become complete.
  void examine(const std::string& name) {
    if (name != "default" && isComplete(name) && made_.insert(name).second) addresses.caches[name] = ++cacheCount_;
  }
  void somethingWent(const std::string& name) {
    if (!vrfs[name].local && !isComplete(name)) unmake(name);
  }
  void localWent(const std::string& name) {
    std::erase_if(ifRows_, [&](const auto& row) { return row.second.first == name; });
    unmake(name);
  }
  // The VRF's row in the VRF table was replaced.
  void rowCame(const std::string& name) {
    for (const auto& [intf, claim] : claims_) {
      if (claim.second == name) settle(claim.first);
    }
  }
  // Call it after each change.
  void settle() {
    std::set<std::string> intfs;
    for (const auto& [id, record] : addresses.records) intfs.insert(id.second);
    for (const auto& [intf, claim] : claims_) intfs.insert(intf);
    for (const auto& intf : intfs) {
      const auto before = claims_.contains(intf) ? std::optional(claims_[intf]) : std::nullopt;
      const auto now = claimOf(intf);
      if (now == before) continue;
      claims_.erase(intf);
      if (now) claims_[intf] = *now;
      if (before) settle(before->first);
      if (now) settle(now->first);
    }
    addresses.settle();
  }

  // The expected results of the helpers of TestVrfWorld.h.
  std::string neighboursOf(const std::string& vrf) const {
    if (vrf != "default" && !isMade(vrf)) return "no cache";
    const auto id = idOf(vrf);
    std::map<std::pair<unsigned, IpSnmp::InetAddress>, std::string> rows;
    for (const auto& [entryId, addr, intf] : entries) {
      const auto ifIndex = ifIndexOf(intf);
      if (!id || entryId != *id || ifIndex == 0) continue;
      auto& owner = rows[{ifIndex, addr}];
      if (owner.empty() || intf < owner) owner = intf;
    }
    std::string text;
    for (const auto& [key, intf] : rows) {
      text += fmt::format("{} {} {}@{};", key.first, keyText(key.second), intf, *id);
    }
    return text;
  }
  std::string vrfIfs() const {
    std::string text;
    for (const auto& [ifIndex, row] : ifRows_) text += fmt::format("{} {} {};", ifIndex, row.first, row.second);
    return text;
  }
  // The VRF table as lines: "red 10 config global;". The digits are IPv4 and IPv6 routing.
  std::set<std::string> vrfRows() const {
    std::set<std::string> rows;
    for (const auto& [name, vrf] : vrfs) {
      if (!vrf.local) continue;
      rows.insert(fmt::format("{} {:d}{:d}{}{};", name, vrf.routing && vrf.routes, vrf.routing6,
                              vrf.config ? " config" : "", vrf.global ? " global" : ""));
    }
    return rows;
  }

 private:
  using Claim = std::pair<unsigned, std::string>;  // ifIndex, VRF

  bool isComplete(const std::string& name) {
    const auto& vrf = vrfs[name];
    return isReady && vrf.info && vrf.routing && vrf.id;
  }
  void unmake(const std::string& name) {
    if (made_.erase(name) > 0) addresses.caches.erase(name);
  }
  std::optional<unsigned> publishedId(const std::string& vrf) const {
    const auto at = vrfs.find(vrf);
    const auto id = at == vrfs.end() || !isReady ? std::nullopt : at->second.id;
    return id || vrf != "default" ? id : std::optional(0u);
  }
  // The VRF's id in the neighbour table: the default VRF has the id that it claims; of several others that claim one
  // id, the lowest name has it.
  std::optional<unsigned> idOf(const std::string& vrf) const {
    const auto id = publishedId(vrf);
    if (!id || vrf == "default") return id;
    if (publishedId("default") == id) return std::nullopt;
    for (const auto& [name, other] : vrfs) {
      if (name < vrf && name != "default" && publishedId(name) == id) return std::nullopt;
    }
    return id;
  }
  unsigned ifIndexOf(const std::string& intf) const {
    const auto at = addresses.ifIndex.find(intf);
    return at == addresses.ifIndex.end() ? 0 : at->second;
  }
  std::optional<Claim> claimOf(const std::string& intf) const {
    if (ifIndexOf(intf) == 0) return std::nullopt;
    for (const auto kind : {config4, config6}) {
      const auto at = addresses.records.find({kind, intf});
      if (at == addresses.records.end() || !at->second.vrf || *at->second.vrf == "default") continue;
      return Claim(ifIndexOf(intf), *at->second.vrf);
    }
    return std::nullopt;
  }
  void settle(unsigned ifIndex) {
    ifRows_.erase(ifIndex);
    for (const auto& [intf, claim] : claims_) {
      if (claim.first == ifIndex) {
        ifRows_[ifIndex] = {claim.second, intf};
        return;
      }
    }
  }

  std::set<std::string> made_;
  int cacheCount_ = 0;
  std::map<std::string, Claim> claims_;
  std::map<unsigned, std::pair<std::string, std::string>> ifRows_;  // VRF and interface by ifIndex
};

}  // namespace IpSnmpTest
