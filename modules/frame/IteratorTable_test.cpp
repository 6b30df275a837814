// The frame of the tables, on a table of its own: its functions called as net-snmp's table-iterator helper calls them,
// and requests to columns that fail.

#include "modules/frame/IteratorTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>

#include "modules/frame/Scalar.h"
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
auto makeTable(const char* name, const std::vector<Column<Row>>& columns, bool blamesFirst = false) {
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
      columns);
}

const std::vector<Column<Row>> testColumns{
    column<Row>(2, "testPackets", ASN_UNSIGNED, u32ToAsnUnsigned, "packets",
                [](const Row& row) { return static_cast<unsigned>(row.ipIfStatsInPkts()); })
        .refusable(),
    column<Row>(3, "testFailing", ASN_INTEGER, failing, "failing", zero),
    column<Row>(4, "testThrowing", ASN_INTEGER, s32ToAsnInteger, "throwing",
                [](const Row&) -> int { throw Kel::Exception("thrown by an accessor"); }),
    column<Row>(6, "testName", ASN_OCTET_STR, stringToAsnOctetString, "name", inOctets)
        .limitedTo(4, "snmp/ip/ipmib"),
    column<Row>(7, "testOverlong", ASN_OCTET_STR, overlong, "overlong", zero).limitedTo(4, "snmp/ip/ipmib"),
    column<Row>(8, "testLong", ASN_OCTET_STR, stringToAsnOctetString, "", inOctets)};
const auto testTable = makeTable("testTable", testColumns);
// Not registered.
const auto blamingTable = makeTable("blamingTable", testColumns, true);
const auto unwalkableTable = makeTable<UnmakableWalker>("unwalkableTable", testColumns);

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

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  netsnmp_iterator_info iterator{};
  netsnmp_variable_list* chain = nullptr;
  netsnmp_table_request_info hint{};
  void* loop = nullptr;
  void* data = nullptr;
  TraceLines lines{"FrameTest"};
};

TEST_F(IteratorTableTest, aWalkStaysAtItsEnd) {
  EXPECT_EQ(first(), "1.3");
  EXPECT_EQ(data, nullptr);
  for (const char* row : {"1.20", "2.3", "2.1000", "none"}) EXPECT_EQ(next(), row);
  lines.take();
  EXPECT_EQ(next(), "none");
  end();
  EXPECT_EQ(next(), "none");
  EXPECT_THAT(withoutPointers(lines.take()),
              ElementsAre("2 testTable_get_next_data_point - at end of loop context ",
                          "2 testTable_free_loop_context_at_end ",
                          "2 testTable_get_next_data_point - at end of loop context 0"));
  iterator.myvoid = nullptr;
  EXPECT_EQ(first(), "none") << "a record without a cache";
}

TEST_F(IteratorTableTest, aHintGivesTheStartAndWhatIsWrongWithItIsTraced) {
  const u_char isSigned = ASN_INTEGER, isUnsigned = ASN_UNSIGNED;
  const std::string start = "2 testTable_get_first_data_point - ";
  struct Case {
    unsigned count;
    std::vector<std::pair<u_char, long>> components;
    const char* row;
    std::string line;
  };
  for (const auto& [count, components, row, line] :
       {Case{2, {{isSigned, 1}, {isUnsigned, 4}}, "1.20", "2 hint component testIfIndex is '4'"},
        Case{0, {}, "1.3", start + "allocated new loop context , hintMatched=0"},
        Case{3, {{isSigned, 1}, {isUnsigned, 4}}, "1.3", start + "allocated new loop context , hintMatched=0"},
        Case{2, {{isSigned, 1}, {isSigned, 4}}, "1.3", start + "needed 2 components, found only 1"},
        Case{2,
             {{isSigned, 3}, {isUnsigned, 1}},
             "1.3",
             start +
                 "key 'Value('IpSnmp::IpVersionIfIndex', ** {'ipVersion': 3, 'ifIndex': 1})' not found in table"},
        Case{2, {}, "1.3", start + "needed 2 components, found only 0"},
        Case{2,
             {{isSigned, 1}, {isSigned, 4}},
             "1.3",
             "0 hint for testIfIndex has incorrect type! Expecting 66 but got 2"},
        Case{2,
             {{isSigned, 4294967295}, {isUnsigned, 4}},
             "1.3",
             "0 hint for index testVersion of testTable is out of range! "},
        Case{2,
             {{isSigned, 1}, {isUnsigned, 1001}},
             "1.3",
             "0 Bad hint for testTable: Test::Key ctor threw exception: no such interface"}}) {
    hint.number_indexes = count;
    snmp_free_varbind(std::exchange(hint.indexes, nullptr));
    for (const auto& [type, value] : components) {
      snmp_varlist_add_variable(&hint.indexes, nullptr, 0, type, &value, sizeof(value));
    }
    EXPECT_EQ(first(&hint), row) << line;
    EXPECT_THAT(withoutPointers(lines.take()), Contains(StartsWith(line)));
  }
  end();
  loop = &hint;
  EXPECT_EQ(unwalkableTable.getFirstDataPoint(&loop, nullptr, &iterator), nullptr);
  EXPECT_EQ(loop, nullptr) << "the helper would free the hint";
  EXPECT_THAT(lines.take(), Contains("0 unwalkableTable: there is no walk"));
}

