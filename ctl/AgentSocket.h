#pragma once
// A connection to the agent's control socket: one JSON object in a line, both ways.

#include <string>

#include "ctl/Output.h"

namespace Ctl {

class AgentSocket {
 public:
  // Throws Failure: `warning` when no agent can be reached there, `unknown` when the permission is missing. The text
  // says what to do.
  explicit AgentSocket(const std::string& path);
  ~AgentSocket();
  AgentSocket(const AgentSocket&) = delete;
  AgentSocket& operator=(const AgentSocket&) = delete;

  // Sends a request and returns the answer. Throws Failure, also for an answer that reports an error.
  Json request(const Json& request);
  // The next line; null at `deadline`. Throws Failure when the agent closes the connection or sends no JSON.
  Json read(Kel::Seconds deadline);

 private:
  [[noreturn]] void fail(const std::string& what) const;
  [[noreturn]] void failReading() const;

  std::string path_;
  int fd_ = -1;
  std::string buffer_;
};

// Members of an answer for people. An agent of another version may lack them: "-", 0, false, an empty list.
std::string fieldText(const Json& object, const char* name);
double numberOf(const Json& object, const char* name);
bool isTrue(const Json& object, const char* name);
const Json& listOf(const Json& object, const char* name);

}  // namespace Ctl
