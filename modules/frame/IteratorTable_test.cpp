// The frame of the tables, on tables of its own: several index components, columns that fail, columns that refuse a
// SET, and rows without an order.

#include "modules/frame/IteratorTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ipsnmp/IpMib.h"
#include "modules/testing/TestAgent.h"
#include "modules/testing/TestIpTree.h"

namespace {

using namespace Modules;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::StartsWith;

Kel::TraceHandle iteratorTableTestTrace("FrameTest");
Module frameTest("FrameTest", iteratorTableTestTrace);
const auto source = entitySource<IpSnmp::IpMib>("snmp/ip/ipmib", nullptr);

struct StatsRows {
  using Cache = IpSnmp::IpMib;
  using Row = IpSnmp::IpIfStatsEntry;
  using Key = IpSnmp::IpVersionIfIndex;
  static const auto& collection(const Cache& cache) { return cache.ipIfStatsTable(); }
  static const Key& key(const Row& row) { return row.index(); }
};
using Row = StatsRows::Row;
using Key = StatsRows::Key;

// The same rows in descending order.
class BackwardWalker {
 public:
  using Cache = StatsRows::Cache;
  using Row = StatsRows::Row;
  using Key = StatsRows::Key;
  explicit BackwardWalker(const Kel::Ptr<const Cache>& cache) {
    for (const auto& [key, row] : cache->ipIfStatsTable()) rows_.push_back(row);
  }
  bool isAtEnd() const { return rows_.empty(); }
  const Row& row() const { return *rows_.back(); }
  const Key& key() const { return row().index(); }
  void advance() { rows_.pop_back(); }

 private:
  std::vector<Kel::Ptr<const Row>> rows_;
};

class UnmakableWalker : public BackwardWalker {
 public:
  explicit UnmakableWalker(const Kel::Ptr<const Cache>& cache) : BackwardWalker(cache) {
    throw Kel::Exception("there is no walk");
  }
};

Key makeKey(const int& version, const unsigned& ifIndex) {
  if (ifIndex > 1000) throw Kel::RangeException("no such interface");
  return Key(static_cast<Ip::IpVersion>(version), ifIndex);
}

auto statsIndex() {
  return Index(
      "Test::Key", makeKey,
      integerIndex<Key>("testVersion", "ipVersion", [](const Key& key) { return int{key.ipVersion()}; }),
      unsignedIndex<Key>("testIfIndex", "ifIndex", [](const Key& key) { return unsigned{key.ifIndex()}; }));
}

constexpr Conversion<int> failing{"Failing", [](int, unsigned char*, int) { return -1; }};
constexpr Conversion<int> overlong{"Overlong", [](int, unsigned char*, int length) { return length + 1; }};
int zero(const Row&) {
  return 0;
}

// Cannot be written for interface 3.
auto gappyIndex() {
  auto ifIndex =
      unsignedIndex<Key>("testIfIndex", "ifIndex", [](const Key& key) { return unsigned{key.ifIndex()}; });
  ifIndex.toAsn = [](const unsigned& part, unsigned char* buffer, int length) {
    return part == 3 ? -1 : U32ToAsnUnsignedF(part, buffer, length);
  };
  return Index("Test::Key", makeKey,
               integerIndex<Key>("testVersion", "ipVersion", [](const Key& key) { return int{key.ipVersion()}; }),
               ifIndex);
}

template <class W>
auto makeTable(const char* name, oid number, int modes, const decltype(statsIndex())& index = statsIndex(),
               bool blamesFirst = false) {
  return makeIteratorTable<W>(
      {.module = frameTest,
       .name = name,
       .identifier = {1, 3, 6, 1, 4, 1, QUORIN_ENTERPRISE, 99, number},
       .modes = modes,
       .source = source,
       .firstRequestTakesGenErr = blamesFirst},
      index,
      {column<Row>(2, "testPackets", ASN_UNSIGNED, u32ToAsnUnsigned, "packets",
                   [](const Row& row) { return static_cast<unsigned>(row.ipIfStatsInPkts()); })
           .refusable(),
       column<Row>(3, "testFailing", ASN_INTEGER, failing, "failing", zero),
       column<Row>(4, "testThrowing", ASN_INTEGER, s32ToAsnInteger, "throwing",
                   [](const Row&) -> int { throw Kel::Exception("thrown by an accessor"); }),
       column<Row>(6, "testName", ASN_OCTET_STR, stringToAsnOctetString, "name",
                   [](const Row& row) { return Kel::String(row.ipIfStatsInOctets(), 'x'); })
           .limitedTo(4, "snmp/ip/ipmib"),
       column<Row>(7, "testOverlong", ASN_OCTET_STR, overlong, "overlong", zero).limitedTo(4, "snmp/ip/ipmib"),
       column<Row>(8, "testLong", ASN_OCTET_STR, stringToAsnOctetString, "",
                   [](const Row& row) { return Kel::String(row.ipIfStatsInOctets(), 'x'); })});
}

const auto sortedTable = makeTable<OrderedWalker<StatsRows>>("sortedTable", 1, HANDLER_CAN_RWRITE);
const auto unsortedTable = makeTable<BackwardWalker>("unsortedTable", 2, HANDLER_CAN_RONLY);
const auto gappyTable = makeTable<OrderedWalker<StatsRows>>("gappyTable", 3, HANDLER_CAN_RONLY, gappyIndex());

// Not registered.
const auto blamingTable =
    makeTable<OrderedWalker<StatsRows>>("blamingTable", 4, HANDLER_CAN_RONLY, statsIndex(), true);
const auto unwalkableTable = makeTable<UnmakableWalker>("unwalkableTable", 5, HANDLER_CAN_RONLY);

const std::string testRoot = "1.3.6.1.4.1." + std::to_string(QUORIN_ENTERPRISE) + ".99";

}  // namespace

