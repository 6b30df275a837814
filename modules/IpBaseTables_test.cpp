// The tables of addresses and neighbours as a manager sees them, beside ipAddrTable.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "modules/IpBase.h"
#include "modules/testing/TestReference.h"
#include "modules/testing/TestTableTraces.h"
#include "snmp/Contexts.h"

namespace {

using namespace Modules;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const std::string ipMibIp = "1.3.6.1.2.1.4";
const char* const tables[] = {"20", "22", "32", "34", "35"};

std::string cell(const char* table, unsigned column, const std::string& index) {
  return ipMibIp + "." + table + ".1." + std::to_string(column) + "." + index;
}

class IpBaseTables : public ::testing::Test {
 protected:
  IpBaseTables() { contexts.enter(""); }

  std::string value(const char* table, unsigned column, const std::string& index) {
    return agent.get(cell(table, column, index)).value;
  }
  std::string next(const char* table, unsigned column, const std::string& index) {
    return agent.getNext(cell(table, column, index)).name;
  }
  void expectWalks() {
    for (const char* table : tables) {
      const std::string root = ipMibIp + "." + table;
      EXPECT_EQ(agent.walk(root), rows.reference.below(root)) << table;
    }
  }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  TestIpRows rows{tree.ipMib};
  Snmp::Contexts contexts;
};

TEST_F(IpBaseTables, anAddressWithItsPrefix) {
  rows.addressIs("10.1.2.3", 16, 5);
  const auto prefix = agent.get(cell("34", 5, "1.4.10.1.2.3"));
  EXPECT_EQ(prefix.type, ASN_OBJECT_ID);
  EXPECT_EQ(prefix.value, "1.3.6.1.2.1.4.32.1.5.5.1.4.10.1.0.0.16");
  EXPECT_EQ(agent.get(prefix.value).value, "1") << "the pointer leads to a row";
  expectWalks();
  rows.addressIs("2001:db8::1", 64, 5);
  rows.addressIs("10.1.2.4", 32, 0xFFFFFFFF, IpSnmp::addressSourceConfig);
  rows.addressIs("0.0.0.0", 0, 0);
  rows.addressIs("fe80::1", 128, 0x80000000);
  expectWalks();
  const auto entry = tree.ipMib->ipAddressTableIs(TestIpRows::inetAddress("10.1.2.3"));
  entry->intfDelAll();
  entry->intfIs({IpSnmp::IntfDataKey(IpSnmp::addressSourceStatus, Vantu::IntfId("eth0")), nullptr});
  EXPECT_EQ(value("34", 5, "1.4.10.1.2.3"), "0.0") << "no prefix";
  EXPECT_EQ(value("34", 3, "1.4.10.1.2.3"), "0");
}

TEST_F(IpBaseTables, neighboursOfBothFamilies) {
  rows.neighbourIs(3, "10.0.0.2", "0a02", true);
  rows.neighbourIs(3, "fe80::1", "0a06", true);
  rows.neighbourIs(2, "2001:db8::1", "0a07");
  rows.neighbourIs(2, "169.254.1.1", "0a08");
  rows.neighbourIs(2, "169.254.1.2", "0a0b", true);
  rows.neighbourIs(10, "10.0.0.2", "0a09");
  EXPECT_EQ(value("22", 4, "3.10.0.0.2"), "4");
  EXPECT_EQ(value("22", 4, "2.169.254.1.1"), "3") << "the type of IPv4's own table knows no local neighbour";
  EXPECT_EQ(value("35", 6, "3.2.16.254.128.0.0.0.0.0.0.0.0.0.0.0.0.0.1"), "5");
  expectWalks();
}

TEST_F(IpBaseTables, emptyTablesHaveNothing) {
  EXPECT_EQ(agent.walk(ipMibIp).size(), 3U) << "the scalars alone";
  for (const char* table : tables) {
    for (const char* index : {"1.4.10.0.0.1", "3.10.0.0.1", "3.1.4.10.0.0.1", "10.0.0.1"}) {
      EXPECT_EQ(value(table, 5, index).substr(0, 6), "noSuch") << table;
    }
  }
}

// Interface indexes are unsigned; net-snmp's INTEGER is not.
TEST_F(IpBaseTables, interfaceIndexesOfAnySizeAreInOrder) {
  for (const unsigned ifIndex : {0U, 1U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
    rows.neighbourIs(ifIndex, "10.0.0.1", "0001");
    rows.neighbourIs(ifIndex, "2001:db8::1", "0002");
    rows.addressIs("10.0.0." + std::to_string(ifIndex % 100), 32, ifIndex);
  }
  expectWalks();
  for (const char* table : {"22", "35", "32"}) {
    std::string at = ipMibIp + "." + table;
    for (const auto& expected : rows.reference.below(at)) {
      EXPECT_EQ(agent.getNext(at), expected);
      EXPECT_EQ(agent.get(expected.name), expected);
      at = expected.name;
    }
  }
}

// Against the reference, from anywhere in the tables.
class RandomIpBaseTables : public IpBaseTables {
 protected:
  unsigned below(unsigned count) { return static_cast<unsigned>(random() % count); }
  template <class T>
  T any(std::initializer_list<T> values) {
    return *(values.begin() + below(static_cast<unsigned>(values.size())));
  }
  std::string address() {
    if (below(2) == 0) return fmt::format("{}.0.{}.{}", any({0, 10, 128, 255}), below(3), any({0, 1, 255}));
    return fmt::format("{}::{:x}", any({"fe80", "2001:db8", "ff02"}), below(4));
  }
  void fill() {
    for (unsigned count = below(40); count > 0; --count) {
      const auto text = address();
      const unsigned ifIndex = any({0U, 1U, 2U, 300U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU});
      if (below(2) == 0) {
        const auto isNew = !tree.ipMib->ipAddressTableHas(TestIpRows::inetAddress(text));
        if (isNew)
          rows.addressIs(text, below(33), ifIndex, any({IpSnmp::addressSourceStatus, IpSnmp::addressSourceConfig}));
      } else {
        rows.neighbourIs(ifIndex, text, fmt::format("{:04x}", below(65536)), below(2) == 0);
      }
    }
  }
  // The name of an object that is there, or cut short, extended, or with one number changed.
  std::string name() {
    const auto all = rows.reference.below(ipMibIp);
    Oid name = all.empty() ? oidOf(ipMibIp) : oidOf(all[below(static_cast<unsigned>(all.size()))].name);
    const auto changes = below(4);
    for (unsigned i = 0; i < changes && name.size() > 7; ++i) {
      const std::size_t at = 7 + below(static_cast<unsigned>(name.size() - 7));
      switch (below(5)) {
        case 0:
          name.resize(at);
          break;
        case 1:
          name.push_back(any<oid>({0, 1, 16, 255, 4294967295}));
          break;
        case 2:
          name[at] = any<oid>({0, 1, 2, 4, 5, 16, 35, 128, 129, 200, 255, 256, 300, 2147483648, 4294967295});
          break;
        default:
          name[at] += static_cast<oid>(below(2) * 2) - 1;
          name[at] &= 0xFFFFFFFF;
      }
    }
    return textOf(name);
  }

  std::mt19937 random{7};
};

TEST_F(RandomIpBaseTables, agreeWithTheReference) {
  for (int round = 0; round < 25; ++round) {
    tree.ipMib->ipAddrTableDelAll();
    tree.ipMib->ipAddressTableDelAll();
    tree.ipMib->ipAddressPrefixTableDelAll();
    tree.ipMib->ipNetToPhysicalTableDelAll();
    rows.reference.clear();
    rows.reference.add(ipMibIp + ".1.0", ASN_INTEGER, "2");
    rows.reference.add(ipMibIp + ".24.3.0", ASN_GAUGE, "0");
    rows.reference.add(ipMibIp + ".25.0", ASN_INTEGER, "2");
    fill();
    ASSERT_EQ(agent.walk(ipMibIp), rows.reference.below(ipMibIp)) << "round " << round;
    for (int i = 0; i < 80; ++i) {
      const auto from = name();
      ASSERT_EQ(agent.getNext(from), rows.reference.next(from)) << "round " << round << " after " << from;
      const auto expected = rows.reference.get(from);
      const auto answer = agent.get(from);
      if (expected.type != 0) {
        ASSERT_EQ(answer, expected);
      } else {
        ASSERT_EQ(answer.value.substr(0, 6), "noSuch") << "round " << round << " " << answer;
      }
    }
  }
}

TEST_F(IpBaseTables, aWalkSurvivesWhatGoesBetweenTwoRequests) {
  for (const char* addr : {"10.0.0.1", "10.0.0.2", "10.0.0.3"}) {
    rows.addressIs(addr, 32, 3);
    rows.neighbourIs(3, addr, "0001");
  }
  const auto& first = IpSnmp::IpNetToPhysicalTableIndex(3, TestIpRows::inetAddress("10.0.0.1"));
  tree.ipMib->ipNetToPhysicalTableDel(first);
  tree.ipMib->ipAddressTableDel(TestIpRows::inetAddress("10.0.0.1"));
  tree.ipMib->ipAddressPrefixTableDelAll();
  addressDel(*tree.ipMib, "10.0.0.1");
  EXPECT_EQ(next("20", 3, "10.0.0.1"), cell("20", 3, "10.0.0.2"));
  EXPECT_EQ(value("20", 3, "10.0.0.1"), "noSuchInstance");
  EXPECT_EQ(next("22", 2, "3.10.0.0.1"), cell("22", 2, "3.10.0.0.2"));
  EXPECT_EQ(next("35", 4, "3.1.4.10.0.0.1"), cell("35", 4, "3.1.4.10.0.0.2"));
  EXPECT_EQ(next("34", 3, "1.4.10.0.0.1"), cell("34", 3, "1.4.10.0.0.2"));
  EXPECT_EQ(value("22", 2, "3.10.0.0.1"), "noSuchInstance");
  tree.ipMib->ipNetToPhysicalTableDelAll();
  EXPECT_EQ(next("22", 2, "3.10.0.0.1"), ipMibIp + ".24.3.0");
}

TEST_F(IpBaseTables, aNeighbourThatIsGoneOrDamagedShowsNothingOfAnother) {
  rows.neighbourIs(3, "10.0.0.1", "0a01", true);
  rows.neighbourIs(3, "10.0.0.2", "0a02", true);
  rows.neighbourIs(3, "fe80::1", "0a03", true);
  rows.arp->entryDel({rows.vrfId, Vantu::IpGenAddr::fromString("10.0.0.1"), Vantu::IntfId("eth3")});
  rows.arp->entryDel({rows.vrfId, Vantu::IpGenAddr::fromString("fe80::1"), Vantu::IntfId("eth3")});
  const std::string v6 = "3." + inetIndex("fe80::1");
  const auto expectNothingKnown = [&] {
    EXPECT_EQ(agent.get(cell("22", 2, "3.10.0.0.1")), (Answer{cell("22", 2, "3.10.0.0.1"), ASN_OCTET_STR, ""}));
    EXPECT_EQ(value("22", 4, "3.10.0.0.1"), "3");
    EXPECT_EQ(value("22", 3, "3.10.0.0.1"), "10.0.0.1");
    EXPECT_EQ(value("35", 4, "3.1.4.10.0.0.1"), "");
    EXPECT_EQ(value("35", 6, "3.1.4.10.0.0.1"), "3");
    EXPECT_EQ(value("35", 4, v6), "");
    EXPECT_EQ(value("35", 6, v6), "5");
  };
  expectNothingKnown();
  EXPECT_EQ(value("22", 2, "3.10.0.0.2"), "020000000a02");
  EXPECT_THAT(rows.arp->reports, IsEmpty());

  rows.arp->damage = "a record that does not fit its checksum";
  expectNothingKnown();
  EXPECT_EQ(rows.arp->reports.size(), 6U);
  EXPECT_THAT(rows.arp->reports, ::testing::Each(::testing::HasSubstr("a record that does not fit its checksum")));
  EXPECT_EQ(agent.walk(ipMibIp + ".22").size(), 8U);
  EXPECT_EQ(agent.walk(ipMibIp + ".35").size(), 15U);
  rows.arp->damage.reset();
  EXPECT_EQ(value("22", 2, "3.10.0.0.2"), "020000000a02");
}

TEST_F(IpBaseTables, lastUpdatedIsTheUpTimeAtWhichTheRowWasMade) {
  rows.neighbourIs(3, "10.0.0.1", "0a01");
  const auto row =
      tree.ipMib->ipNetToPhysicalTable(IpSnmp::IpNetToPhysicalTableIndex(3, TestIpRows::inetAddress("10.0.0.1")));
  // In a while, as this agent has just started.
  row->lastUpdatedIs(Kel::System::currentTime() + 1000);
  const auto before = netsnmp_get_agent_uptime();
  const auto ticks = std::stoul(value("35", 5, "3.1.4.10.0.0.1"));
  EXPECT_GE(ticks + 5, before + 100000);
  EXPECT_LE(ticks, netsnmp_get_agent_uptime() + 100000 + 5);

  // Whenever it is asked for, it says the same, and never a time that was still to come. The agent's start becomes
  // known to less than a tick in the course of that, which may add one.
  row->lastUpdatedIs(Kel::System::currentTime());
  const auto upTime = netsnmp_get_agent_uptime();
  std::vector<unsigned long> said;
  while (netsnmp_get_agent_uptime() < upTime + 6) said.push_back(std::stoul(value("35", 5, "3.1.4.10.0.0.1")));
  EXPECT_TRUE(std::is_sorted(said.begin(), said.end()));
  EXPECT_LE(said.back(), upTime);
  EXPECT_LE(said.back(), said.front() + 1);
}

// What each table traces, in full.
class IpBaseTableTraces : public IpBaseTables {
 protected:
  IpBaseTableTraces() {
    rows.addressIs("10.1.2.3", 16, 5);
    rows.neighbourIs(3, "10.0.0.2", "0a02", true);
    lines.take();
  }

  std::vector<std::string> taken() { return withoutPointers(lines.take()); }
  std::vector<std::string> get(const char* table, unsigned column, const std::string& index) {
    lines.take();
    agent.get(cell(table, column, index));
    return taken();
  }

  TraceLines lines{"IpBase"};
};

constexpr const char* prefixKey =
    "Value('IpSnmp::IpAddressPrefixKey', ** {'ifIndex': 5, 'version': ipVersion4, 'bytes': '0x0a010000', 'length': "
    "16})";
constexpr const char* addressKey =
    "Value('IpSnmp::InetAddress', ** {'version': ipVersion4, 'bytes': '0x0a010203'})";
constexpr const char* arpKey = "Value('IpSnmp::ArpTableIndex', ** {'ifIndex': 3, 'ipAddr': '10.0.0.2'})";
constexpr const char* physicalKey =
    "Value('IpSnmp::IpNetToPhysicalTableIndex', ** {'ifIndex': 3, 'addr': Value('IpSnmp::InetAddress', ** "
    "{'version': ipVersion4, 'bytes': '0x0a000002'})})";

TEST_F(IpBaseTableTraces, aGetOfEachTable) {
  EXPECT_EQ(get("22", 2, "3.10.0.0.2"),
            tracesOfGet("ipNetToMediaTable", {{"ipNetToMediaIfIndex", "3"}, {"ipNetToMediaNetAddress", "10.0.0.2"}},
                        {{"ifIndex", "3"}, {"netAddress", "10.0.0.2"}}, "ipNetToMediaPhysAddress", arpKey));
  EXPECT_EQ(get("32", 5, "5.1.4.10.1.0.0.16"),
            tracesOfGet("ipAddressPrefixTable",
                        {{"ipAddressPrefixIfIndex", "5"},
                         {"ipAddressPrefixType", "ipVersion4"},
                         {"ipAddressPrefixPrefix", "0x0a010000"},
                         {"ipAddressPrefixLength", "16"}},
                        {{"ifIndex", "5"}, {"version", "ipVersion4"}, {"bytes", "0x0a010000"}, {"length", "16"}},
                        "ipAddressPrefixOrigin", prefixKey));
  EXPECT_EQ(
      get("34", 3, "1.4.10.1.2.3"),
      tracesOfGet("ipAddressTable", {{"ipAddressAddrType", "ipVersion4"}, {"ipAddressAddr", "0x0a010203"}},
                  {{"addrVersion", "ipVersion4"}, {"addrBytes", "0x0a010203"}}, "ipAddressIfIndex", addressKey));
  EXPECT_EQ(get("35", 8, "3.1.4.10.0.0.2"),
            tracesOfGet("ipNetToPhysicalTable",
                        {{"ipNetToPhysicalIfIndex", "3"},
                         {"ipNetToPhysicalNetAddressType", "ipVersion4"},
                         {"ipNetToPhysicalNetAddress", "0x0a000002"}},
                        {{"ifIndex", "3"}, {"inetAddressType", "ipVersion4"}, {"inetAddress", "0x0a000002"}},
                        "ipNetToPhysicalRowStatus", physicalKey));
}

TEST_F(IpBaseTableTraces, everyColumnIsNamed) {
  const auto named = [this](const char* table, unsigned column, const std::string& index) {
    for (const auto& line : get(table, column, index)) {
      const auto at = line.find("request GET for column ");
      if (at != std::string::npos) return line.substr(at + 23, line.find(',') - at - 23);
    }
    return std::string("none");
  };
  const auto all = [&](const char* table, unsigned from, unsigned to, const std::string& index) {
    std::vector<std::string> names;
    for (unsigned column = from; column <= to; ++column) names.push_back(named(table, column, index));
    return names;
  };
  EXPECT_THAT(all("22", 1, 4, "3.10.0.0.2"), ElementsAre("ipNetToMediaIfIndex", "ipNetToMediaPhysAddress",
                                                         "ipNetToMediaNetAddress", "ipNetToMediaType"));
  EXPECT_THAT(all("32", 5, 9, "5.1.4.10.1.0.0.16"),
              ElementsAre("ipAddressPrefixOrigin", "ipAddressPrefixOnLinkFlag", "ipAddressPrefixAutonomousFlag",
                          "ipAddressPrefixAdvPreferredLifetime", "ipAddressPrefixAdvValidLifetime"));
  EXPECT_THAT(
      all("34", 3, 11, "1.4.10.1.2.3"),
      ElementsAre("ipAddressIfIndex", "ipAddressType", "ipAddressPrefix", "ipAddressOrigin", "ipAddressStatus",
                  "ipAddressCreated", "ipAddressLastChanged", "ipAddressRowStatus", "ipAddressStorageType"));
  EXPECT_THAT(all("35", 4, 8, "3.1.4.10.0.0.2"),
              ElementsAre("ipNetToPhysicalPhysAddress", "ipNetToPhysicalLastUpdated", "ipNetToPhysicalType",
                          "ipNetToPhysicalState", "ipNetToPhysicalRowStatus"));
}

TEST_F(IpBaseTableTraces, hintsThatSayTooLittleAndHintsPastTheEnd) {
  const auto next = [this](const char* table, unsigned column, const std::string& index) {
    lines.take();
    agent.getNext(cell(table, column, index));
    return taken();
  };
  EXPECT_EQ(next("22", 2, "3").at(1),
            "2 ipNetToMediaTable_get_first_data_point - needed 2 components, found only 1");
  EXPECT_EQ(next("35", 4, "3").at(1),
            "2 ipNetToPhysicalTable_get_first_data_point - needed 3 components, found only 1");
  EXPECT_THAT(next("34", 3, "1").at(1), StartsWith("2 ipAddressTable_get_first_data_point - allocated "));
  EXPECT_THAT(next("32", 5, "5").at(1), StartsWith("2 ipAddressPrefixTable_get_first_data_point - allocated "));
  const auto notFound = [&](const char* table, const std::string& index, const std::string& name,
                            const std::string& key) {
    EXPECT_THAT(next(table, 5, index),
                Contains("2 " + name + "_get_first_data_point - key '" + key + "' not found in table"));
  };
  notFound("34", "3.0", "ipAddressTable", "Value('IpSnmp::InetAddress', ** {'version': 3, 'bytes': ''})");
  notFound("35", "4.1.0", "ipNetToPhysicalTable",
           "Value('IpSnmp::IpNetToPhysicalTableIndex', ** {'ifIndex': 4, 'addr': Value('IpSnmp::InetAddress', ** "
           "{'version': ipVersion4, 'bytes': ''})})");
}

TEST_F(IpBaseTableTraces, setIsRefusedColumnByColumn) {
  const auto refused = [this](const char* table, unsigned column, const std::string& index) {
    lines.take();
    EXPECT_EQ(agent.set(cell(table, column, index), 1).errorStatus, SNMP_ERR_NOTWRITABLE) << table << column;
    for (const auto& line : taken()) {
      if (line.find("SET") != std::string::npos || line.find("invalid") != std::string::npos) return line;
    }
    return std::string("nothing");
  };
  const auto configured = [](const std::string& table, const std::string& object) {
    return "2 " + table + "_handler: SET is not configured for column " + object;
  };
  const char* const media[] = {"ipNetToMediaIfIndex", "ipNetToMediaPhysAddress", "ipNetToMediaNetAddress",
                               "ipNetToMediaType"};
  for (unsigned column = 1; column <= 4; ++column) {
    EXPECT_EQ(refused("22", column, "3.10.0.0.2"), configured("ipNetToMediaTable", media[column - 1]));
  }
  const std::map<unsigned, std::string> physical{
      {4, "ipNetToPhysicalPhysAddress"}, {6, "ipNetToPhysicalType"}, {8, "ipNetToPhysicalRowStatus"}};
  for (unsigned column = 4; column <= 8; ++column) {
    EXPECT_EQ(refused("35", column, "3.1.4.10.0.0.2"),
              physical.contains(column) ? configured("ipNetToPhysicalTable", physical.at(column))
                                        : "0 ipNetToPhysicalTable invalid column " + std::to_string(column));
  }
  const std::map<unsigned, std::string> address{{3, "ipAddressIfIndex"},
                                                {4, "ipAddressType"},
                                                {7, "ipAddressStatus"},
                                                {10, "ipAddressRowStatus"},
                                                {11, "ipAddressStorageType"}};
  for (unsigned column = 3; column <= 11; ++column) {
    EXPECT_EQ(refused("34", column, "1.4.10.1.2.3"),
              address.contains(column) ? configured("ipAddressTable", address.at(column))
                                       : "0 ipAddressTable invalid column " + std::to_string(column));
  }
  EXPECT_EQ(refused("32", 5, "5.1.4.10.1.0.0.16"), "nothing") << "net-snmp refuses it";
  expectWalks();
}

}  // namespace
