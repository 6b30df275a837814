// The frame of the tables, on a table of its own: its functions called as net-snmp's table-iterator helper calls them,
// and requests to columns that fail.

#include "modules/frame/IteratorTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>

#include "ipsnmp/IpMib.h"
#include "modules/testing/TestAgent.h"
#include "modules/testing/TestIpTree.h"

namespace {

using namespace Modules;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::StartsWith;

Kel::TraceHandle frameTestTrace("FrameTest");
Module frameTest("FrameTest", frameTestTrace);
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
using StatsWalker = OrderedWalker<StatsRows>;

class UnmakableWalker : public StatsWalker {
 public:
  explicit UnmakableWalker(const Kel::Ptr<const Cache>& cache) : StatsWalker(cache) {
    throw Kel::Exception("there is no walk");
  }
};

Key makeKey(const int& version, const unsigned& ifIndex) {
  if (ifIndex > 1000) throw Kel::RangeException("no such interface");
  return Key(static_cast<Ip::IpVersion>(version), ifIndex);
}

constexpr Conversion<int> failing{"Failing", [](int, unsigned char*, int) { return -1; }};
constexpr Conversion<int> overlong{"Overlong", [](int, unsigned char*, int length) { return length + 1; }};
int zero(const Row&) {
  return 0;
}
Kel::String inOctets(const Row& row) {
  return Kel::String(row.ipIfStatsInOctets(), 'x');
}

template <class W = StatsWalker>
auto makeTable(const char* name, bool blamesFirst = false) {
  return makeIteratorTable<W>(
      {.module = frameTest,
       .name = name,
       .identifier = enterpriseObject({99, 1}),
       .modes = HANDLER_CAN_RWRITE,
       .source = source,
       .firstRequestTakesGenErr = blamesFirst},
      Index("Test::Key", makeKey,
            integerIndex<Key>("testVersion", "ipVersion", [](const Key& key) { return int{key.ipVersion()}; }),
            unsignedIndex<Key>("testIfIndex", "ifIndex", [](const Key& key) { return unsigned{key.ifIndex()}; })),
      {column<Row>(2, "testPackets", ASN_UNSIGNED, u32ToAsnUnsigned, "packets",
                   [](const Row& row) { return static_cast<unsigned>(row.ipIfStatsInPkts()); })
           .refusable(),
       column<Row>(3, "testFailing", ASN_INTEGER, failing, "failing", zero),
       column<Row>(4, "testThrowing", ASN_INTEGER, s32ToAsnInteger, "throwing",
                   [](const Row&) -> int { throw Kel::Exception("thrown by an accessor"); }),
       column<Row>(6, "testName", ASN_OCTET_STR, stringToAsnOctetString, "name", inOctets)
           .limitedTo(4, "snmp/ip/ipmib"),
       column<Row>(7, "testOverlong", ASN_OCTET_STR, overlong, "overlong", zero).limitedTo(4, "snmp/ip/ipmib"),
       column<Row>(8, "testLong", ASN_OCTET_STR, stringToAsnOctetString, "", inOctets)});
}

const auto testTable = makeTable("testTable");
// Not registered.
const auto blamingTable = makeTable("blamingTable", true);
const auto unwalkableTable = makeTable<UnmakableWalker>("unwalkableTable");

}  // namespace

ITERATOR_TABLE(testTable, ::testTable)

namespace {

class IteratorTableTest : public ::testing::Test {
 protected:
  IteratorTableTest() {
    for (const auto& [version, ifIndex] : {std::pair{1, 3U}, {1, 20U}, {2, 3U}, {2, 1000U}})
      rowIs(version, ifIndex);
    iterator.myvoid = static_cast<Kel::Entity*>(tree.ipMib.get());
    for (const u_char type : {u_char{ASN_INTEGER}, u_char{ASN_UNSIGNED}}) {
      snmp_varlist_add_variable(&chain, nullptr, 0, type, nullptr, 0);
    }
  }
  ~IteratorTableTest() override {
    end();
    snmp_free_varbind(chain);
    snmp_free_varbind(hint.indexes);
  }