TEST_F(IteratorTableTest, aContextKeepsItsRowWhileRowsComeAndGo) {
  const auto unheld = tree.ipMib->use_count();
  EXPECT_EQ(first(), "1.3");
  void* kept = testTable_make_data_context(loop, &iterator);
  EXPECT_EQ(tree.ipMib->use_count(), unheld + 2) << "each holds the cache";
  rowDel(1, 3);
  rowDel(1, 20);
  rowIs(1, 1);
  rowIs(1, 30);
  EXPECT_EQ(text(testTableIterationHelper(loop, chain)), "1.3");
  EXPECT_EQ(next(), "1.30");
  rowIs(1, 25);
  EXPECT_EQ(text(testTableIterationHelper(kept, chain)), "1.3");
  data = kept;
  EXPECT_EQ(next(), "2.3");
  EXPECT_EQ(text(testTableIterationHelper(kept, chain)), "2.3") << "it is passed, and follows";
  tree.ipMib->ipIfStatsTableDelAll();
  EXPECT_EQ(next(), "none");
  end();
  lines.take();
  testTable_free_data_context(kept, &iterator);
  testTable_free_data_context(nullptr, &iterator);
  EXPECT_THAT(withoutPointers(lines.take()),
              ElementsAre("2 testTable_free_data_context ", "2 testTable_free_data_context 0"));
  EXPECT_EQ(testTable_make_data_context(nullptr, &iterator), nullptr);
  EXPECT_EQ(tree.ipMib->use_count(), unheld);
}

struct Request {
  netsnmp_request_info info{};
  netsnmp_variable_list variable{};
  netsnmp_table_request_info table{};
  ~Request() {
    netsnmp_free_request_data_sets(&info);
    snmp_free_var_internals(&variable);
  }
};

// Several requests at once, as no serialize handler passes them.
TEST_F(IteratorTableTest, eachRequestIsAnsweredUntilOneCannotBe) {
  first();
  void* const row = testTable_make_data_context(loop, &iterator);
  struct Case {
    const MibTable& table;
    int mode;
    std::vector<unsigned> columns;  // of which the first is processed already; 0: a request without a row
    const char* outcome;            // the result; and of each request its status, type and value
    const char* line;
  };
  std::vector<Case> cases{
      {::testTable, MODE_GET, {2}, "0; 0 0 0;", "2 testTable_handler: request  already processed"},
      {::testTable,
       MODE_GET,
       {2, 2, 0, 2},
       "0; 0 0 0; 0 66 10003; 0 0 0; 0 0 0;",
       "2 testTable_handler: null data context in request"},
      {::testTable, MODE_GET, {2, 5, 2}, "0; 0 0 0; 0 128 0; 0 0 0;", "0 testTable invalid column 5"},
      {::testTable,
       MODE_GET,
       {2, 3, 2},
       "5; 0 0 0; 5 0 0; 0 0 0;",
       "2 handle_testTable - Failing failed for: failing"},
      {blamingTable,
       MODE_GET,
       {2, 3, 2},
       "5; 5 0 0; 0 0 0; 0 0 0;",
       "2 handle_blamingTable - Failing failed for: failing"}};
  for (int mode = MODE_SET_RESERVE1; mode <= MODE_SET_UNDO; ++mode) {
    cases.push_back({::testTable,
                     mode,
                     {2, 2, 2},
                     "0; 0 0 0; 17 0 0; 0 0 0;",
                     "2 testTable_handler: SET is not configured for column testPackets"});
    cases.push_back({::testTable, mode, {2, 3, 2}, "0; 0 0 0; 17 0 0; 0 0 0;", "0 testTable invalid column 3"});
  }
  for (const auto& [table, mode, columns, outcome, line] : cases) {
    std::list<Request> requests;
    netsnmp_agent_request_info all{};
    all.mode = mode;
    for (const unsigned number : columns) {
      auto& request = requests.emplace_back();
      request.info.processed = requests.size() == 1 ? 1 : 0;
      request.info.agent_req_info = &all;
      request.info.requestvb = &request.variable;
      request.table.colnum = number;
      netsnmp_request_add_list_data(&request.info,
                                    netsnmp_create_data_list(TABLE_HANDLER_NAME, &request.table, nullptr));
      if (number != 0) netsnmp_insert_iterator_context(&request.info, row);
      if (requests.size() > 1) std::prev(requests.end(), 2)->info.next = &request.info;
    }
    auto found = fmt::format("{};", table.handle(&all, &requests.front().info));
    for (const auto& [info, variable, unused] : requests) {
      const auto* const value = variable.val.integer;
      found += fmt::format(" {} {} {};", info.status, variable.type, value != nullptr ? *value : 0);
    }
    EXPECT_EQ(found, outcome) << line;
    EXPECT_EQ(withoutPointers(lines.take()).back(), line);
  }
  testTable_free_data_context(row, &iterator);
}

