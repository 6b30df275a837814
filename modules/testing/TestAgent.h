#pragma once
// For tests: net-snmp's agent library as master agent on a loopback UDP port, and a manager that sends it requests,
// both in this process and thread. The community is the context's name; "public" is the default context.

#include <string>
#include <vector>

#include "modules/frame/NetSnmp.h"

namespace Modules {

using Oid = std::vector<oid>;
// Convert between an OID and its text, numbers joined by '.'.
Oid oidOf(const std::string& text);
std::string textOf(const Oid& name);

// One variable of an answer: the type as in net-snmp's headers, and the value as text. Octets are in hexadecimal,
// exceptions by name ("noSuchInstance").
struct Answer {
  std::string name;
  int type = 0;
  std::string value;
  friend bool operator==(const Answer&, const Answer&) = default;
};
std::ostream& operator<<(std::ostream& out, const Answer& answer);

struct Reply {
  long errorStatus = 0;
  long errorIndex = 0;
  std::vector<Answer> answers;
};

class TestAgent {
 public:
  // The only object, since net-snmp has one agent in a process. It lives until the process ends.
  static TestAgent& instance();

  // The version of the manager's requests from here on: SNMP_VERSION_1 or SNMP_VERSION_2c (the default).
  void setVersion(long version) { version_ = version; }

  // Hides subtrees from here on, as a view of VACM does. In a subtree, `any` matches every sub-identifier.
  static constexpr oid any = ~oid{0};
  void hide(std::vector<Oid> subtrees);
  static bool isHidden(const std::string& name);
  // The longest message that the agent sends from here on, in bytes: 484 or more; 0 for its default.
  void setMaxMessage(int bytes) { maxMessage_ = bytes; }

  Answer get(const std::string& name, const std::string& community = "public");
  Answer getNext(const std::string& name, const std::string& community = "public");
  Reply send(int command, const std::vector<std::string>& names, const std::string& community = "public",
             long nonRepeaters = 0, long maxRepetitions = 0);
  // Sets an INTEGER.
  Reply set(const std::string& name, long value, const std::string& community = "public");
  // Walks everything below `root` by GETNEXT.
  std::vector<Answer> walk(const std::string& root, const std::string& community = "public");

  // Runs a shell command while the agent serves, and returns its output, standard error included. "AGENT" in the
  // command stands for the agent's address.
  std::string outputOf(std::string command);

 private:
  TestAgent();
  Reply exchange(netsnmp_pdu* pdu, const std::string& community);

  long version_ = SNMP_VERSION_2c;
  int maxMessage_ = 0;
  std::string address_;
};

}  // namespace Modules
