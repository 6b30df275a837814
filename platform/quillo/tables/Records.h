#pragma once
// The records of neighbours, routes and FECs (docs/store-format.md).
//
// A publisher writes them in batches, each with everything that must take effect together. Batches of some ten
// thousand records limit its memory and cost little more than a single batch:
//
//   auto batch = publisher.begin();
//   Quillo::fecIs(batch, vrfId, fec);
//   Quillo::routeIs(batch, vrfId, route);
//   Quillo::routeDel(batch, vrfId, otherPrefix);
//   Arp::Table::entryIs(batch, {{vrfId, address, intfId}, mac, {.isStatic = true}});
//   batch.commit();

#include "quillo/tables/ArpTable.h"
#include "quillo/tables/FibTables.h"
#include "quillo/tables/RecordFields.h"

namespace Quillo {

// The ARP table (IPv4) and the neighbour table (IPv6). Keys are in the order of ArpKey.
template <Vantu::Af family>
struct ArpRecord {
  static constexpr TableId table = family == Vantu::ipv4_ ? TableId::arp : TableId::neighbor;
  using Key = Arp::Table::ArpKey;
  using Entry = Arp::Table::ArpEntry;

  static void keyFields(auto& fields, auto& key) {
    fields.vrfId(key.vrfId);
    fields.address(key.addr, family);
    fields.lastInterface(key.intfId);
    fields.end("key too short", "key too long");
  }
  static void valueFields(auto& fields, auto& entry) {
    fields.raw(entry.ethAddr);
    fields.flags(Flag{entry.status.isStatic});
    fields.end("value of a wrong length");
  }
  static void setKey(Entry& entry, const Key& key) { entry.key = key; }
};

// `PrefixType` is Vantu::Prefix or Vantu::Ip6Prefix. The FEC belongs to the VRF, or in unified mode to the default VRF;
// 0 means none.
template <class PrefixType>
struct RouteRecord {
  static constexpr TableId table = std::is_same_v<PrefixType, Vantu::Prefix> ? TableId::route : TableId::route6;
  struct Key {
    VrfId vrfId;
    PrefixType prefix;
    bool operator==(const Key&) const = default;
  };
  using Entry = BasicRoute<PrefixType>;

  static void keyFields(auto& fields, auto& key) {
    fields.vrfId(key.vrfId);
    fields.prefix(key.prefix);
    fields.end("key of a wrong length");
  }
  static void valueFields(auto& fields, auto& route) {
    fields.number(route.routeType);
    fields.require(route.routeType.value() != 0, "route without a type");
    fields.number(route.routePreference);
    fields.number(route.metric);
    fields.number(route.fecId);
    fields.flags(Flag{route.isPersistent, false}, Flag{route.isNexthopGroup});
    fields.choice(route.action, Routing::Fib::RouteAction::prohibit, "route with an unknown action");
    fields.end("value of a wrong length");
  }
  static void setKey(Entry& route, const Key& key) { route.prefix = key.prefix; }
};

// The position of a via in the value is its ViaIndex. In unified mode all FECs belong to the default VRF.
struct FecRecord {
  static constexpr TableId table = TableId::fec;
  struct Key {
    VrfId vrfId;
    Fib::FecId fecId;
    bool operator==(const Key&) const = default;
  };
  using Entry = Fib::Fec;

  static void keyFields(auto& fields, auto& key) {
    fields.vrfId(key.vrfId);
    fields.id(key.fecId);
    fields.require(key.fecId != Fib::FecId(), "FEC id 0");
    fields.end("key of a wrong length");
  }
  static void valueFields(auto& fields, auto& fec) {
    fields.list(fec.via, Fib::Fec::maxVias, "too many vias", [&](auto& via) {
      fields.anyAddress(via.hop, "via of an unknown address family");
      fields.interface(via.intfId);
    });
    fields.end("value too short", "bytes behind the last via");
  }
  static void setKey(Entry& fec, const Key& key) { fec.fecId = key.fecId; }
};

// Add or replace a record, and delete it if it exists. Throw as put() and del().
template <class PrefixType>
void routeIs(Batch& batch, const VrfId& vrfId, const BasicRoute<PrefixType>& route) {
  put<RouteRecord<PrefixType>>(batch, {vrfId, route.prefix}, route);
}
template <class PrefixType>
void routeDel(Batch& batch, const VrfId& vrfId, const PrefixType& prefix) {
  del<RouteRecord<PrefixType>>(batch, {vrfId, prefix});
}
inline void fecIs(Batch& batch, const VrfId& vrfId, const Fib::Fec& fec) {
  put<FecRecord>(batch, {vrfId, fec.fecId}, fec);
}
inline void fecDel(Batch& batch, const VrfId& vrfId, const Fib::FecId& fecId) {
  del<FecRecord>(batch, {vrfId, fecId});
}

}  // namespace Quillo

namespace Arp::Table {

// The same, in the table of the address's family.
inline void entryIs(Quillo::Batch& batch, const ArpEntry& entry) {
  const bool isIpv6 = entry.addr().af() == Vantu::ipv6_;
  (isIpv6 ? Quillo::put<Quillo::ArpRecord<Vantu::ipv6_>>
          : Quillo::put<Quillo::ArpRecord<Vantu::ipv4_>>)(batch, entry.key, entry);
}
inline void entryDel(Quillo::Batch& batch, const ArpKey& key) {
  const bool isIpv6 = key.addr.af() == Vantu::ipv6_;
  (isIpv6 ? Quillo::del<Quillo::ArpRecord<Vantu::ipv6_>> : Quillo::del<Quillo::ArpRecord<Vantu::ipv4_>>)(batch,
                                                                                                         key);
}

}  // namespace Arp::Table