  void rowIs(int version, unsigned ifIndex) {
    const auto row = tree.ipMib->ipIfStatsTableIs(Key(static_cast<Ip::IpVersion>(version), ifIndex));
    row->ipIfStatsInPktsIs(static_cast<unsigned>(version) * 10000 + ifIndex);
    row->ipIfStatsInOctetsIs(ifIndex);
  }
  void rowDel(int version, unsigned ifIndex) {
    tree.ipMib->ipIfStatsTableDel(Key(static_cast<Ip::IpVersion>(version), ifIndex));
  }

  static std::string text(const netsnmp_variable_list* index) {
    if (index == nullptr) return "none";
    return std::to_string(*index->val.integer) + "." + std::to_string(*index->next_variable->val.integer);
  }
  void end() {
    if (loop != nullptr) testTable_free_loop_context_at_end(loop, &iterator);
    loop = nullptr;
  }
  std::string first(void* from = nullptr) {
    end();
    loop = from;
    lines.take();
    return text(testTable_get_first_data_point(&loop, &data, chain, &iterator));
  }
  std::string next() { return text(testTable_get_next_data_point(&loop, &data, chain, &iterator)); }

  // The traces of getting the first row with a hint, without pointers; `row` is the one that it gives.
  std::vector<std::string> hinted(unsigned count, const std::vector<std::pair<u_char, long>>& values,
                                  const std::string& row) {
    hint.number_indexes = count;
    snmp_free_varbind(hint.indexes);
    hint.indexes = nullptr;
    for (const auto& [type, value] : values) {
      snmp_varlist_add_variable(&hint.indexes, nullptr, 0, type, &value, sizeof(value));
    }
    EXPECT_EQ(first(&hint), row);
    return withoutPointers(lines.take());
  }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  netsnmp_iterator_info iterator{};
  netsnmp_variable_list* chain = nullptr;
  netsnmp_table_request_info hint{};
  void* loop = nullptr;
  void* data = nullptr;
  TraceLines lines{"FrameTest"};
};

std::string firstLine(unsigned count) {
  return fmt::format("2 testTable_get_first_data_point - *hint = , number_indexes = {}", count);
}
std::string allocated(int matched) {
  return fmt::format("2 testTable_get_first_data_point - allocated new loop context , hintMatched={}", matched);
}
std::string rowLine(const char* attribute, unsigned value) {
  return fmt::format("2 testTableIterationHelper - iterator has another value: {}={}", attribute, value);
}

TEST_F(IteratorTableTest, walksFromTheFirstRowToTheEnd) {
  EXPECT_EQ(first(), "1.3");
  EXPECT_EQ(data, nullptr);
  EXPECT_THAT(withoutPointers(lines.take()),
              ElementsAre("2 testTable_get_first_data_point - *hint = 0, number_indexes = 0", allocated(0),
                          rowLine("ipVersion", 1), rowLine("ifIndex", 3)));
  EXPECT_EQ(next(), "1.20");
  EXPECT_THAT(withoutPointers(lines.take()),
              ElementsAre("2 testTable_get_next_data_point - advancing loop context  ; data context 0",
                          rowLine("ipVersion", 1), rowLine("ifIndex", 20)));
  EXPECT_EQ(next(), "2.3");
  EXPECT_EQ(next(), "2.1000");
  EXPECT_EQ(next(), "none");
  EXPECT_THAT(lines.take(), Contains("2 testTableIterationHelper - iterator is at end"));
  EXPECT_EQ(next(), "none");
  end();
  EXPECT_EQ(next(), "none");
  EXPECT_THAT(withoutPointers(lines.take()),
              ElementsAre("2 testTable_get_next_data_point - at end of loop context ",
                          "2 testTable_free_loop_context_at_end ",
                          "2 testTable_get_next_data_point - at end of loop context 0"));
  tree.ipMib->ipIfStatsTableDelAll();
  EXPECT_EQ(first(), "none");
  EXPECT_EQ(next(), "none");
  iterator.myvoid = nullptr;
  EXPECT_EQ(first(), "none") << "a record without a cache";
}

TEST_F(IteratorTableTest, aHintIsCheckedAndSaysWhereToStart) {
  const auto one = "2 hint component testVersion is '1'";
  const auto two = "2 hint component testIfIndex is '4'";
  const auto needed = [](unsigned found) {
    return fmt::format("2 testTable_get_first_data_point - needed 2 components, found only {}", found);
  };
  EXPECT_THAT(hinted(2, {{ASN_INTEGER, 1}, {ASN_UNSIGNED, 4}}, "1.20"),
              ElementsAre(firstLine(2), one, two, allocated(0), rowLine("ipVersion", 1), rowLine("ifIndex", 20)));
  EXPECT_THAT(hinted(2, {{ASN_INTEGER, 2}, {ASN_UNSIGNED, 3}}, "2.3"), Contains(allocated(1)));
  for (const auto& traced : {hinted(0, {}, "1.3"), hinted(3, {{ASN_INTEGER, 1}, {ASN_UNSIGNED, 4}}, "1.3")}) {
    EXPECT_EQ(traced.at(1), allocated(0)) << "a wrong number of components is not traced";
  }
  EXPECT_THAT(hinted(2, {}, "1.3"), Contains(needed(0)));
  EXPECT_THAT(hinted(2, {{ASN_INTEGER, 1}, {ASN_INTEGER, 4}}, "1.3"),
              ElementsAre(firstLine(2), one, "0 hint for testIfIndex has incorrect type! Expecting 66 but got 2",
                          needed(1), allocated(0), rowLine("ipVersion", 1), rowLine("ifIndex", 3)));
  const auto outOfRange = hinted(2, {{ASN_INTEGER, 4294967295}, {ASN_UNSIGNED, 4}}, "1.3");
  EXPECT_THAT(outOfRange, Contains(StartsWith("0 hint for index testVersion of testTable is out of range! ")));
  EXPECT_EQ(outOfRange.at(2), needed(0));
  EXPECT_THAT(hinted(2, {{ASN_INTEGER, 1}, {ASN_UNSIGNED, 1001}}, "1.3"),
              Contains("0 Bad hint for testTable: Test::Key ctor threw exception: no such interface"));
  EXPECT_THAT(hinted(2, {{ASN_INTEGER, 3}, {ASN_UNSIGNED, 1}}, "1.3"),
              Contains("2 testTable_get_first_data_point - key 'Value('IpSnmp::IpVersionIfIndex', ** {'ipVersion': "
                       "3, 'ifIndex': 1})' not found in table"));
  end();
  loop = &hint;
  EXPECT_EQ(unwalkableTable.getFirstDataPoint(&loop, nullptr, &iterator), nullptr);
  EXPECT_EQ(loop, nullptr) << "the helper would free the hint";
  EXPECT_THAT(lines.take(), Contains("0 unwalkableTable: there is no walk"));
}

TEST_F(IteratorTableTest, rowsThatComeAndGoBetweenStepsAreMetOnceOrNotAtAll) {
  EXPECT_EQ(first(), "1.3");
  rowDel(1, 3);
  rowDel(1, 20);
  rowIs(1, 1);
  rowIs(1, 30);
  EXPECT_EQ(text(testTableIterationHelper(loop, chain)), "1.3") << "a row that is held stays readable";
  EXPECT_EQ(next(), "1.30");
  rowIs(1, 25);
  EXPECT_EQ(next(), "2.3");
  tree.ipMib->ipIfStatsTableDelAll();
  EXPECT_EQ(next(), "none");
}

TEST_F(IteratorTableTest, aDataContextKeepsItsRowAndFollowsWhenItIsPassed) {
  const auto unheld = tree.ipMib->use_count();
  EXPECT_EQ(first(), "1.3");
  void* kept = testTable_make_data_context(loop, &iterator);
  EXPECT_EQ(tree.ipMib->use_count(), unheld + 2) << "each holds the cache";
  rowDel(1, 3);
  EXPECT_EQ(next(), "1.20");
  EXPECT_EQ(text(testTableIterationHelper(kept, chain)), "1.3");
  data = kept;
  EXPECT_EQ(next(), "2.3");
  EXPECT_EQ(text(testTableIterationHelper(kept, chain)), "2.3");
  end();
  lines.take();
  testTable_free_data_context(kept, &iterator);
  testTable_free_data_context(nullptr, &iterator);
  EXPECT_THAT(withoutPointers(lines.take()),
              ElementsAre("2 testTable_free_data_context ", "2 testTable_free_data_context 0"));
  EXPECT_EQ(testTable_make_data_context(nullptr, &iterator), nullptr);
  EXPECT_EQ(tree.ipMib->use_count(), unheld);
}

// Requests as the helper hands them to the handler, past the serialize handler, which passes them one by one.
class HandlerTest : public IteratorTableTest {
 protected:
  struct Request {
    netsnmp_request_info info{};
    netsnmp_variable_list variable{};
    netsnmp_table_request_info table{};
  };

