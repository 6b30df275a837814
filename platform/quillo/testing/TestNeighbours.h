#pragma once
// For the tests of the neighbour tables: keys and entries at random, from few enough values that they meet again.

#include <random>
#include <vector>

#include "quillo/tables/ArpTable.h"

namespace Arp::Table::Test {

using Vrf::VrfIdMap::VrfId;

class RandomNeighbours {
 public:
  explicit RandomNeighbours(unsigned seed) : random_(seed) {}

  unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }
  bool oneIn(unsigned n) { return below(n) == 0; }

  // The ids around the boundaries of their bytes; what lies between them is in nobody's range.
  static const std::vector<VrfId>& vrfIds() {
    static const std::vector<VrfId> ids{VrfId(0),        VrfId(1),       VrfId(2),       VrfId(255),
                                        VrfId(256),      VrfId(65535),   VrfId(0x10000), VrfId(0x10001),
                                        VrfId(0xffff00), VrfId(0xfffffe)};
    return ids;
  }

  ArpKey key() {
    static const std::vector<std::string> names{
        "a", "b", "ab", "a/b", "\xff", "\x01", std::string("a\0", 2), std::string(255, 'n')};
    ArpKey key{vrfIds()[below(static_cast<unsigned>(vrfIds().size()))], {}, Vantu::IntfId(names[below(8)])};
    const auto byte = [&] { return static_cast<std::uint8_t>(std::array{0, 1, 0x7f, 0x80, 0xff}[below(5)]); };
    if (oneIn(2)) {
      key.addr = Vantu::IpAddr(std::uint32_t{byte()} << 24 | byte());
    } else {
      Vantu::Ip6Addr::Bytes bytes{};
      bytes.front() = byte();
      bytes.back() = byte();
      key.addr = Vantu::Ip6Addr(bytes);
    }
    return key;
  }

  ArpEntry entry(const ArpKey& key) {
    Vantu::EthAddr::Bytes mac{};
    mac.front() = static_cast<std::uint8_t>(below(3));
    mac.back() = static_cast<std::uint8_t>(0xff - below(3));
    return {key, Vantu::EthAddr(mac), {oneIn(2)}};
  }

 private:
  std::mt19937 random_;
};

}  // namespace Arp::Table::Test
