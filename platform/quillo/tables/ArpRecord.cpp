#include "quillo/tables/ArpRecord.h"

#include "quillo/tables/VrfKey.h"

namespace Arp::Table {
namespace {

using Quillo::asNumbers;
using Quillo::Bytes;
using Quillo::TableId;
using Vrf::VrfIdMap::VrfId;

using Quillo::vrfKeyBytes;
constexpr std::size_t macBytes = 6;
constexpr std::uint8_t staticFlag = 1;

TableId checkedTable(const ArpKey& key) {
  const auto table = tableOf(key.addr);
  if (!table) throw Kel::RangeException("a neighbour without an address has no place in the store");
  return *table;
}

}  // namespace

std::optional<TableId> tableOf(const Vantu::IpGenAddr& addr) {
  if (addr.af() == Vantu::ipv4_) return TableId::arp;
  if (addr.af() == Vantu::ipv6_) return TableId::neighbor;
  return std::nullopt;
}

bool isStorable(const ArpKey& key) {
  return Quillo::isStorable(key.vrfId) && key.addr.isSet() && key.intfId.isValid();
}

std::string encodeKey(const ArpKey& key) {
  checkedTable(key);
  if (!key.intfId.isValid())
    throw Kel::RangeException("a neighbour without an interface has no place in the store");
  return encodeAddress(key.vrfId, key.addr) + key.intfId.text();
}

std::string encodeAddress(const VrfId& vrfId, const Vantu::IpGenAddr& addr) {
  auto bytes = Quillo::encodeVrf(vrfId);
  if (addr.af() == Vantu::ipv4_) Quillo::appendBytes(bytes, addr.v4());
  if (addr.af() == Vantu::ipv6_) Quillo::appendBytes(bytes, addr.v6());
  return bytes;
}

std::string encodeValue(const ArpEntry& entry) {
  std::string bytes;
  Quillo::appendBytes(bytes, entry.ethAddr);
  bytes.push_back(static_cast<char>(entry.status.isStatic ? staticFlag : 0));
  return bytes;
}

const char* decodeKey(TableId table, Bytes bytes, ArpKey& key) {
  const bool isIpv4 = table == TableId::arp;
  const std::size_t addressBytes = isIpv4 ? 4 : 16;
  if (bytes.size() <= vrfKeyBytes + addressBytes) return "key too short";
  const auto intfId = bytes.substr(vrfKeyBytes + addressBytes);
  if (intfId.size() > Vantu::IntfId::maxLength) return "key too long";
  const auto vrfId = Quillo::decodeVrf(bytes);
  if (!vrfId.isKnown()) return "key of an unknown VRF";
  const auto address = asNumbers(bytes.substr(vrfKeyBytes, addressBytes));
  key.vrfId = vrfId;
  if (isIpv4) {
    key.addr = Vantu::IpAddr::fromBytes(address);
  } else {
    key.addr = Vantu::Ip6Addr::fromBytes(address);
  }
  key.intfId = Vantu::IntfId(intfId);
  return nullptr;
}

const char* decodeValue(Bytes bytes, ArpEntry& entry) {
  if (bytes.size() != macBytes + 1) return "value of a wrong length";
  const auto flags = static_cast<std::uint8_t>(bytes[macBytes]);
  if ((flags & ~staticFlag) != 0) return "unknown flags in the value";
  entry.ethAddr = Vantu::EthAddr::fromBytes(asNumbers(bytes.substr(0, macBytes)));
  entry.status.isStatic = (flags & staticFlag) != 0;
  return nullptr;
}

void entryIs(Quillo::Batch& batch, const ArpEntry& entry) {
  batch.put(checkedTable(entry.key), encodeKey(entry.key), encodeValue(entry));
}

void entryDel(Quillo::Batch& batch, const ArpKey& key) {
  batch.del(checkedTable(key), encodeKey(key));
}

}  // namespace Arp::Table
