#include "host/agent/StreamConnections.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "kel/Trace.h"
#include "snmp/Config.h"

namespace Host {

static Kel::TraceHandle streamTrace("StreamConnections");

StreamConnections* StreamConnections::current = nullptr;

namespace {

constexpr unsigned secondsPerTick = 1;
// Room for several of the longest answers, so that a client that asks before it has read is no fault.
constexpr int sendBuffer = 256 * 1024;
// For each read of a TLS handshake, which waits in accept(). A client that sends a byte now and then takes longer, so
// docs/operating.md advises against the transport.
constexpr timeval longestReceive{1, 0};
constexpr timeval longestSend{0, 1000};

// What an operator can do where a connection cannot be accepted. Null if the next attempt may succeed at once.
const char* remedyOf(int acceptError) {
  switch (acceptError) {
    case EMFILE:
      return "raise the limit of open files (ulimit -n)";
    case ENFILE:
      return "raise fs.file-max";
    case ENOBUFS:
    case ENOMEM:
      return "free memory";
    default:
      return nullptr;
  }
}

template <class Value>
void setOption(int fd, int option, const Value& value) {
  setsockopt(fd, SOL_SOCKET, option, &value, sizeof(value));
}

void growSendBuffer(int fd) {
  int size = 0;
  socklen_t length = sizeof(size);
  // The kernel reports twice the size that was set.
  if (getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, &length) == 0 && size >= 2 * sendBuffer) return;
  setOption(fd, SO_SNDBUF, sendBuffer);
}

std::size_t admitted() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return StreamConnections::mostConnections;
  if (limit.rlim_cur <= StreamConnections::reservedFiles) return 1;
  return std::min<std::size_t>(limit.rlim_cur - StreamConnections::reservedFiles,
                               StreamConnections::mostConnections);
}

}  // namespace

StreamConnections::StreamConnections() {
  current = this;
}

StreamConnections::~StreamConnections() {
  if (alarm_ != 0) snmp_alarm_unregister(alarm_);
  current = nullptr;
}

void StreamConnections::guard(netsnmp_transport& listening) {
  if ((listening.flags & NETSNMP_TRANSPORT_FLAG_LISTEN) == 0 || listening.f_accept == nullptr) return;
  functions_[listening.domain] = {listening.f_accept, listening.f_recv, listening.f_send, listening.f_close};
  setOption(listening.sock, SO_RCVTIMEO, longestReceive);  // accepted sockets inherit it
  listening.f_accept = accept;
  listening.f_recv = receive;
  listening.f_send = send;
  listening.f_close = close;
}

int StreamConnections::accept(netsnmp_transport* transport) noexcept {
  const auto& functions = current->functions_.at(transport->domain);
  current->makeRoom();
  errno = 0;
  const int fd = functions.accept(transport);
  const int error = errno;
  if (fd >= 0) {
    current->admit(fd);
  } else {
    current->handleFailedAccept(transport->sock, error);
  }
  return fd;
}

int StreamConnections::receive(netsnmp_transport* transport, void* buffer, int size, void** opaque,
                               int* opaqueSize) noexcept {
  const auto& functions = current->functions_.at(transport->domain);
  const auto found = current->connections_.find(transport->sock);
  if (found == current->connections_.end()) return functions.receive(transport, buffer, size, opaque, opaqueSize);
  auto& connection = found->second;
  if (connection.isEnding) return -1;
  const int received = functions.receive(transport, buffer, size, opaque, opaqueSize);
  if (received <= 0) return received;
  connection.latestData = Clock::now();
  connection.unanswered += static_cast<std::size_t>(received);
  if (connection.unanswered > mostUnanswered) {
    QTRACE(streamTrace, 0) << "a client sent " << connection.unanswered
                           << " bytes that brought no answer; its connection is closed";
    end(found->first, connection);
  }
  return received;
}