  ~HandlerTest() override { clear(); }
  void clear() {
    for (auto& request : requests) {
      netsnmp_free_request_data_sets(&request.info);
      snmp_free_var_internals(&request.variable);
    }
    requests.clear();
  }
  Request& add(unsigned column, bool hasRow = true) {
    auto& request = requests.emplace_back();
    request.info.agent_req_info = &requestInfo;
    request.info.requestvb = &request.variable;
    request.table.colnum = column;
    netsnmp_request_add_list_data(&request.info,
                                  netsnmp_create_data_list(TABLE_HANDLER_NAME, &request.table, nullptr));
    if (hasRow) netsnmp_insert_iterator_context(&request.info, &row);
    if (requests.size() > 1) std::prev(requests.end(), 2)->info.next = &request.info;
    return request;
  }
  int call(int mode, const MibTable& table = ::testTable) {
    requestInfo.mode = mode;
    lines.take();
    return table.handle(&requestInfo, &requests.front().info);
  }
  // All but the two lines with which every call begins.
  std::vector<std::string> traced(int mode) {
    auto all = withoutPointers(lines.take());
    EXPECT_EQ(all.at(0), "2 testTable_handler");
    EXPECT_EQ(all.at(1), fmt::format("2 testTable_handler: request mode {}", mode));
    return {all.begin() + 2, all.end()};
  }

