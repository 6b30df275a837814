#pragma once
// A client session of net-snmp (SNMPv2c) for measurements: one request at a time, by default without retries, which
// would hide a stall.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace Bench {

using Oid = std::vector<std::uint64_t>;

// One variable of an answer.
struct Binding {
  Oid name;
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

  // Throw Unanswered, or std::runtime_error that names the error status of the answer.
  std::vector<Binding> get(const Oid& name);
  std::vector<Binding> getNext(const Oid& name);
  // Requests all names in one message. The answer has one binding for each name, in order, then the next repetition.
  std::vector<Binding> getBulk(const std::vector<Oid>& names, int maxRepetitions);
  // Returns false on a timeout or an error. For waiting until an agent answers.
  bool answers(const Oid& name);

 private:
  std::vector<Binding> request(int command, const std::vector<Oid>& names, int maxRepetitions);
  void* session_;
};

}  // namespace Bench
