#pragma once
// What the caches of all VRFs must hold, worked out from plain copies of the records, for tests.
//
// History counts in three places: a VRF is made only by an event that looks at it, it is unmade when its local status
// goes, and then its interface rows are away until the interface or the VRF comes anew.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>

#include "ipsnmp/agent/testing/AddressModel.h"

namespace IpSnmpTest {

struct ModelVrf {
  bool info = false, config = false, global = false, local = false;
  std::optional<bool> routing, routing6;  // whether it routes; empty: no record
  std::optional<unsigned> id;
};

struct ModelIntf {
  std::optional<unsigned> ifIndex;  // empty: no status record
  std::optional<std::string> vrf4, vrf6;
};

class VrfModel {
 public:
  std::map<std::string, ModelVrf> vrfs;
  std::map<std::string, ModelIntf> intfs;
  std::set<std::tuple<unsigned, IpSnmp::InetAddress, std::string>> entries;  // id, address, interface
  bool isReady = false;
  AddressModel addresses;

  VrfModel() { addresses.caches["default"] = ++cacheCount_; }

  bool isMade(const std::string& vrf) const { return made_.contains(vrf); }

  // Events. Each is told after the records above were changed.
  void agentIsReady() {
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
  void intfChanged(const std::string& name) {
    const auto before = claims_.contains(name) ? std::optional(claims_[name]) : std::nullopt;
    const auto now = claimOf(name);
    if (now == before) return;
    claims_.erase(name);
    if (now) claims_[name] = *now;
    if (before) settle(before->first);
    if (now) settle(now->first);
  }

  // As the helpers of TestVrfWorld.h print the tables.
  std::string neighboursOf(const std::string& vrf) const {
    if (vrf != "default" && !isMade(vrf)) return "no cache";
    const auto id = idOf(vrf);
    std::map<std::pair<unsigned, IpSnmp::InetAddress>, std::string> rows;
    for (const auto& [entryId, addr, intf] : entries) {
      const auto at = intfs.find(intf);
      if (!id || entryId != *id || at == intfs.end() || at->second.ifIndex.value_or(0) == 0) continue;
      auto& owner = rows[{*at->second.ifIndex, addr}];
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
      rows.insert(fmt::format("{} {:d}{:d}{}{};", name, vrf.routing.value_or(false), vrf.routing6.value_or(false),
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
  std::optional<Claim> claimOf(const std::string& name) const {
    const auto& intf = intfs.at(name);
    if (intf.ifIndex.value_or(0) == 0) return std::nullopt;
    for (const auto& vrf : {intf.vrf4, intf.vrf6}) {
      if (vrf && *vrf != "default") return Claim(*intf.ifIndex, *vrf);
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
