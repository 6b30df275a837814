#pragma once
// A client of the agent's control socket: each line is one JSON object, in both directions.

#include <string>

#include "ctl/Output.h"

namespace Ctl {

class AgentSocket {
 public:
  // Connects. Throws Failure: `warning` if no agent can be reached there, `unknown` if this process lacks the
  // permission, or if `path` is too long for a socket.
  explicit AgentSocket(const std::string& path);
  ~AgentSocket();
  AgentSocket(const AgentSocket&) = delete;
  AgentSocket& operator=(const AgentSocket&) = delete;

  // Sends a request and returns the next line, the answer. Throws Failure of kind `warning` if none comes within 5 s,
  // if it reports an error, and as read().
  Json request(const Json& request);
  // Waits for the next line. Null if none was complete at `deadline`, a time by Kel::System::currentTime(). Throws
  // Failure of kind `warning` if the agent closes the connection or sends a line that is not JSON.
  Json read(Kel::Seconds deadline);

 private:
  [[noreturn]] void fail(const std::string& what) const;
  [[noreturn]] void failReading() const;

  std::string path_;
  int fd_ = -1;
  std::string buffer_;
};

// Members of an answer. An agent of another version may lack one: the result is then "-", 0, false or an empty list.
// Lifetime: that of `object`.
std::string fieldText(const Json& object, const char* name);
double numberOf(const Json& object, const char* name);
bool isTrue(const Json& object, const char* name);
const Json& listOf(const Json& object, const char* name);

}  // namespace Ctl
