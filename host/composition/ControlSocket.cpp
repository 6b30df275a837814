#include "host/composition/ControlSocket.h"

#include <absl/cleanup/cleanup.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/composition/AgentLog.h"
#include "host/composition/Turns.h"
#include "kel/Errors.h"

// The session of a subagent with its master, null without one. Exported by the agent library without a header.
extern "C" {
extern netsnmp_session* main_session;
}

namespace Host {

using Json = nlohmann::json;

namespace {

constexpr int servePriority = 8;
constexpr Kel::Seconds servePause = 0.02;
constexpr Kel::Seconds freshFor = 0.1;  // then the agent's state is read again for an answer
constexpr Kel::Seconds acceptPause = 1;
constexpr mode_t ownerAndGroup = 0117;  // umask: 0660

// Bytes of a client or a trace may be no UTF-8.
std::string lineOf(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

const char* nameOf(AgentSnmp::PublisherState state) {
  switch (state) {
    case AgentSnmp::publisherAlive:
      return "alive";
    case AgentSnmp::publisherSilent:
      return "silent";
    case AgentSnmp::publisherGone:
      return "gone";
    case AgentSnmp::publisherStarting:
      return "starting";
    default:
      return "none";
  }
}

const char* nameOf(AgentSnmp::VrfReadiness readiness) {
  switch (readiness) {
    case AgentSnmp::vrfReady:
      return "ready";
    case AgentSnmp::vrfNoContext:
      return "noContext";
    default:
      return "waiting";
  }
}

const char* nameOf(Turns::Kind kind) {
  switch (kind) {
    case Turns::requests:
      return "requests";
    case Turns::tasks:
      return "tasks";
    default:
      return "alarms";
  }
}

Json timeOf(Kel::Seconds time) {
  return time == 0 ? Json() : Json(time);
}

double secondsOf(Turns::Clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

// Of a subagent, whether a master is connected, without which nobody can ask it; else null.
Json masterOf() {
  if (netsnmp_ds_get_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE) == 0) return {};  // a master
  return main_session != nullptr;
}

Json statusOf(const std::string& storeDirectory, const AgentSnmp::AgentMib& mib) {
  const auto lastSeen = mib.publisherLastSeen();
  const auto age = lastSeen == 0 ? Json() : Json(std::max(0.0, static_cast<double>(std::time(nullptr)) - lastSeen));
  return {{"version", QUORIN_VERSION},
          {"pid", ::getpid()},
          {"store", storeDirectory},
          {"ready", mib.isServing() || mib.isStale()},
          {"stale", mib.isStale()},
          {"master", masterOf()},
          {"publisher",
           {{"state", nameOf(mib.publisherState())},
            {"name", mib.publisherName()},
            {"pid", mib.publisherPid()},
            {"start", timeOf(mib.publisherStarted())},
            {"lastPass", timeOf(mib.lastPass())},
            {"lastCommit", timeOf(mib.lastCommit())},
            {"heartbeatAge", age}}},
          {"storeBytes", mib.storeBytes()},
          {"damage", mib.damageCount()},
          {"vrfs", mib.vrfTable().size()},
          {"contexts", mib.contexts()},
          {"requests", mib.requests()},
          {"longestTurn", mib.longestTurn()}};
}

Json contextsOf(const AgentSnmp::AgentMib& mib) {
  auto all = Json::array();
  for (const auto& [name, vrf] : mib.vrfTable()) {
    const auto& text = name.raw();
    all.push_back({{"context", text == "default" ? "" : text}, {"vrf", text}, {"state", nameOf(vrf->readiness())}});
  }
  return {{"contexts", std::move(all)}};
}

Json turnsOf(const Turns& turns) {
  auto all = Json::array();
  for (const auto kind : Turns::kinds) {
    const auto figures = turns.figures(kind);
    all.push_back({{"kind", nameOf(kind)},
                   {"count", figures.count},
                   {"p99", secondsOf(figures.p99)},
                   {"longest", secondsOf(figures.longest)}});
  }
  return {{"turns", std::move(all)}};
}

Json errorOf(const std::string& text) {
  return {{"error", text}};
}

bool fill(sockaddr_un& address, const std::string& path) {
  address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) return false;
  std::memcpy(address.sun_path, path.data(), path.size());
  return true;
}

// Removes the socket that an agent left behind that was killed. Returns null, or why the path cannot be used.
const char* clearPath(const std::string& path, const sockaddr_un& address) {
  struct stat file {};
  if (::lstat(path.c_str(), &file) != 0 || !S_ISSOCK(file.st_mode)) return nullptr;
  const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int connected = ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  const int error = connected == 0 ? EAGAIN : errno;
  ::close(probe);
  if (error == EAGAIN) return "another agent listens there";
  if (error != ECONNREFUSED) return "there is a socket of another user; remove it";
  ::unlink(path.c_str());
  return nullptr;
}

}  // namespace

ControlSocket::ControlSocket(EventLoop& loop, const Kel::Ptr<Brev::TaskScheduler>& scheduler, Sources sources)
    : loop_(loop),
      sources_(std::move(sources)),
      serveTimer_(Kel::makePtr<Brev::TimerTask>(scheduler, "control socket", servePriority,
                                                [this](Brev::Task&) { serveAll(); })) {
}

ControlSocket::~ControlSocket() {
  close();
}

void ControlSocket::pathIs(const Kel::String& path) {
  if (path == path_ && (path.empty() || isOurs(path))) return;
  close();
  path_ = path;
  if (path.empty()) return;
  fd_ = listenAt(path);
  if (fd_ >= 0) loop_.addFd(fd_, [this] { accept(); });
}

// Whether the file is the socket at which this agent listens: another program may have removed or replaced it.
bool ControlSocket::isOurs(const Kel::String& path) const {
  struct stat file {};
  return fd_ >= 0 && ::lstat(path.c_str(), &file) == 0 && file_ == std::pair(file.st_dev, file.st_ino);
}

int ControlSocket::listenAt(const Kel::String& path) {
  sockaddr_un address;
  std::string what = "the path is too long";
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd >= 0 && fill(address, path)) {
    if (const char* const obstacle = clearPath(path, address)) {
      what = obstacle;
    } else {
      const auto before = ::umask(ownerAndGroup);
      const int bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
      what = std::strerror(errno);
      ::umask(before);
      struct stat file {};
      if (bound == 0 && ::listen(fd, SOMAXCONN) == 0 && ::lstat(path.c_str(), &file) == 0) {
        file_ = {file.st_dev, file.st_ino};
        return fd;
      }
    }
  }
  if (fd >= 0) ::close(fd);
  logError(
      "no control socket at {}: {}; quorinctl cannot ask this agent. Choose another path with quorinControlSocket",
      path, what);
  return -1;
}

