// The VRF tables as a manager sees them.

#include "modules/VrfBase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "modules/frame/Enterprise.h"
#include "modules/testing/TestReference.h"
#include "modules/testing/TestTableTraces.h"
#include "snmp/Contexts.h"

namespace {

using namespace Modules;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::string vrfTable = textOf(enterpriseObject({3, 18, 1, 1}));
const std::string vrfIfTable = textOf(enterpriseObject({3, 18, 1, 2}));

// The name as it stands in an index.
std::string nameIndex(const std::string& name) {
  std::string index = std::to_string(name.size());
  for (const char byte : name) index += "." + std::to_string(static_cast<unsigned char>(byte));
  return index;
}
std::string hex(const std::string& bytes) {
  return fmt::format("{:02x}", fmt::join(std::vector<unsigned char>(bytes.begin(), bytes.end()), ""));
}
std::string cell(unsigned column, const std::string& name) {
  return fmt::format("{}.1.{}.{}", vrfTable, column, nameIndex(name));
}
std::string membership(std::uint32_t ifIndex) {
  return fmt::format("{}.1.1.{}", vrfIfTable, ifIndex);
}

class VrfBase : public ::testing::Test {
 protected:
  VrfBase() {
    init_VrfBase("");
    lines.take();
  }
  ~VrfBase() override { unregister_VrfBase(""); }

  // A VRF whose records say what the arguments say.
  void vrfIs(const std::string& name, bool routes4 = true, bool routes6 = false, const char* distinguisher = "",
             Ip::VrfState state = Ip::vrfStateActive) {
    const auto local = Kel::makePtr<Ip::VrfStatusLocal>(L3::VrfName("any"));
    const auto global = Kel::makePtr<Ip::VrfStatusGlobal>(L3::VrfName("any"));
    const auto config = Kel::makePtr<Ip::VrfConfig>(L3::VrfName("any"));
    local->stateIs(Ip::vrfStateActive);
    global->stateIs(state);
    config->routeDistinguisherIs(Vantu::RouteDistinguisher::fromString(distinguisher));
    const auto routing = Kel::makePtr<Routing::Config>("any");
    const auto routing6 = Kel::makePtr<Routing6::Config>("any");
    routing->routingIs(routes4);
    routing6->routingIs(routes6);
    tree.ipVrfMib->vrfTableIs(Snmp::String(name), config, global, local)
        ->vrfRoutingStatusIs(name, routing, routing6);
    const char* const bits[] = {"00", "40", "80", "c0"};
    reference.add(cell(2, name), ASN_OCTET_STR, bits[(routes4 ? 2 : 0) + (routes6 ? 1 : 0)]);
    reference.add(cell(3, name), ASN_OCTET_STR, hex(distinguisher));
    reference.add(cell(4, name), ASN_INTEGER, state == Ip::vrfStateActive ? "1" : "2");
  }
  void interfaceIs(std::uint32_t ifIndex, const std::string& vrf) {
    tree.ipVrfMib->vrfIfTableIs(ifIndex)->vrfNameIs(vrf);
    reference.add(membership(ifIndex), ASN_OCTET_STR, hex(vrf));
  }
  void expectWalks() {
    for (const auto& root : {vrfTable, vrfIfTable}) EXPECT_EQ(agent.walk(root), reference.below(root));
  }