  netsnmp_agent_request_info requestInfo{};
  std::list<Request> requests;
  StatsWalker row{Kel::Ptr<const IpSnmp::IpMib>(tree.ipMib)};
};

constexpr const char* processedLine = "2 testTable_handler: request  already processed";

TEST_F(HandlerTest, answersEachRequestThatIsNotYetProcessedUntilOneHasNoRowOrNoColumn) {
  add(2).info.processed = 1;
  const auto& answered = add(2);
  const auto& missing = add(2, false);
  const auto& later = add(2);
  EXPECT_EQ(call(MODE_GET), SNMP_ERR_NOERROR);
  EXPECT_THAT(traced(MODE_GET),
              ElementsAre(processedLine,
                          "2 testTable_handler: request GET for column testPackets, key "
                          "Value('IpSnmp::IpVersionIfIndex', ** {'ipVersion': ipVersion4, 'ifIndex': 3})",
                          "2 testTable_handler: null data context in request"));
  EXPECT_EQ(requests.front().variable.val.string, nullptr);
  EXPECT_EQ(*answered.variable.val.integer, 10003);
  EXPECT_EQ(missing.info.status + later.info.status, 0);
  EXPECT_EQ(later.variable.val.integer, nullptr);
  for (const unsigned number : {0U, 5U, 9U}) {
    clear();
    const auto& invalid = add(number);
    const auto& after = add(2);
    EXPECT_EQ(call(MODE_GET), SNMP_ERR_NOERROR);
    EXPECT_THAT(traced(MODE_GET), ElementsAre(fmt::format("0 testTable invalid column {}", number)));
    EXPECT_EQ(invalid.variable.type, SNMP_NOSUCHOBJECT);
    EXPECT_EQ(after.variable.val.integer, nullptr);
  }
}

TEST_F(HandlerTest, everyPhaseOfASetIsRefused) {
  for (const auto& [number, line] :
       {std::pair{2U, "2 testTable_handler: SET is not configured for column testPackets"},
        {3U, "0 testTable invalid column 3"}}) {
    for (int mode = MODE_SET_RESERVE1; mode <= MODE_SET_UNDO; ++mode) {
      clear();
      add(number).info.processed = 1;
      const auto& refused = add(number);
      const auto& later = add(number);
      EXPECT_EQ(call(mode), SNMP_ERR_NOERROR);
      EXPECT_THAT(traced(mode), ElementsAre(processedLine, line));
      EXPECT_EQ(refused.info.status, SNMP_ERR_NOTWRITABLE);
      EXPECT_EQ(later.info.status, 0);
    }
  }
}

TEST_F(HandlerTest, aTableMayBlameTheFirstRequestForAnyThatFails) {
  for (const auto& [table, blamed] : {std::pair{&blamingTable, 0}, {&::testTable, 1}}) {
    clear();
    const auto& first = add(2);
    const auto& second = add(3);
    EXPECT_EQ(call(MODE_GET, *table), SNMP_ERR_GENERR);
    EXPECT_EQ(first.info.status, blamed == 0 ? SNMP_ERR_GENERR : SNMP_ERR_NOERROR);
    EXPECT_EQ(second.info.status, blamed == 1 ? SNMP_ERR_GENERR : SNMP_ERR_NOERROR);
  }
}

TEST_F(IteratorTableTest, aConversionThatFailsIsGenErr) {
  initialize_table_testTable(SnmpUtil::getSnmpConfig(), "");
  const auto cell = [](unsigned number, const std::string& index) {
    return fmt::format("{}.1.{}.{}", textOf(enterpriseObject({99, 1})), number, index);
  };
  const auto fails = [&](unsigned number, const std::string& index) {
    lines.take();
    const auto reply = agent.send(SNMP_MSG_GET, {cell(2, "1.3"), cell(number, index)});
    EXPECT_EQ(reply.errorStatus, SNMP_ERR_GENERR) << number;
    EXPECT_EQ(reply.errorIndex, 2) << number;
    return lines.take();
  };
  EXPECT_THAT(fails(3, "1.3"), Contains("2 handle_testTable - Failing failed for: failing"));
  const auto thrown = fails(4, "1.3");
  EXPECT_THAT(thrown, Contains("0 testTable: thrown by an accessor"));
  EXPECT_THAT(thrown, Contains("2 handle_testTable - S32ToAsnInteger failed for: throwing"));
  EXPECT_THAT(fails(6, "1.20"), Contains("2 handle_testTable - StringToAsnOctetString failed for: name"));
  EXPECT_THAT(fails(7, "1.3"), Contains("2 handle_testTable - entity /<sysname>/snmp/ip/ipmib length out of range: "
                                        "overlong (5)"));
  EXPECT_EQ(agent.get(cell(6, "1.3")).value, "787878");
  EXPECT_EQ(agent.get(cell(8, "2.1000")).value.size(), 2000U);
  EXPECT_EQ(agent.get(cell(5, "1.3")).value.substr(0, 6), "noSuch") << "a column in a gap";
  EXPECT_EQ(agent.getNext(cell(5, "1.3")).name, cell(6, "1.3"));
  frameTest.leave("");
}

TEST(IteratorTableDeathTest, columnsThatCannotBeServedAreRefusedAtOnce) {
  const auto numbered = [](unsigned number) {
    return column<Row>(number, "testColumn", ASN_INTEGER, s32ToAsnInteger, "", zero);
  };
  const auto make = [](const std::vector<Column<Row>>& columns) {
    return makeIteratorTable<StatsWalker>(
        {.module = frameTest, .name = "refused", .identifier = {1}, .modes = HANDLER_CAN_RONLY, .source = source},
        Index(
            "Test::Key", +[](const unsigned& ifIndex) { return Key(Ip::ipVersion4, ifIndex); },
            unsignedIndex<Key>("testIfIndex", "ifIndex", [](const Key& key) { return unsigned{key.ifIndex()}; })),
        columns);
  };
  std::vector<Column<Row>> many;
  for (unsigned number = 1; number <= MibTable::maxColumns; ++number) many.push_back(numbered(number));
  make(many);
  many.push_back(numbered(MibTable::maxColumns + 1));
  EXPECT_DEATH(make(many), "columns_.size\\(\\) <= maxColumns");
  EXPECT_DEATH(make({}), "!columns_.empty");
  EXPECT_DEATH(make({numbered(2), numbered(2)}), "columnsAscend");
  EXPECT_DEATH(numbered(1).limitedTo(0, "snmp/ip/ipmib"), "bytes > 0");
  EXPECT_DEATH(numbered(1).limitedTo(ColumnBase::maxBufferLength + 1, "snmp/ip/ipmib"), "bytes <= maxBufferLength");
}

}  // namespace