void ControlSocket::close() {
  serveTimer_->cancelTask();
  while (!clients_.empty()) drop(clients_.begin());
  if (fd_ < 0) return;
  if (isOurs(path_)) ::unlink(path_.c_str());
  if (!isAcceptPaused_) loop_.removeFd(fd_);
  isAcceptPaused_ = false;
  ::close(std::exchange(fd_, -1));
}

void ControlSocket::accept() {
  const int fd = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (fd < 0) {
    if (errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM) return;
    loop_.removeFd(fd_);  // or the loop would spin
    isAcceptPaused_ = true;
    if (!serveTimer_->waiting()) serveTimer_->scheduleTaskDelay(acceptPause);
    return;
  }
  if (clients_.size() >= mostClients) {
    drop(std::min_element(clients_.begin(), clients_.end(),
                          [](const Client& a, const Client& b) { return a.lastActive < b.lastActive; }));
  }
  const auto client = clients_.emplace(clients_.end());
  client->fd = fd;
  client->lastActive = ++activity_;
  try {
    loop_.addFd(fd, [this, client] { read(client); });
  } catch (const Kel::Exception&) {  // the loop of snmpd has no room
    ::close(fd);
    clients_.erase(client);
  }
}

void ControlSocket::drop(ClientAt client) {
  if (!client->isPaused) loop_.removeFd(client->fd);
  ::close(client->fd);
  clients_.erase(client);
}

void ControlSocket::read(ClientAt client) {
  std::array<char, longestLine> bytes;
  const auto size = ::recv(client->fd, bytes.data(), bytes.size(), 0);
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (size <= 0) return drop(client);
  client->lastActive = ++activity_;
  client->input.append(bytes.data(), static_cast<std::size_t>(size));
  serve(client);
}

