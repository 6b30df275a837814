#pragma once
// A client session of net-snmp (SNMPv2c) for measurements: one request at a time, by default without retries, which
// would hide a stall. It copies nothing of an answer, since it shares a processor with the agent that it measures.

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

struct snmp_pdu;

namespace Bench {

using Oid = std::vector<std::uint64_t>;
using Name = std::span<const std::uint64_t>;

// One variable of an answer. Lifetime: the name is valid until the client's next request.
struct Binding {
  Name name;
  bool isEndOfView = false;  // an exception value: endOfMibView, noSuchObject or noSuchInstance
};

// The time until a request is sent again, and how many times it is sent again.
struct Patience {
  long timeoutMicroseconds = 10'000'000;
  int retries = 0;
};

// No answer in time, or the request could not be sent.
class Unanswered : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

class SnmpClient {
 public:
  // `peer`: "udp:127.0.0.1:1161", for example. Throws std::runtime_error if the session cannot be opened.
  SnmpClient(const std::string& peer, const std::string& community, Patience patience = {});
  ~SnmpClient();
  SnmpClient(const SnmpClient&) = delete;
  SnmpClient& operator=(const SnmpClient&) = delete;

  // Throw Unanswered, or std::runtime_error that names the error status of the answer. Lifetime: what they return is
  // valid until the next request.
  const std::vector<Binding>& get(const Oid& name);
  const std::vector<Binding>& getNext(const Oid& name);
  // Requests all names in one message. The answer has one binding for each name, in order, then the next repetition.
  const std::vector<Binding>& getBulk(std::span<const Oid> names, int maxRepetitions);
  // Returns false on a timeout or an error. For waiting until an agent answers.
  bool answers(const Oid& name);

 private:
  const std::vector<Binding>& request(int command, std::span<const Oid> names, int maxRepetitions);
  void takeAnswer(snmp_pdu* answer);

  void* session_;
  snmp_pdu* answer_ = nullptr;     // the latest
  std::vector<Binding> bindings_;  // of it
};

}  // namespace Bench
