#include "quillo/tables/ArpRecord.h"

#include <gmock/gmock.h>

#include <set>

#include "quillo/tables/VrfKey.h"
#include "quillo/testing/TestNeighbours.h"
#include "quillo/testing/TestStore.h"

namespace Arp::Table::Test {

using Quillo::encodeVrf;
using Quillo::TableId;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// Shows all of two keys that should be equal.
std::string text(const ArpKey& key) {
  std::ostringstream out;
  out << key;
  return out.str();
}

TEST(ArpRecord, orderOfKeysIsThatOfTheirBytes) {
  RandomNeighbours random(3);
  std::set<ArpKey> keys;
  while (keys.size() < 600) keys.insert(random.key());
  std::string previous;
  const ArpKey* before = nullptr;
  for (const auto& key : keys) {
    const auto bytes = encodeKey(key);
    ArpKey again;
    ASSERT_EQ(nullptr, decodeKey(*tableOf(key.addr), bytes, again));
    EXPECT_EQ(key, again) << text(key) << " " << text(again);
    EXPECT_THAT(bytes, StartsWith(encodeVrf(key.vrfId)));
    // Each family has a table of its own: only there do keys meet.
    if (before && before->vrfId == key.vrfId && before->addr.af() == key.addr.af()) {
      EXPECT_LT(previous, bytes) << text(*before) << " before " << text(key);
    }
    if (before && before->vrfId != key.vrfId) {
      EXPECT_LT(encodeVrf(before->vrfId), encodeVrf(key.vrfId));
    }
    previous = bytes;
    before = &key;
    const auto entry = random.entry(key);
    ArpEntry back{key, {}, {}};
    ASSERT_EQ(nullptr, decodeValue(encodeValue(entry), back));
    EXPECT_EQ(entry, back);
  }
}

// The example of the page on the format.
TEST(ArpRecord, bytesAreThoseOfTheFormat) {
  const ArpEntry entry{{VrfId(258), Vantu::IpAddr(0x0a000001), Vantu::IntfId("red/eth0")},
                       Vantu::EthAddr::fromString("02:00:00:00:00:0a"),
                       {true}};
  EXPECT_EQ(std::string("\x00\x01\x02\x0a\x00\x00\x01red/eth0", 15), encodeKey(entry.key));
  EXPECT_EQ(std::string("\x02\x00\x00\x00\x00\x0a\x01", 7), encodeValue(entry));
}

TEST(ArpRecord, malformedBytesAreNoRecord) {
  const ArpKey untouched{VrfId(7), {}, Vantu::IntfId("x")};
  const auto fault = [&](TableId table, const std::string& bytes) -> std::string {
    ArpKey key = untouched;
    const char* what = decodeKey(table, bytes, key);
    EXPECT_EQ(what == nullptr, key != untouched);
    return what ? what : "";
  };
  const std::string vrf(3, '\1');
  EXPECT_EQ("key too short", fault(TableId::arp, ""));
  EXPECT_EQ("key too short", fault(TableId::arp, vrf + "addr"));
  EXPECT_EQ("", fault(TableId::arp, vrf + "addr\xff"));
  EXPECT_EQ("key too short", fault(TableId::neighbor, vrf + std::string(16, 'a')));
  EXPECT_EQ("", fault(TableId::neighbor, vrf + std::string(17, 'a')));
  EXPECT_EQ("", fault(TableId::arp, vrf + "addr" + std::string(255, 'n')));
  EXPECT_EQ("key too long", fault(TableId::arp, vrf + "addr" + std::string(256, 'n')));
  EXPECT_EQ("key of an unknown VRF", fault(TableId::arp,
                                           "\xff\xff\xff"
                                           "addrx"));

  ArpEntry entry;
  EXPECT_STREQ("value of a wrong length", decodeValue(std::string(6, '\0'), entry));
  EXPECT_STREQ("value of a wrong length", decodeValue(std::string(8, '\0'), entry));
  EXPECT_STREQ("unknown flags in the value", decodeValue(std::string("\0\0\0\0\0\0\3", 7), entry));
}

struct ArpBatch : Quillo::Test::TestStore {};

TEST_F(ArpBatch, whatHasNoPlaceIsRefusedAndTheRestStays) {
  Quillo::Publisher publisher(config());
  auto batch = publisher.begin();
  const ArpKey good{VrfId(0), Vantu::IpAddr(1), Vantu::IntfId("eth0")};
  entryIs(batch, {good, {}, {}});
  const auto refused = [&](const ArpKey& key) -> std::string {
    EXPECT_THROW(entryDel(batch, key), Kel::RangeException);
    try {
      entryIs(batch, {key, {}, {}});
    } catch (const Kel::RangeException& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_THAT(refused({VrfId(0), {}, good.intfId}), HasSubstr("without an address"));
  EXPECT_THAT(refused({VrfId(0), good.addr, {}}), HasSubstr("without an interface"));
  EXPECT_THAT(refused({VrfId(), good.addr, good.intfId}), HasSubstr("VRF id 16777215"));
  EXPECT_THAT(refused({VrfId(0x1000000), good.addr, good.intfId}), HasSubstr("VRF id 16777216"));
  EXPECT_EQ(1U, batch.commit().changes);
  EXPECT_TRUE(publisher.get(TableId::arp, encodeKey(good)));
  auto again = publisher.begin();
  entryDel(again, good);
  EXPECT_EQ(1U, again.commit().changes);
  EXPECT_FALSE(publisher.get(TableId::arp, encodeKey(good)));
}

}  // namespace Arp::Table::Test
