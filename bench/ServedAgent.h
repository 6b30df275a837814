#pragma once
// A real agent in a process of its own, on a loopback port, serving an ipAddrTable of a given size.

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace Bench {

constexpr std::uint32_t addressStep = 4;  // gaps, so that a random index often lies between two rows
// The i-th address of the table, and the address after the last one.
std::uint32_t addressAt(std::uint32_t i);

class ServedAgent {
 public:
  static constexpr const char* community = "bench";

  // Returns when the agent answers. Throws std::runtime_error when it does not within two minutes.
  explicit ServedAgent(std::uint32_t rows);
  // Stops it.
  ~ServedAgent();
  ServedAgent(const ServedAgent&) = delete;
  ServedAgent& operator=(const ServedAgent&) = delete;

  const std::string& endpoint() const { return endpoint_; }
  // Resident memory of the agent, in bytes.
  std::uint64_t residentBytes() const;

 private:
  std::string endpoint_;
  std::string directory_;
  pid_t pid_ = -1;
};

}  // namespace Bench