TEST_F(IteratorTableTest, aScalarThatCannotBeReadIsGenErrAndCannotBeSet) {
  netsnmp_handler_registration registration{};
  netsnmp_agent_request_info info{};
  Scalar scalar{.module = frameTest,
                .name = "testScalar",
                .identifier = {},
                .modes = HANDLER_CAN_RWRITE,
                .priority = scalarPriority,
                .source = source,
                .attribute = "number",
                .asnType = ASN_INTEGER,
                .conversion = "Number",
                .encode = nullptr};
  const auto call = [&](const Kel::Ptr<Kel::Entity>& entity, int mode, int result, int status, const char* line) {
    netsnmp_variable_list variable{};
    netsnmp_request_info request{};
    request.agent_req_info = &info;
    request.requestvb = &variable;
    registration.my_reg_void = entity.get();
    info.mode = mode;
    EXPECT_EQ(handleScalar(scalar, "handle_testScalar", nullptr, &registration, &info, &request), result) << line;
    EXPECT_EQ(request.status, status) << line;
    EXPECT_EQ(lines.take().back(), std::string("2 handle_testScalar - ") + line);
  };
  for (const auto encode :
       {+[](const Kel::Entity&, unsigned char*, int) { return -1; },
        +[](const Kel::Entity&, unsigned char*, int) -> int { throw Kel::Exception("none"); }}) {
    scalar.encode = encode;
    call(tree.ipMib, MODE_GET, SNMP_ERR_GENERR, SNMP_ERR_GENERR, "Number failed for: number");
  }
  const auto* const wrong = "entity /<sysname>/snmp/ip/ipmib is not of type IpSnmp::IpMib";
  call(nullptr, MODE_GET, SNMP_ERR_GENERR, SNMP_ERR_GENERR, wrong);
  call(tree.ipVrfMib, MODE_GET, SNMP_ERR_GENERR, SNMP_ERR_GENERR, wrong);
  call(tree.ipMib, MODE_GETNEXT, SNMP_ERR_GENERR, SNMP_ERR_GENERR, "unknown mode from request: 161");
  for (int mode = MODE_SET_RESERVE1; mode <= MODE_SET_UNDO; ++mode) {
    call(tree.ipMib, mode, SNMP_ERR_NOERROR, SNMP_ERR_NOTWRITABLE, "SET is not configured for testScalar");
  }
}

TEST_F(IteratorTableTest, aConversionThatFailsIsGenErr) {
  initialize_table_testTable(SnmpUtil::getSnmpConfig(), "");
  const auto cell = [](unsigned number, const std::string& index) {
    return fmt::format("{}.1.{}.{}", textOf(enterpriseObject({99, 1})), number, index);
  };
  for (const auto& [number, index, line] :
       {std::tuple{3U, "1.3", "Failing failed for: failing"},
        {4U, "1.3", "S32ToAsnInteger failed for: throwing"},
        {6U, "1.20", "StringToAsnOctetString failed for: name"},
        {7U, "1.3", "entity /<sysname>/snmp/ip/ipmib length out of range: overlong (5)"}}) {
    const auto reply = agent.send(SNMP_MSG_GET, {cell(2, "1.3"), cell(number, index)});
    EXPECT_EQ(reply.errorStatus, SNMP_ERR_GENERR) << number;
    EXPECT_EQ(reply.errorIndex, 2) << number;
    EXPECT_THAT(lines.take(), Contains(std::string("2 handle_testTable - ") + line));
  }
  agent.get(cell(4, "1.3"));
  EXPECT_THAT(lines.take(), Contains("0 testTable: thrown by an accessor"));
  EXPECT_EQ(agent.get(cell(6, "1.3")).value, "787878");
  EXPECT_EQ(agent.get(cell(8, "2.1000")).value.size(), 2000U);
  EXPECT_EQ(agent.get(cell(5, "1.3")).value.substr(0, 6), "noSuch") << "a column in a gap";
  EXPECT_EQ(agent.getNext(cell(5, "1.3")).name, cell(6, "1.3"));
  frameTest.leave("");
}

}  // namespace
