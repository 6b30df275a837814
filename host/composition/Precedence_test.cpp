// Our tables and scalars in an agent that has modules of its own for them.

#include <gmock/gmock.h>

#include "modules/frame/NetSnmp.h"
#include "modules/testing/TestAgent.h"
#include "modules/testing/TestIpTree.h"
#include "snmp/Contexts.h"
#include "snmp/HandlerRegistration.h"

namespace {

using Modules::Oid;
using Modules::oidOf;

constexpr long theirValue = 4711;

// Answers any GET, and a GETNEXT with the instance ".0" of the object that it is registered for.
extern "C" int theirHandler(netsnmp_mib_handler*, netsnmp_handler_registration* registration,
                            netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  for (auto* request = requests; request != nullptr; request = request->next) {
    auto* const variable = request->requestvb;
    Oid instance(registration->rootoid, registration->rootoid + registration->rootoid_len);
    instance.push_back(0);
    if (info->mode == MODE_GETNEXT) {
      if (snmp_oid_compare(variable->name, variable->name_length, instance.data(), instance.size()) >= 0) continue;
      snmp_set_var_objid(variable, instance.data(), instance.size());
    }
    snmp_set_var_typed_integer(variable, ASN_INTEGER, theirValue);
  }
  return SNMP_ERR_NOERROR;
}

class Theirs {
 public:
  explicit Theirs(const std::string& name) : name_(oidOf(name)) {
    auto* const registration = netsnmp_create_handler_registration(name.c_str(), theirHandler, name_.data(),
                                                                   name_.size(), HANDLER_CAN_RONLY);
    EXPECT_EQ(netsnmp_register_handler(registration), MIB_REGISTERED_OK);
  }
  ~Theirs() { unregister_mib(name_.data(), name_.size()); }
  Theirs(const Theirs&) = delete;
  Theirs& operator=(const Theirs&) = delete;

 private:
  Oid name_;
};

constexpr const char* addrTable = "1.3.6.1.2.1.4.20";
constexpr const char* prefixTable = "1.3.6.1.2.1.4.32";
constexpr const char* ipForwardingObject = "1.3.6.1.2.1.4.1";

class PrecedenceTest : public ::testing::Test {
 protected:
  PrecedenceTest() {
    Modules::addressIs(*tree.ipMib, "10.0.0.1", 24, 7);
    Modules::addressIs(*tree.ipMib, "10.0.0.2", 24, 8);
    Modules::addressIs(*tree.redIpMib, "10.0.0.3", 24, 9);
    alone.enter("");
    expected = agent.walk("1.3.6.1.2.1.4");
    alone.leave("");
    Snmp::takesPrecedenceIs(true);
  }
  ~PrecedenceTest() override { Snmp::takesPrecedenceIs(false); }

  Modules::TestAgent& agent = Modules::TestAgent::instance();
  Modules::TestIpTree tree;
  Snmp::Contexts alone;
  Snmp::Contexts contexts;
  std::vector<Modules::Answer> expected;
};

TEST_F(PrecedenceTest, oursAnswerInPlaceOfTablesOfAnyDepth) {
  const Theirs whole(prefixTable);
  const Theirs scalar(ipForwardingObject);
  const Theirs first("1.3.6.1.2.1.4.20.1.1");
  const Theirs third("1.3.6.1.2.1.4.20.1.3");
  const Theirs last("1.3.6.1.2.1.4.20.1.5");
  const auto theirs = agent.walk("1.3.6.1.2.1.4");
  EXPECT_THAT(theirs, ::testing::SizeIs(5));

  contexts.enter("");
  EXPECT_EQ(agent.walk("1.3.6.1.2.1.4"), expected);
  for (const auto& answer : expected) EXPECT_EQ(agent.get(answer.name), answer);
  const auto bulk = agent.send(SNMP_MSG_GETBULK, {addrTable}, "public", 0, static_cast<long>(expected.size()));
  EXPECT_EQ(bulk.answers.at(0), agent.getNext(addrTable));
  EXPECT_EQ(bulk.answers.at(9).name, "1.3.6.1.2.1.4.20.1.5.10.0.0.2");
  EXPECT_EQ(agent.get("1.3.6.1.2.1.4.20.1.1.0").type, SNMP_NOSUCHINSTANCE);
  EXPECT_EQ(agent.set("1.3.6.1.2.1.4.20.1.2.10.0.0.1", 1).errorStatus, SNMP_ERR_NOTWRITABLE);

  contexts.enter("red");
  EXPECT_EQ(agent.get("1.3.6.1.2.1.4.20.1.2.10.0.0.3", "red").value, "9");
  contexts.leave("red");

  contexts.leave("");
  EXPECT_EQ(agent.walk("1.3.6.1.2.1.4"), theirs) << "unloaded, ours give back what they took";
}

TEST_F(PrecedenceTest, modulesThatComeLaterDoNotGoBeforeOurs) {
  contexts.enter("");
  const Theirs column("1.3.6.1.2.1.4.20.1.2");
  const Theirs table(addrTable);
  EXPECT_EQ(agent.walk("1.3.6.1.2.1.4"), expected);
  contexts.leave("");
  EXPECT_EQ(agent.get("1.3.6.1.2.1.4.20.1.2.0").value, std::to_string(theirValue));
}

}  // namespace
