// The functions of ipAddrTable, called as net-snmp's table-iterator helper calls them.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <sstream>

#include "modules/IpBase.h"
#include "modules/testing/TestIpTree.h"

namespace {

using namespace Modules;
using ::testing::ElementsAre;

std::string pointer(const void* value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

// One walk of the table.
class IpAddrWalk : public ::testing::Test {
 protected:
  IpAddrWalk() {
    for (const char* addr : {"10.0.0.1", "10.0.0.3", "10.0.0.5"}) addressIs(*tree.ipMib, addr, 24, 7);
    iterator.myvoid = static_cast<Kel::Entity*>(tree.ipMib.get());
    snmp_varlist_add_variable(&chain, nullptr, 0, ASN_IPADDRESS, nullptr, 0);
  }
  ~IpAddrWalk() override {
    end();
    snmp_free_varbind(chain);
    snmp_free_varbind(hint.indexes);
  }

  void end() {
    if (loop != nullptr) ipAddrTable_free_loop_context_at_end(loop, &iterator);
    loop = nullptr;
  }

  std::string row(const netsnmp_variable_list* index) {
    if (index == nullptr) return "none";
    EXPECT_EQ(index, chain);
    EXPECT_EQ(index->type, 0xC4);
    EXPECT_EQ(index->val_len, 4U);
    const auto* bytes = index->val.string;
    return fmt::format("{}.{}.{}.{}", bytes[0], bytes[1], bytes[2], bytes[3]);
  }
  // The first row, with the hint when it was given one; `lines` has the traces of this call alone.
  std::string first() {
    end();
    loop = hintGiven ? static_cast<void*>(&hint) : nullptr;
    lines.take();
    return row(ipAddrTable_get_first_data_point(&loop, &data, chain, &iterator));
  }
  std::string next() { return row(ipAddrTable_get_next_data_point(&loop, &data, chain, &iterator)); }

  void hintIs(unsigned count, std::vector<std::pair<u_char, std::vector<u_char>>> values) {
    hintGiven = true;
    hint.number_indexes = count;
    snmp_free_varbind(hint.indexes);
    hint.indexes = nullptr;
    for (const auto& [type, bytes] : values) {
      snmp_varlist_add_variable(&hint.indexes, nullptr, 0, type, bytes.data(), bytes.size());
    }
  }
  std::string hintLine(unsigned count) {
    return fmt::format("2 ipAddrTable_get_first_data_point - *hint = {}, number_indexes = {}",
                       pointer(hintGiven ? &hint : nullptr), count);
  }
  std::string allocatedLine(int matched) {
    return "2 ipAddrTable_get_first_data_point - allocated new loop context " + pointer(loop) +
           ", hintMatched=" + std::to_string(matched);
  }
  static std::string rowLine(const char* addr) {
    return std::string("2 ipAddrTableIterationHelper - iterator has another value: ipAdEntAddr=") + addr;
  }

  TestIpTree tree;
  netsnmp_iterator_info iterator{};
  netsnmp_variable_list* chain = nullptr;
  netsnmp_table_request_info hint{};
  bool hintGiven = false;
  void* loop = nullptr;
  void* data = nullptr;
  TraceLines lines{"IpBase"};
};

constexpr const char* oneNeeded = "2 ipAddrTable_get_first_data_point - needed 1 components, found only 0";

TEST_F(IpAddrWalk, withoutAHintFromTheFirstRowToTheEnd) {
  EXPECT_EQ(first(), "10.0.0.1");
  EXPECT_THAT(lines.take(), ElementsAre(hintLine(0), allocatedLine(0), rowLine("10.0.0.1")));
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(next(), "10.0.0.3");
  EXPECT_THAT(lines.take(), ElementsAre("2 ipAddrTable_get_next_data_point - advancing loop context " +
                                            pointer(loop) + " ; data context 0",
                                        rowLine("10.0.0.3")));
  EXPECT_EQ(next(), "10.0.0.5");
  EXPECT_EQ(next(), "none");
  lines.take();
  EXPECT_EQ(next(), "none");
  const auto freed = pointer(loop);
  EXPECT_THAT(lines.take(), ElementsAre("2 ipAddrTable_get_next_data_point - at end of loop context " + freed));
  end();
  EXPECT_THAT(lines.take(), ElementsAre("2 ipAddrTable_free_loop_context_at_end " + freed));
  EXPECT_EQ(next(), "none");
  EXPECT_THAT(lines.take(), ElementsAre("2 ipAddrTable_get_next_data_point - at end of loop context 0"));
}

TEST_F(IpAddrWalk, aHintOnARowOrBetweenTwoStartsThere) {
  hintIs(1, {{ASN_IPADDRESS, {10, 0, 0, 3}}});
  EXPECT_EQ(first(), "10.0.0.3");
  EXPECT_THAT(lines.take(), ElementsAre(hintLine(1), "2 hint component ipAdEntAddr is '10.0.0.3'", allocatedLine(1),
                                        rowLine("10.0.0.3")));
  hintIs(1, {{ASN_IPADDRESS, {10, 0, 0, 2}}});
  EXPECT_EQ(first(), "10.0.0.3");
  EXPECT_THAT(lines.take(), ElementsAre(hintLine(1), "2 hint component ipAdEntAddr is '10.0.0.2'", allocatedLine(0),
                                        rowLine("10.0.0.3")));
}

TEST_F(IpAddrWalk, aHintThatSaysNothingStartsAtTheFirstRow) {
  hintIs(0, {});
  EXPECT_EQ(first(), "10.0.0.1");
  EXPECT_THAT(lines.take(), ElementsAre(hintLine(0), allocatedLine(0), rowLine("10.0.0.1")));
  hintIs(2, {{ASN_IPADDRESS, {10, 0, 0, 3}}, {ASN_IPADDRESS, {10, 0, 0, 3}}});
  EXPECT_EQ(first(), "10.0.0.1");
  EXPECT_THAT(lines.take(), ElementsAre(hintLine(2), allocatedLine(0), rowLine("10.0.0.1")));
  hintIs(1, {});
  EXPECT_EQ(first(), "10.0.0.1");
  EXPECT_THAT(lines.take(), ElementsAre(hintLine(1), oneNeeded, allocatedLine(0), rowLine("10.0.0.1")));
}

TEST_F(IpAddrWalk, aHintPastTheLastRowStartsAtTheFirst) {
  hintIs(1, {{ASN_IPADDRESS, {10, 0, 0, 6}}});
  EXPECT_EQ(first(), "10.0.0.1");
  EXPECT_THAT(lines.take(), ElementsAre(hintLine(1), "2 hint component ipAdEntAddr is '10.0.0.6'",
                                        "2 ipAddrTable_get_first_data_point - key '10.0.0.6' not found in table",
                                        allocatedLine(0), rowLine("10.0.0.1")));
}

TEST_F(IpAddrWalk, anEmptyTableHasNoRow) {
  tree.ipMib->ipAddrTableDelAll();
  EXPECT_EQ(first(), "none");
  EXPECT_THAT(lines.take(),
              ElementsAre(hintLine(0), allocatedLine(0), "2 ipAddrTableIterationHelper - iterator is at end"));
  EXPECT_EQ(next(), "none");
  iterator.myvoid = nullptr;
  EXPECT_EQ(first(), "none") << "a record without a cache";
}

TEST_F(IpAddrWalk, rowsThatComeAndGoBetweenStepsAreMetOnceOrNotAtAll) {
  EXPECT_EQ(first(), "10.0.0.1");
  addressDel(*tree.ipMib, "10.0.0.1");
  addressDel(*tree.ipMib, "10.0.0.3");
  addressIs(*tree.ipMib, "10.0.0.0", 24, 7);
  addressIs(*tree.ipMib, "10.0.0.4", 24, 7);
  EXPECT_EQ(row(ipAddrTableIterationHelper(loop, chain)), "10.0.0.1") << "a row that is held stays readable";
  EXPECT_EQ(next(), "10.0.0.4");
  addressIs(*tree.ipMib, "10.0.0.2", 24, 7);
  EXPECT_EQ(next(), "10.0.0.5");
  addressIs(*tree.ipMib, "10.0.0.6", 24, 7);
  EXPECT_EQ(next(), "10.0.0.6");
  tree.ipMib->ipAddrTableDelAll();
  EXPECT_EQ(next(), "none");
}

TEST_F(IpAddrWalk, aDataContextKeepsItsRowAndFollowsWhenItIsPassed) {
  EXPECT_EQ(first(), "10.0.0.1");
  lines.take();
  data = ipAddrTable_make_data_context(loop, &iterator);
  EXPECT_THAT(lines.take(),
              ElementsAre("2 ipAddrTable_make_data_context - allocated data context " + pointer(data)));
  void* kept = std::exchange(data, nullptr);
  addressDel(*tree.ipMib, "10.0.0.1");
  EXPECT_EQ(next(), "10.0.0.3");
  end();
  EXPECT_EQ(row(ipAddrTableIterationHelper(kept, chain)), "10.0.0.1");
  std::swap(kept, loop);
  data = ipAddrTable_make_data_context(loop, &iterator);
  EXPECT_EQ(next(), "10.0.0.3");
  EXPECT_EQ(row(ipAddrTableIterationHelper(data, chain)), "10.0.0.3");
  lines.take();
  ipAddrTable_free_data_context(data, &iterator);
  ipAddrTable_free_data_context(nullptr, &iterator);
  EXPECT_THAT(lines.take(),
              ElementsAre("2 ipAddrTable_free_data_context " + pointer(data), "2 ipAddrTable_free_data_context 0"));
  EXPECT_EQ(ipAddrTable_make_data_context(nullptr, &iterator), nullptr);
}

TEST_F(IpAddrWalk, contextsHoldTheCacheThatTheyWalk) {
  const auto before = tree.ipMib->use_count();
  EXPECT_EQ(first(), "10.0.0.1");
  data = ipAddrTable_make_data_context(loop, &iterator);
  EXPECT_EQ(tree.ipMib->use_count(), before + 2);
  end();
  ipAddrTable_free_data_context(data, &iterator);
  EXPECT_EQ(tree.ipMib->use_count(), before);
}

// Requests as the helper hands them to the handler.
class IpAddrHandler : public IpAddrWalk {
 protected:
  struct Request {
    netsnmp_request_info info{};
    netsnmp_variable_list variable{};
    netsnmp_table_request_info table{};
  };

  IpAddrHandler() { EXPECT_EQ(first(), "10.0.0.1"); }
  ~IpAddrHandler() override {
    for (auto& request : requests) {
      netsnmp_free_request_data_sets(&request.info);
      snmp_free_var_internals(&request.variable);
    }
    for (void* context : contexts) ipAddrTable_free_data_context(context, &iterator);
  }

  Request& add(unsigned column, bool hasRow = true) {
    auto& request = requests.emplace_back();
    request.info.agent_req_info = &requestInfo;
    request.info.requestvb = &request.variable;
    request.table.colnum = column;
    netsnmp_request_add_list_data(&request.info,
                                  netsnmp_create_data_list(TABLE_HANDLER_NAME, &request.table, nullptr));
    if (hasRow) {
      contexts.push_back(ipAddrTable_make_data_context(loop, &iterator));
      netsnmp_request_add_list_data(&request.info,
                                    netsnmp_create_data_list(TABLE_ITERATOR_NAME, contexts.back(), nullptr));
    }
    if (requests.size() > 1) std::prev(requests.end(), 2)->info.next = &request.info;
    return request;
  }
  int call(int mode) {
    requestInfo.mode = mode;
    lines.take();
    return ipAddrTable_handler(nullptr, nullptr, &requestInfo, &requests.front().info);
  }
  static std::string modeLine(int mode) { return "2 ipAddrTable_handler: request mode " + std::to_string(mode); }
  static std::string passedOver(const Request& request) {
    return "2 ipAddrTable_handler: request " + pointer(&request.info) + " already processed";
  }

  netsnmp_agent_request_info requestInfo{};
  std::list<Request> requests;
  std::vector<void*> contexts;
};

TEST_F(IpAddrHandler, answersEachRequestThatIsNotYetProcessed) {
  auto& processed = add(1);
  processed.info.processed = 1;
  const auto& ifIndex = add(2);
  const auto& size = add(5);
  EXPECT_EQ(call(MODE_GET), SNMP_ERR_NOERROR);
  EXPECT_THAT(lines.take(),
              ElementsAre("2 ipAddrTable_handler", modeLine(160), passedOver(processed),
                          "2 ipAddrTable_handler: request GET for column ipAdEntIfIndex, key 10.0.0.1",
                          "2 ipAddrTable_handler: request GET for column ipAdEntReasmMaxSize, key 10.0.0.1"));
  EXPECT_EQ(processed.variable.val.string, nullptr);
  EXPECT_EQ(*ifIndex.variable.val.integer, 7);
  EXPECT_EQ(*size.variable.val.integer, 65535);
}

TEST_F(IpAddrHandler, withoutARowItStopsAndLeavesTheRestAsItIs) {
  const auto& missing = add(2, false);
  const auto& later = add(2);
  EXPECT_EQ(call(MODE_GET), SNMP_ERR_NOERROR);
  EXPECT_THAT(lines.take(), ElementsAre("2 ipAddrTable_handler", modeLine(160),
                                        "2 ipAddrTable_handler: null data context in request"));
  EXPECT_EQ(missing.info.status + later.info.status, 0);
  EXPECT_EQ(missing.variable.type, 0);
  EXPECT_EQ(later.variable.val.integer, nullptr);
}

TEST_F(IpAddrHandler, aColumnItDoesNotServeIsNoObject) {
  for (const unsigned number : {0U, 6U}) {
    requests.clear();
    auto& invalid = add(number);
    const auto& later = add(2);
    EXPECT_EQ(call(MODE_GET), SNMP_ERR_NOERROR);
    EXPECT_THAT(lines.take(), ElementsAre("2 ipAddrTable_handler", modeLine(160),
                                          "0 ipAddrTable invalid column " + std::to_string(number)));
    EXPECT_EQ(invalid.variable.type, SNMP_NOSUCHOBJECT);
    EXPECT_EQ(later.variable.val.integer, nullptr);
    for (auto& request : requests) netsnmp_free_request_data_sets(&request.info);
  }
  requests.clear();
}

TEST_F(IpAddrHandler, everyPhaseOfASetIsRefused) {
  auto& processed = add(2);
  const auto& refused = add(2);
  const auto& later = add(2);
  for (int mode = MODE_SET_RESERVE1; mode <= MODE_SET_UNDO; ++mode) {
    // As net-snmp leaves the requests before each phase.
    for (auto& request : requests) request.info.processed = &request == &processed ? 1 : 0;
    EXPECT_EQ(call(mode), SNMP_ERR_NOERROR);
    EXPECT_THAT(lines.take(), ElementsAre("2 ipAddrTable_handler", modeLine(mode), passedOver(processed),
                                          "0 ipAddrTable invalid column 2"));
    EXPECT_EQ(refused.info.status, SNMP_ERR_NOTWRITABLE);
    EXPECT_EQ(later.info.status, 0);
  }
}

}  // namespace