int StreamConnections::send(netsnmp_transport* transport, const void* buffer, int size, void** opaque,
                            int* opaqueSize) noexcept {
  const auto& functions = current->functions_.at(transport->domain);
  const auto found = current->connections_.find(transport->sock);
  if (found == current->connections_.end()) return functions.send(transport, buffer, size, opaque, opaqueSize);
  auto& connection = found->second;
  if (connection.isEnding) return -1;
  connection.unanswered = 0;
  const int sent = functions.send(transport, buffer, size, opaque, opaqueSize);
  if (sent < size) {
    // What follows half an answer has no meaning to the client.
    QTRACE(streamTrace, 0) << "a client does not read its answers; its connection is closed";
    end(found->first, connection);
  }
  return sent;
}

int StreamConnections::close(netsnmp_transport* transport) noexcept {
  current->connections_.erase(transport->sock);  // -1 when net-snmp closes it again
  return current->functions_.at(transport->domain).close(transport);
}

void StreamConnections::admit(int fd) {
  growSendBuffer(fd);
  setOption(fd, SO_SNDTIMEO, longestSend);
  connections_.insert_or_assign(fd, Connection{Clock::now()});
  startTimer();
}

void StreamConnections::makeRoom() {
  if (connections_.size() - ending() < admitted()) return;
  QTRACE(streamTrace, 0) << "more than " << admitted()
                         << " connections over TCP or Unix sockets; those that are idle longest are closed";
  endIdlest();
}

void StreamConnections::handleFailedAccept(int listeningFd, int error) {
  const char* const remedy = remedyOf(error);
  if (remedy == nullptr) return;
  QTRACE(streamTrace, 0) << "cannot accept a connection: " << std::strerror(error) << "; " << remedy;
  if (error == EMFILE && ending() == 0) endIdlest();
  paused_.insert(listeningFd);
  startTimer();
}

void StreamConnections::removePaused(FdSet& readable) {
  if (current == nullptr) return;
  for (const int fd : current->paused_) readable.remove(fd);
}

// Closes what net-snmp accepted and then failed to make a session of, which it does not close in every case.
void StreamConnections::removeOrphans() {
  FdSet ofSessions;
  int count = 0;
  int canBlock = 1;
  timeval timeout{};
  snmp_select_info2(&count, ofSessions.get(), &timeout, &canBlock);
  std::erase_if(connections_, [&](const auto& entry) {
    const bool isOrphan = !ofSessions.contains(entry.first);
    if (isOrphan) ::close(entry.first);
    return isOrphan;
  });
}

std::size_t StreamConnections::ending() const {
  const auto isEnding = [](const auto& entry) { return entry.second.isEnding; };
  return static_cast<std::size_t>(std::count_if(connections_.begin(), connections_.end(), isEnding));
}

// Returns false if there is no connection to end.
bool StreamConnections::endIdlest() {
  auto idlest = connections_.end();
  for (auto entry = connections_.begin(); entry != connections_.end(); ++entry) {
    if (entry->second.isEnding) continue;
    if (idlest == connections_.end() || entry->second.latestData < idlest->second.latestData) idlest = entry;
  }
  if (idlest == connections_.end()) return false;
  end(idlest->first, idlest->second);
  return true;
}

void StreamConnections::endIdle() {
  const std::chrono::seconds timeout(Snmp::currentConfig()->idleTimeout());
  if (timeout.count() == 0) return;
  const auto now = Clock::now();
  for (auto& [fd, connection] : connections_) {
    if (!connection.isEnding && now - connection.latestData >= timeout) end(fd, connection);
  }
}

void StreamConnections::end(int fd, Connection& connection) {
  connection.isEnding = true;
  shutdown(fd, SHUT_RDWR);
}

void StreamConnections::startTimer() {
  if (alarm_ == 0) alarm_ = snmp_alarm_register(secondsPerTick, 0, tick, this);
}

void StreamConnections::tick(unsigned, void* self) noexcept {
  auto& connections = *static_cast<StreamConnections*>(self);
  connections.alarm_ = 0;
  connections.paused_.clear();
  connections.removeOrphans();
  connections.endIdle();
  if (!connections.connections_.empty()) connections.startTimer();
}

}  // namespace Host