  TestAgent& agent = TestAgent::instance();
  TestIpTree tree;
  TraceLines lines{"VrfBase"};
  Reference reference;
};

TEST_F(VrfBase, everyColumnOfARow) {
  expectWalks();
  vrfIs("red", true, true, "65000:1");
  vrfIs("default", false, false, "", Ip::vrfStateInactive);
  vrfIs("blue", true, false, "10.0.0.1:7", Ip::vrfStateDeleting);
  vrfIs("v6", false, true);
  interfaceIs(3, "red");
  interfaceIs(12, "blue");
  expectWalks();
  EXPECT_EQ(agent.get(cell(2, "red")).value, "c0");
  EXPECT_EQ(agent.get(cell(3, "red")).value, hex("65000:1"));
  EXPECT_EQ(agent.get(cell(1, "red")).value, "noSuchObject");
  EXPECT_EQ(agent.get(cell(5, "red")).value, "noSuchObject");
  EXPECT_EQ(agent.get(cell(4, "re")).value, "noSuchInstance");
  EXPECT_EQ(agent.getNext(vrfTable).name, cell(2, "v6")) << "the shortest name";
  tree.ipVrfMib->vrfTable(Snmp::String("red"))->vrfRoutingStatusDel();
  EXPECT_EQ(agent.get(cell(2, "red")).value, "00");
}

TEST_F(VrfBase, interfacesOfAnyIndexAreInOrder) {
  for (const std::uint32_t ifIndex : {0xFFFFFFFFU, 0x80000000U, 0x7FFFFFFFU, 5U, 0U}) interfaceIs(ifIndex, "red");
  expectWalks();
  for (const auto& row : reference.below(vrfIfTable)) EXPECT_EQ(agent.get(row.name), row);
}

TEST_F(VrfBase, namesOfAnyBytesAreInOrderOfLengthAndBytes) {
  std::mt19937 random{18};
  for (int i = 0; i < 150; ++i) {
    const std::size_t lengths[] = {0, 1, 1, 2, 3, 99, 100, random() % 101};
    std::string name(lengths[random() % std::size(lengths)], 'x');
    const unsigned char bytes[] = {0, 1, ' ', '.', '/', 'a', 'b', 127, 128, 255};
    for (char& byte : name) byte = static_cast<char>(bytes[random() % std::size(bytes)]);
    if (!tree.ipVrfMib->vrfTableHas(Snmp::String(name))) vrfIs(name, i % 2 == 0);
  }
  expectWalks();
  const auto all = reference.below(vrfTable);
  for (int i = 0; i < 1500; ++i) {
    Oid name = oidOf(all[random() % all.size()].name);
    const std::size_t at = 12 + random() % (name.size() - 12);
    if (random() % 2 == 0) name.resize(at);
    const oid numbers[] = {0, 1, 2, 99, 100, 101, 128, 129, 255, 256, 4294967295};
    if (random() % 2 == 0) name.push_back(numbers[random() % std::size(numbers)]);
    if (random() % 2 == 0 && at < name.size()) name[at] = numbers[random() % std::size(numbers)];
    const auto from = textOf(name);
    const auto expected = reference.next(from);
    ASSERT_EQ(agent.getNext(from), expected) << "after " << from;
    const auto here = reference.get(from);
    if (here.type != 0) {
      ASSERT_EQ(agent.get(from), here);
    } else {
      ASSERT_EQ(agent.get(from).value.substr(0, 6), "noSuch") << from;
    }
  }
}

TEST_F(VrfBase, aNameThatDoesNotFitAnOidHidesNoOther) {
  vrfIs("red");
  vrfIs(std::string(114, 'l'));
  const auto served = reference.below(vrfTable);
  for (const std::size_t length : {115UL, 128UL, 2000UL}) vrfIs(std::string(length, 'l'));
  EXPECT_EQ(agent.walk(vrfTable), served);
  EXPECT_EQ(agent.getNext(cell(2, std::string(114, 'l'))).name, cell(3, "red"));
  EXPECT_THAT(lines.take(), Contains("0 quorinVrfTable: the index of the row " + std::string(115, 'l') +
                                     " cannot be written; the row is not served"));
  // An index that claims more than it has, and one of the longest that a request may have.
  EXPECT_EQ(agent.getNext(vrfTable + ".1.2.120.108").name, cell(3, "red"));
  EXPECT_EQ(agent.getNext(cell(4, std::string(114, 'z'))).type, SNMP_ENDOFMIBVIEW);
  EXPECT_EQ(agent.get(cell(4, std::string(114, 'z'))).value, "noSuchInstance");
}

TEST_F(VrfBase, aMembershipOfMoreThanAHundredBytesIsGenErr) {
  interfaceIs(3, std::string(100, 'r'));
  interfaceIs(4, std::string(101, 'r'));
  EXPECT_EQ(agent.get(membership(3)).value, hex(std::string(100, 'r')));
  lines.take();
  const auto reply = agent.send(SNMP_MSG_GET, {membership(3), membership(4)});
  EXPECT_EQ(reply.errorStatus, SNMP_ERR_GENERR);
  EXPECT_EQ(reply.errorIndex, 2);
  EXPECT_THAT(lines.take(), Contains("2 handle_quorinVrfIfTable - StringToAsnOctetString failed for: vrfName"));
}

TEST_F(VrfBase, setIsRefused) {
  vrfIs("red");
  interfaceIs(3, "red");
  for (const auto& name : {cell(2, "red"), cell(4, "red"), cell(4, "blue"), membership(3)}) {
    EXPECT_EQ(agent.set(name, 1).errorStatus, SNMP_ERR_NOTWRITABLE) << name;
  }
  expectWalks();
}

TEST_F(VrfBase, tracesOfAGet) {
  vrfIs("red");
  interfaceIs(3, "red");
  const auto get = [this](const std::string& name) {
    lines.take();
    agent.get(name);
    return withoutPointers(lines.take());
  };
  const char* const objects[] = {"quorinVrfRoutingStatus", "quorinVrfRouteDistinguisher", "quorinVrfState"};
  for (unsigned column = 2; column <= 4; ++column) {
    EXPECT_EQ(get(cell(column, "red")), tracesOfGet("quorinVrfTable", {{"quorinVrfName", "red"}},
                                                    {{"vrfName", "red"}}, objects[column - 2], "red"));
  }
  EXPECT_EQ(get(membership(3)),
            tracesOfGet("quorinVrfIfTable", {{"ifIndex", "3"}}, {{"ifIndex", "3"}}, "quorinVrfIfMembership", "3"));
}

TEST_F(VrfBase, tracesOfHintsThatSayTooLittleAndHintsPastTheEnd) {
  vrfIs("red");
  interfaceIs(3, "red");
  const auto next = [this](const std::string& name) {
    lines.take();
    agent.getNext(name);
    return lines.take();
  };
  EXPECT_THAT(next(vrfTable),
              Contains("2 quorinVrfTable_get_first_data_point - needed 1 components, found only 0"));
  EXPECT_THAT(next(vrfIfTable),
              Contains("2 quorinVrfIfTable_get_first_data_point - needed 1 components, found only 0"));
  EXPECT_THAT(next(cell(2, "reds")),
              Contains("2 quorinVrfTable_get_first_data_point - key 'reds' not found in table"));
  EXPECT_THAT(next(membership(4)),
              Contains("2 quorinVrfIfTable_get_first_data_point - key '4' not found in table"));
}

TEST_F(VrfBase, isServedInTheDefaultContextAlone) {
  vrfIs("red");
  init_VrfBase("red");
  EXPECT_THAT(
      lines.take(),
      ElementsAre("1 initialize_table_quorinVrfTable initializing oid ." + vrfTable + " in context \"red\"",
                  "2 initialize_table_quorinVrfTable in context \"red\" varnixPathWithContext not specified ",
                  "1 initialize_table_quorinVrfIfTable initializing oid ." + vrfIfTable + " in context \"red\"",
                  "2 initialize_table_quorinVrfIfTable in context \"red\" varnixPathWithContext not specified "));
  EXPECT_THAT(Snmp::mibContextModules("red"), ElementsAre("VrfBase"));
  EXPECT_THAT(agent.walk(vrfTable, "red"), IsEmpty());
  unregister_VrfBase("red");
  EXPECT_THAT(Snmp::mibContextModules("red"), IsEmpty());
  expectWalks();
  unregister_VrfBase("");
  EXPECT_THAT(agent.walk(vrfTable), IsEmpty());
  init_VrfBase("");
  EXPECT_THAT(lines.take(), ::testing::IsSupersetOf({"2 Unregistering VrfBase in context \"red\"",
                                                     "2 Unregistering VrfBase in context \"\"",
                                                     "8 Initialized table quorinVrfTable in context \"\"",
                                                     "8 Initialized table quorinVrfIfTable in context \"\""}));
  expectWalks();
}

// As the MIB texts have it, with the standard modules' stand-ins alone and without any.
TEST_F(VrfBase, snmptableShowsItByName) {
  vrfIs("red", true, true, "65000:1");
  vrfIs("blue", false, false, "", Ip::vrfStateInactive);
  interfaceIs(3, "red");
  for (const char* path : {QUORIN_MIB_DIR ":" QUORIN_MIB_DIR "/standard", QUORIN_MIB_DIR}) {
    const auto table = [&](const char* name) {
      return agent.outputOf(fmt::format(
          "env -u MIBS -u MIBDIRS snmptable -v2c -c public -Cif ';' -M {} -m QUORIN-VRF-MIB AGENT {}", path, name));
    };
    const auto vrfs = table("quorinVrfTable");
    EXPECT_THAT(vrfs, HasSubstr("index;quorinVrfRoutingStatus;quorinVrfRouteDistinguisher;quorinVrfState\n"));
    EXPECT_THAT(vrfs, HasSubstr("\"red\";\"C0 \";65000:1;active\n"));
    EXPECT_THAT(vrfs, HasSubstr("\"blue\";\"00 \";;inactive\n"));
    EXPECT_THAT(table("quorinVrfIfTable"), HasSubstr("index;quorinVrfIfMembership\n3;red\n"));
  }
}

TEST_F(VrfBase, endsTheProcessWithoutItsCache) {
  unregister_VrfBase("");
  const auto ip = Kel::dynamicPtr<Kel::Dir>(SnmpUtil::getEntityRelative("snmp/ip"));
  ip->entityDel("ipvrfmib");
  EXPECT_DEATH(init_VrfBase(""),
               "^Can not getEntityRelative\\( snmp/ip/ipvrfmib \\) for table quorinVrfTable. Is this path "
               "correct\\?\n[^\n]*: assertion failed: e\n");
  ip->entityIs(Kel::makePtr<IpSnmp::IpMib>("ipvrfmib"));
  EXPECT_DEATH(init_VrfBase(""), "^snmp/ip/ipvrfmib does not appear to be of type IpSnmp::IpVrfMib.\n");
}

}  // namespace