ITERATOR_TABLE(sortedTable, ::sortedTable)
ITERATOR_TABLE(unsortedTable, ::unsortedTable)
ITERATOR_TABLE(gappyTable, ::gappyTable)

namespace {

class IteratorTableTest : public ::testing::Test {
 protected:
  IteratorTableTest() {
    for (const auto& [version, ifIndex] : {std::pair{1, 3U}, {1, 20U}, {2, 3U}, {2, 1000U}}) {
      const auto row = tree.ipMib->ipIfStatsTableIs(Key(static_cast<Ip::IpVersion>(version), ifIndex));
      row->ipIfStatsInPktsIs(static_cast<unsigned>(version) * 10000 + ifIndex);
      row->ipIfStatsInOctetsIs(ifIndex);
    }
    initialize_table_sortedTable(SnmpUtil::getSnmpConfig(), "");
    initialize_table_unsortedTable(SnmpUtil::getSnmpConfig(), "");
    initialize_table_gappyTable(SnmpUtil::getSnmpConfig(), "");
    lines.take();
  }
  ~IteratorTableTest() override { frameTest.leave(""); }

  static std::string cell(unsigned table, unsigned column, const std::string& index) {
    return testRoot + "." + std::to_string(table) + ".1." + std::to_string(column) + "." + index;
  }
  std::vector<std::string> walked(unsigned table, unsigned column) {
    std::vector<std::string> values;
    const std::string from = testRoot + "." + std::to_string(table) + ".1." + std::to_string(column);
    for (const auto& answer : agent.walk(from))
      values.push_back(answer.name.substr(from.size() + 1) + "=" + answer.value);
    return values;
  }
  // The traces of getting the first row for a hint of these two values.
  std::vector<std::string> hinted(u_char type1, long value1, u_char type2, long value2) {
    netsnmp_iterator_info iterator{};
    iterator.myvoid = static_cast<Kel::Entity*>(tree.ipMib.get());
    netsnmp_variable_list* chain = nullptr;
    netsnmp_table_request_info hint{};
    hint.number_indexes = 2;
    for (auto** to : {&chain, &hint.indexes}) {
      snmp_varlist_add_variable(to, nullptr, 0, type1, &value1, sizeof(value1));
      snmp_varlist_add_variable(to, nullptr, 0, type2, &value2, sizeof(value2));
    }
    void* loop = &hint;
    void* data = nullptr;
    lines.take();
    EXPECT_EQ(sortedTable_get_first_data_point(&loop, &data, chain, &iterator), chain);
    auto taken = lines.take();
    sortedTable_free_loop_context_at_end(loop, &iterator);
    snmp_free_varbind(hint.indexes);
    snmp_free_varbind(chain);
    return {taken.begin() + 1, taken.end()};  // without the pointer of the hint
  }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  TraceLines lines{"FrameTest"};
};

TEST_F(IteratorTableTest, severalComponentsAreWalkedInTheirOrder) {
  EXPECT_THAT(walked(1, 2), ElementsAre("1.3=10003", "1.20=10020", "2.3=20003", "2.1000=21000"));
  EXPECT_EQ(agent.getNext(cell(1, 2, "1")).name, cell(1, 2, "1.3"));
  EXPECT_EQ(agent.getNext(cell(1, 2, "1.20.9")).name, cell(1, 2, "2.3"));
  EXPECT_EQ(agent.send(SNMP_MSG_GETNEXT, {cell(1, 2, "4294967295.1")}).errorStatus, SNMP_ERR_GENERR)
      << "the first row of the next column, which fails";
}

TEST_F(IteratorTableTest, rowsWithoutAnOrderAreAnsweredInOrderAllTheSame) {
  EXPECT_THAT(walked(2, 2), ElementsAre("1.3=10003", "1.20=10020", "2.3=20003", "2.1000=21000"));
  EXPECT_EQ(agent.get(cell(2, 2, "2.3")).value, "20003");
  lines.take();
  agent.getNext(cell(2, 2, "1.3"));
  EXPECT_THAT(
      lines.take().front(),
      ::testing::ContainsRegex("^2 unsortedTable_get_first_data_point - allocated new loop context 0x[0-9a-f]+$"));
}

TEST_F(IteratorTableTest, aRowWhoseIndexCannotBeWrittenHidesNoOther) {
  EXPECT_THAT(walked(3, 2), ElementsAre("1.20=10020", "2.1000=21000"));
  lines.take();
  EXPECT_EQ(agent.getNext(cell(3, 2, "1.20")).value, "21000");
  EXPECT_THAT(lines.take(),
              Contains("0 gappyTable: the index of the row Value('IpSnmp::IpVersionIfIndex', ** "
                       "{'ipVersion': ipVersion6, 'ifIndex': 3}) cannot be written; the row is not served"));
  EXPECT_EQ(agent.get(cell(3, 2, "1.3")).value, "noSuchInstance");
  EXPECT_EQ(agent.get(cell(3, 2, "2.1000")).value, "21000");
}

TEST_F(IteratorTableTest, aWalkThatCannotBeginLeavesTheHelperNoHintToFree) {
  netsnmp_iterator_info iterator{};
  iterator.myvoid = static_cast<Kel::Entity*>(tree.ipMib.get());
  netsnmp_table_request_info hint{};
  void* loop = &hint;
  EXPECT_EQ(unwalkableTable.getFirstDataPoint(&loop, nullptr, &iterator), nullptr);
  EXPECT_EQ(loop, nullptr);
  EXPECT_THAT(lines.take(), ElementsAre("0 unwalkableTable: there is no walk"));
}

TEST(IteratorTableDeathTest, columnsThatCannotBeServedAreRefusedAtOnce) {
  const auto numbered = [](unsigned number) {
    return column<Row>(number, "testColumn", ASN_INTEGER, s32ToAsnInteger, "", zero);
  };
  const auto make = [](const std::vector<Column<Row>>& columns) {
    return makeIteratorTable<OrderedWalker<StatsRows>>(
        {.module = frameTest, .name = "refused", .identifier = {1}, .modes = HANDLER_CAN_RONLY, .source = source},
        statsIndex(), columns);
  };
  std::vector<Column<Row>> many;
  for (unsigned number = 1; number <= Table::maxColumns; ++number) many.push_back(numbered(number));
  make(many);
  many.push_back(numbered(Table::maxColumns + 1));
  EXPECT_DEATH(make(many), "columns_.size\\(\\) <= maxColumns");
  EXPECT_DEATH(make({}), "!columns_.empty");
  EXPECT_DEATH(make({numbered(2), numbered(2)}), "columnsAscend");
  EXPECT_DEATH(numbered(1).limitedTo(0, "snmp/ip/ipmib"), "bytes > 0");
  EXPECT_DEATH(numbered(1).limitedTo(ColumnBase::maxBufferLength + 1, "snmp/ip/ipmib"), "bytes <= maxBufferLength");
}

TEST_F(IteratorTableTest, everyComponentOfAHintIsChecked) {
  const std::string needed = "2 sortedTable_get_first_data_point - needed 2 components, found only ";
  const auto one = "2 hint component testVersion is '1'";
  const auto allocated = StartsWith("2 sortedTable_get_first_data_point - allocated new loop context ");
  const auto row = [](const char* version, const char* ifIndex) {
    const std::string line = "2 sortedTableIterationHelper - iterator has another value: ";
    return std::pair{line + "ipVersion=" + version, line + "ifIndex=" + ifIndex};
  };
  const auto first = row("1", "3");
  const auto second = row("1", "20");
  EXPECT_THAT(hinted(ASN_INTEGER, 1, ASN_UNSIGNED, 4),
              ElementsAre(one, "2 hint component testIfIndex is '4'", allocated, second.first, second.second));
  EXPECT_THAT(hinted(ASN_INTEGER, 1, ASN_INTEGER, 4),
              ElementsAre(one, "0 hint for testIfIndex has incorrect type! Expecting 66 but got 2", needed + "1",
                          allocated, first.first, first.second));
  EXPECT_THAT(hinted(ASN_INTEGER, 4294967295, ASN_UNSIGNED, 4),
              ElementsAre(StartsWith("0 hint for index testVersion of sortedTable is out of range! "), needed + "0",
                          allocated, first.first, first.second));
  EXPECT_THAT(hinted(ASN_INTEGER, 1, ASN_UNSIGNED, 1001),
              ElementsAre(one, "2 hint component testIfIndex is '1001'",
                          "0 Bad hint for sortedTable: Test::Key ctor threw exception: no such interface",
                          allocated, first.first, first.second));
  EXPECT_THAT(
      hinted(ASN_INTEGER, 3, ASN_UNSIGNED, 1),
      Contains("2 sortedTable_get_first_data_point - key 'Value('IpSnmp::IpVersionIfIndex', ** {'ipVersion': "
               "3, 'ifIndex': 1})' not found in table"));
}

TEST_F(IteratorTableTest, aConversionThatFailsIsGenErr) {
  const auto fails = [this](unsigned column, const std::string& index) {
    lines.take();
    const auto reply = agent.send(SNMP_MSG_GET, {cell(1, 2, "1.3"), cell(1, column, index)});
    EXPECT_EQ(reply.errorStatus, SNMP_ERR_GENERR) << column;
    EXPECT_EQ(reply.errorIndex, 2) << column;
    return lines.take();
  };
  EXPECT_THAT(fails(3, "1.3"), Contains("2 handle_sortedTable - Failing failed for: failing"));
  const auto thrown = fails(4, "1.3");
  EXPECT_THAT(thrown, Contains("0 sortedTable: thrown by an accessor"));
  EXPECT_THAT(thrown, Contains("2 handle_sortedTable - S32ToAsnInteger failed for: throwing"));
  EXPECT_THAT(fails(6, "1.20"), Contains("2 handle_sortedTable - StringToAsnOctetString failed for: name"));
  EXPECT_THAT(fails(7, "1.3"),
              Contains("2 handle_sortedTable - entity /<sysname>/snmp/ip/ipmib length out of range: "
                       "overlong (5)"));
  EXPECT_EQ(agent.get(cell(1, 6, "1.3")).value, "787878");
  EXPECT_EQ(agent.get(cell(1, 8, "2.1000")).value.size(), 2000U);
}

// The serialize handler passes requests one by one, so here the batch goes past it.
TEST_F(IteratorTableTest, aTableMayBlameTheFirstRequestForAnyThatFails) {
  tree.ipMib->ipIfStatsTableIs(Key(Ip::ipVersion4, 3));
  OrderedWalker<StatsRows> row{Kel::Ptr<const IpSnmp::IpMib>(tree.ipMib)};
  for (const auto& [table, blamed] : {std::pair{&blamingTable, 0}, {&sortedTable, 1}}) {
    netsnmp_agent_request_info info{};
    info.mode = MODE_GET;
    netsnmp_request_info requests[2] = {};
    netsnmp_variable_list values[2] = {};
    netsnmp_table_request_info columns[2] = {};
    for (int i = 0; i < 2; ++i) {
      columns[i].colnum = i == 0 ? 2 : 3;
      requests[i].requestvb = &values[i];
      requests[i].agent_req_info = &info;
      netsnmp_request_add_list_data(&requests[i],
                                    netsnmp_create_data_list(TABLE_HANDLER_NAME, &columns[i], nullptr));
      netsnmp_insert_iterator_context(&requests[i], &row);
    }
    requests[0].next = &requests[1];
    EXPECT_EQ(table->handle(&info, requests), SNMP_ERR_GENERR);
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(requests[i].status, i == blamed ? SNMP_ERR_GENERR : SNMP_ERR_NOERROR) << i;
      netsnmp_free_request_data_sets(&requests[i]);
      snmp_free_var_internals(&values[i]);
    }
  }
}

TEST_F(IteratorTableTest, columnsInAGapAreNotServed) {
  EXPECT_NE(agent.get(cell(1, 5, "1.3")).type, ASN_NULL);
  EXPECT_EQ(agent.get(cell(1, 5, "1.3")).value.substr(0, 6), "noSuch");
  EXPECT_EQ(agent.getNext(cell(1, 5, "1.3")).name, cell(1, 6, "1.3"));
}

TEST_F(IteratorTableTest, setIsRefusedColumnByColumn) {
  const auto refused = [this](unsigned column, const std::string& index) {
    lines.take();
    EXPECT_EQ(agent.set(cell(1, column, index), 1).errorStatus, SNMP_ERR_NOTWRITABLE) << column;
    return lines.take();
  };
  EXPECT_THAT(refused(2, "1.3"), Contains("2 sortedTable_handler: SET is not configured for column testPackets"));
  EXPECT_THAT(refused(2, "9.9"), Contains("2 sortedTable_handler: SET is not configured for column testPackets"));
  EXPECT_THAT(refused(3, "1.3"), Contains("0 sortedTable invalid column 3"));
  EXPECT_EQ(agent.get(cell(1, 2, "1.3")).value, "10003");
}

}  // namespace
