#include "ctl/AgentSocket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Ctl {
namespace {

constexpr Kel::Seconds patience = 5;                        // for an answer
constexpr std::size_t longestLine = std::size_t{16} << 20;  // of what calls itself an agent

}  // namespace

AgentSocket::AgentSocket(const std::string& path) : path_(path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    throw Failure(Exit::unknown, fmt::format("the path of the agent's socket, {}, is longer than {} bytes; name "
                                             "another one with --agent",
                                             path, sizeof(address.sun_path) - 1));
  }
  path.copy(address.sun_path, path.size());
  fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) throw Failure(Exit::unknown, fmt::format("cannot make a socket: {}", std::strerror(errno)));
  if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return;
  const int error = errno;
  close(fd_);
  if (error == EACCES || error == EPERM) {
    throw Failure(Exit::unknown,
                  fmt::format("you may not use the agent's socket {}; run as root, or add your user to "
                              "the socket's group (adduser USER quorin) and log in again",
                              path));
  }
  throw Failure(Exit::warning,
                fmt::format("the agent is not reachable: {}: {}; start quorind, or name its socket with "
                            "--agent (its token quorinControlSocket)",
                            path, std::strerror(error)));
}

AgentSocket::~AgentSocket() {
  close(fd_);
}

void AgentSocket::fail(const std::string& what) const {
  throw Failure(Exit::warning, fmt::format("the agent at {} {}", path_, what));
}

void AgentSocket::failReading() const {
  fail(fmt::format("closed the connection{}; see its log, or start it again",
                   errno != 0 ? fmt::format(" ({})", std::strerror(errno)) : ""));
}

Json AgentSocket::request(const Json& request) {
  const auto line = jsonText(request) + "\n";
  for (std::size_t sent = 0; sent < line.size();) {
    const ssize_t size = send(fd_, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) failReading();
    sent += static_cast<std::size_t>(size);
  }
  const auto answer = read(Kel::System::currentTime() + patience);
  if (answer.is_null())
    fail(fmt::format("has not answered within {} s; it may be busy: see quorinctl turns", patience));
  if (!answer.is_object()) fail("sent no JSON object; is it an agent of another version?");
  if (const auto error = answer.find("error"); error != answer.end()) {
    fail("refuses: " + (error->is_string() ? error->get<std::string>() : jsonText(*error)));
  }
  return answer;
}

Json AgentSocket::read(Kel::Seconds deadline) {
  for (;;) {
    if (const auto end = buffer_.find('\n'); end != std::string::npos) {
      auto line = Json::parse(buffer_.substr(0, end), nullptr, false);
      buffer_.erase(0, end + 1);
      if (line.is_discarded()) fail("sent no JSON; is it an agent of another version?");
      return line;
    }
    if (buffer_.size() > longestLine) fail("sent a line without end; is it an agent?");
    const Kel::Seconds left = deadline - Kel::System::currentTime();
    if (left <= 0) return nullptr;
    pollfd entry{fd_, POLLIN, 0};
    const int ready = poll(&entry, 1, static_cast<int>(std::min(left, 60.0) * 1000) + 1);
    if (ready < 0 && errno != EINTR) failReading();
    if (ready <= 0) continue;
    char bytes[65536];
    const ssize_t size = recv(fd_, bytes, sizeof(bytes), 0);
    if (size < 0 && errno == EINTR) continue;
    if (size == 0) errno = 0;
    if (size <= 0) failReading();
    buffer_.append(bytes, static_cast<std::size_t>(size));
  }
}

std::string fieldText(const Json& object, const char* name) {
  const auto at = object.find(name);
  return at == object.end() || at->is_null() ? "-"
         : at->is_string()                   ? nameText(at->get<std::string>())
                                             : at->dump();
}

double numberOf(const Json& object, const char* name) {
  const auto at = object.find(name);
  return at != object.end() && at->is_number() ? at->get<double>() : 0;
}

bool isTrue(const Json& object, const char* name) {
  const auto at = object.find(name);
  return at != object.end() && at->is_boolean() && at->get<bool>();
}

const Json& listOf(const Json& object, const char* name) {
  static const Json none = Json::array();
  const auto at = object.find(name);
  return at != object.end() && at->is_array() ? *at : none;
}

}  // namespace Ctl
