#pragma once
// What the caches of all VRFs must hold, computed from plain copies of the records, for tests.
//
// History counts in three places: a VRF is made only by an event that examines it; it is unmade when its local status
// is deleted; its interface rows are then absent until the interface or the VRF's row changes.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>

#include "ipsnmp/agent/testing/AddressModel.h"

namespace IpSnmpTest {

struct ModelVrf {
  bool info = false, config = false, global = false, local = false, routing = false, routing6 = false;  // records
  bool routes = false;  // as the routing record says; that of IPv6 always does
  std::optional<unsigned> id;
};

class VrfModel {
 public:
  std::map<std::string, ModelVrf> vrfs;
  std::set<std::tuple<unsigned, IpSnmp::InetAddress, std::string>> entries;  // id, address, interface
  bool isReady = false;
  AddressModel addresses;

  VrfModel() { addresses.caches["default"] = ++cacheCount_; }

  bool isMade(const std::string& vrf) const { return made_.contains(vrf); }

  // Events, to be called after the records above were changed.
  void agentIsReady() {
    isReady = true;
    for (const auto& [name, vrf] : vrfs) examine(name);
  }
  // Something that may complete the VRF.
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
  // The VRF's row in the VRF table is another one.
  void rowCame(const std::string& name) {
    for (const auto& [intf, claim] : claims_) {
      if (claim.second == name) settle(claim.first);
    }
  }
  // To be called after each change.
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

  // As the helpers of TestVrfWorld.h print the tables.
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
  // By name: "red 10 config global;", the digits being IPv4 and IPv6 routing.
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
  // The default VRF has what it claims; of others that claim one id, the lowest name has it.
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
