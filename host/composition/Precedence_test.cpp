// Our tables and scalars in an agent that has modules of its own for them.

#include <gmock/gmock.h>

#include "modules/frame/NetSnmp.h"
#include "modules/testing/TestAgent.h"
#include "modules/testing/TestIpTree.h"
#include "snmp/Contexts.h"
#include "snmp/HandlerRegistration.h"

namespace {

// An object of another module, which answers for itself and for everything below it.
class Theirs {
 public:
  explicit Theirs(const std::string& name) : name_(Modules::oidOf(name)) {
    static long value = 4711;
    EXPECT_EQ(netsnmp_register_read_only_long_instance(name.c_str(), name_.data(), name_.size(), &value, nullptr),
              MIB_REGISTERED_OK);
  }
  ~Theirs() { unregister_mib(name_.data(), name_.size()); }

 private:
  Modules::Oid name_;
};

// Once ours is entered, it answers in place of registrations of any depth, whether they came before or after.
TEST(Precedence, oursAnswerInPlaceOfTheirs) {
  auto& agent = Modules::TestAgent::instance();
  const Modules::TestIpTree tree;
  Modules::addressIs(*tree.ipMib, "10.0.0.1", 24, 7);
  Modules::addressIs(*tree.ipMib, "10.0.0.2", 24, 8);
  const std::string ip = "1.3.6.1.2.1.4", table = ip + ".20", entry = table + ".1.";
  Snmp::Contexts alone, contexts;
  alone.enter("");
  const auto expected = agent.walk(ip);
  alone.leave("");
  Snmp::setTakesPrecedence(true);

  const Theirs routes(ip + ".21.1.7"), prefixTable(ip + ".32"), scalar(ip + ".1"), first(entry + "1"),
      third(entry + "3"), last(entry + "5");
  const auto theirs = agent.walk(ip);
  EXPECT_THAT(theirs, ::testing::SizeIs(6));
  contexts.enter("");
  EXPECT_EQ(agent.walk(ip), expected);
  for (const auto& answer : expected) EXPECT_EQ(agent.get(answer.name), answer);
  EXPECT_EQ(agent.send(SNMP_MSG_GETBULK, {table}, "public", 0, 10).answers.at(9).name, entry + "5.10.0.0.2");
  EXPECT_EQ(agent.get(entry + "1.0").type, SNMP_NOSUCHINSTANCE);
  {
    const Theirs column(entry + "2"), whole(table);
    EXPECT_EQ(agent.walk(ip), expected);
    contexts.leave("");
    EXPECT_EQ(agent.get(entry + "2").value, "4711");
  }
  EXPECT_EQ(agent.walk(ip), theirs) << "ours give back what they took";
  Snmp::setTakesPrecedence(false);
}

}  // namespace
