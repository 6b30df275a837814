#include "quillo/tables/FecRecord.h"

#include <fmt/format.h>
#include <xxhash.h>

#include <algorithm>
#include <cstring>
#include <tuple>

#include "quillo/tables/VrfKey.h"

namespace Quillo {
namespace {

using Fib::Fec;
using Fib::FecId;
using Vrf::VrfIdMap::VrfId;

constexpr std::size_t countBytes = 2;
constexpr char isIpv4 = 4;
constexpr char isIpv6 = 6;

void append(std::string& out, const Fib::Via& via) {
  if (!via.hop.isSet()) throw Kel::RangeException("a via without an address has no place in the store");
  if (via.hop.af() == Vantu::ipv4_) {
    out.push_back(isIpv4);
    appendBytes(out, via.hop.v4());
  } else {
    out.push_back(isIpv6);
    appendBytes(out, via.hop.v6());
  }
  out.push_back(static_cast<char>(via.intfId.text().size()));
  out.append(via.intfId.text());
}

// Decodes the via at the front of `bytes` and removes it from there.
const char* take(Bytes& bytes, Fib::Via& via) {
  if (bytes.empty()) return "value too short";
  const char family = bytes.front();
  if (family != isIpv4 && family != isIpv6) return "via of an unknown address family";
  const std::size_t addressBytes = family == isIpv4 ? 4 : 16;
  const std::size_t intfAt = 1 + addressBytes + 1;
  if (bytes.size() < intfAt) return "value too short";
  const std::size_t intfBytes = static_cast<std::uint8_t>(bytes[intfAt - 1]);
  if (bytes.size() < intfAt + intfBytes) return "value too short";
  const auto address = asNumbers(bytes.substr(1, addressBytes));
  if (family == isIpv4) {
    via.hop = Vantu::IpAddr::fromBytes(address);
  } else {
    via.hop = Vantu::Ip6Addr::fromBytes(address);
  }
  const auto intfId = bytes.substr(intfAt, intfBytes);
  if (via.intfId.text() != intfId) via.intfId = Vantu::IntfId(intfId);
  bytes.remove_prefix(intfAt + intfBytes);
  return nullptr;
}

const char* takeAll(Bytes bytes, std::vector<Fib::Via>& vias) {
  if (bytes.size() < countBytes) return "value too short";
  std::uint16_t count = 0;
  std::memcpy(&count, bytes.data(), countBytes);
  if (count > Fec::maxVias) return "too many vias";
  bytes.remove_prefix(countBytes);
  vias.resize(count);
  for (auto& via : vias) {
    if (const auto* what = take(bytes, via)) return what;
  }
  return bytes.empty() ? nullptr : "bytes behind the last via";
}

}  // namespace

std::string encodeFecKey(const VrfId& vrfId, const FecId& fecId) {
  if (fecId == FecId()) throw Kel::RangeException("FEC id 0 stands for none and has no place in the store");
  auto key = encodeVrf(vrfId);
  for (int shift = 56; shift >= 0; shift -= 8) key.push_back(static_cast<char>(fecId.value() >> shift & 0xff));
  return key;
}

std::string encodeFec(const Fec& fec) {
  if (fec.via.size() > Fec::maxVias) {
    throw Kel::RangeException(
        fmt::format("FEC {} has {} vias; at most {} are allowed", fec.fecId.value(), fec.via.size(), Fec::maxVias));
  }
  std::string value(countBytes, '\0');
  const auto count = static_cast<std::uint16_t>(fec.via.size());
  std::memcpy(value.data(), &count, countBytes);
  for (const auto& via : fec.via) append(value, via);
  return value;
}

const char* decodeFecKey(Bytes bytes, VrfId& vrfId, FecId& fecId) {
  if (bytes.size() != vrfKeyBytes + sizeof(std::uint64_t)) return "key of a wrong length";
  const auto vrf = decodeVrf(bytes);
  if (!vrf.isKnown()) return "key of an unknown VRF";
  std::uint64_t id = 0;
  for (const auto byte : asNumbers(bytes.substr(vrfKeyBytes))) id = id << 8 | byte;
  if (id == 0) return "FEC id 0";
  vrfId = vrf;
  fecId = FecId(id);
  return nullptr;
}

const char* decodeFec(Bytes bytes, Fec& fec) {
  const auto* what = takeAll(bytes, fec.via);
  if (what) fec.via.clear();
  return what;
}

void sortVias(std::vector<Fib::Via>& vias) {
  std::sort(vias.begin(), vias.end(),
            [](const auto& a, const auto& b) { return std::tie(a.hop, a.intfId) < std::tie(b.hop, b.intfId); });
  vias.erase(std::unique(vias.begin(), vias.end()), vias.end());
}

FecId fecIdOf(const std::vector<Fib::Via>& vias) {
  const std::string bytes = encodeFec({FecId(1), vias});
  const FecId id(XXH3_64bits(bytes.data(), bytes.size()));
  return id == FecId() ? FecId(1) : id;  // 0 means none
}

void fecIs(Batch& batch, const VrfId& vrfId, const Fec& fec) {
  batch.put(TableId::fec, encodeFecKey(vrfId, fec.fecId), encodeFec(fec));
}

void fecDel(Batch& batch, const VrfId& vrfId, const FecId& fecId) {
  batch.del(TableId::fec, encodeFecKey(vrfId, fecId));
}

}  // namespace Quillo
