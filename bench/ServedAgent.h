#pragma once
// A real agent in its own process, on a loopback port, with an ipAddrTable of a given size.

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace Bench {

constexpr std::uint32_t addressStep = 4;  // leaves gaps, so that a random index is often between two rows
// The i-th address of the table; for i == rows, the address after the last one.
std::uint32_t addressAt(std::uint32_t i);

class ServedAgent {
 public:
  static constexpr const char* community = "bench";

  // Returns when the agent answers. Throws std::runtime_error if it does not within two minutes.
  explicit ServedAgent(std::uint32_t rows);
  // Stops the agent.
  ~ServedAgent();
  ServedAgent(const ServedAgent&) = delete;
  ServedAgent& operator=(const ServedAgent&) = delete;

  const std::string& endpoint() const { return endpoint_; }
  // The resident memory of the agent, in bytes.
  std::uint64_t residentBytes() const;

 private:
  std::string endpoint_;
  std::string directory_;
  pid_t pid_ = -1;
};

}  // namespace Bench
