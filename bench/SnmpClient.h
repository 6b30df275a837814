#pragma once
// A net-snmp client session, for measuring: one request at a time, no retries that would hide a stall.

#include <cstdint>
#include <string>
#include <vector>

namespace Bench {

using Oid = std::vector<std::uint64_t>;

// What one variable of an answer says.
struct Binding {
  Oid name;
  bool isEndOfView = false;
};

class SnmpClient {
 public:
  // `peer` such as "udp:127.0.0.1:1161". Throws std::runtime_error when the session cannot be opened.
  SnmpClient(const std::string& peer, const std::string& community);
  ~SnmpClient();
  SnmpClient(const SnmpClient&) = delete;
  SnmpClient& operator=(const SnmpClient&) = delete;

  // Throw std::runtime_error, naming the fault, on a timeout or an error status.
  std::vector<Binding> getNext(const Oid& name);
  std::vector<Binding> getBulk(const Oid& name, int maxRepetitions);
  // False on a timeout or an error: for waiting until an agent answers.
  bool answers(const Oid& name);

 private:
  std::vector<Binding> request(int command, const Oid& name, int maxRepetitions);
  void* session_;
};

}  // namespace Bench