void ControlSocket::serve(ClientAt client) {
  if (!flush(*client)) return drop(client);
  const auto now = Kel::System::currentTime();
  auto end = client->input.find('\n');
  if (end == std::string::npos && client->input.size() > longestLine) {
    client->output += lineOf(errorOf(fmt::format("a request is a line of at most {} bytes", longestLine)));
    flush(*client);
    return drop(client);
  }
  if (end != std::string::npos && client->output.empty() && now >= client->nextAnswer) {
    const auto line = client->input.substr(0, end);
    client->input.erase(0, end + 1);
    client->nextAnswer = now + servePause;
    answer(*client, line);
    if (!flush(*client)) return drop(client);
    end = client->input.find('\n');
  }
  const bool isBusy = end != std::string::npos || !client->output.empty();
  if (isBusy) serveSoon();
  if (isBusy == client->isPaused) return;
  client->isPaused = isBusy;
  if (isBusy) {
    loop_.removeFd(client->fd);
    return;
  }
  try {
    loop_.addFd(client->fd, [this, client] { read(client); });
  } catch (const Kel::Exception&) {  // the loop of snmpd has no room any more
    client->isPaused = true;
    drop(client);
  }
}

void ControlSocket::serveSoon() {
  if (!serveTimer_->waiting()) serveTimer_->scheduleTaskDelay(servePause);
}

void ControlSocket::serveAll() {
  if (std::exchange(isAcceptPaused_, false)) loop_.addFd(fd_, [this] { accept(); });
  for (auto client = clients_.begin(); client != clients_.end();) serve(client++);
}

void ControlSocket::freshen() {
  const auto now = Kel::System::currentTime();
  if (now < freshUntil_) return;
  freshUntil_ = now + freshFor;
  sources_.refresh();
}

void ControlSocket::answer(Client& client, const std::string& line) {
  constexpr const char* known = R"(send {"request":"status"}, "contexts", "turns" or "trace")";
  const auto json = Json::parse(line, nullptr, false);
  const auto request = json.is_object() ? json.find("request") : json.end();
  Json result;
  if (json.is_discarded()) {
    result = errorOf(std::string("a request is one JSON object in one line; ") + known);
  } else if (!json.is_object() || request == json.end() || !request->is_string()) {
    result = errorOf(std::string("the line names no request; ") + known);
  } else if (*request == "status") {
    freshen();
    result = statusOf(sources_.storeDirectory, *sources_.mib);
  } else if (*request == "contexts") {
    freshen();
    result = contextsOf(*sources_.mib);
  } else if (*request == "turns") {
    result = turnsOf(sources_.turns);
  } else if (*request == "trace") {
    const auto levels = json.find("levels");
    if (levels == json.end() || !levels->is_string()) {
      result = errorOf(R"(a trace needs "levels", such as "IpBase/0-2")");
    } else {
      try {
        client.listener.reset();
        client.listener.emplace(levels->get<std::string>(),
                                [this, &client](const auto& handle, unsigned level, const std::string& text) {
                                  traced(client, handle, level, text);
                                });
        result = {{"tracing", *levels}};
      } catch (const Kel::RangeException& error) {
        result = errorOf(error.what());
      }
    }
  } else {
    result = errorOf(fmt::format("unknown request \"{}\"; {}", request->get<std::string>(), known));
  }
  client.output += lineOf(result);
}

void ControlSocket::traced(Client& client, const Kel::TraceHandle& handle, unsigned level,
                           const std::string& text) {
  if (isTracing_) return;  // a trace of what this function does
  isTracing_ = true;
  const absl::Cleanup done = [this] { isTracing_ = false; };
  if (client.output.size() > mostPending) {
    ++client.lost;
    return;
  }
  if (client.lost != 0) client.output += lineOf({{"lost", std::exchange(client.lost, 0)}});
  client.output += lineOf(
      {{"time", Kel::System::currentTime()}, {"facility", handle.facility()}, {"level", level}, {"text", text}});
  serveSoon();
}

bool ControlSocket::flush(Client& client) {
  while (!client.output.empty()) {
    const auto sent = ::send(client.fd, client.output.data(), client.output.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0) return errno == EAGAIN;
    client.output.erase(0, static_cast<std::size_t>(sent));
  }
  return true;
}

}  // namespace Host
