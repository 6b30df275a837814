#pragma once
// Bounds what clients of the agent's stream transports (TCP, TLS over TCP, Unix domain) can hold, so that requests over
// UDP are answered whatever those clients do.
//
//   StreamConnections connections;
//   connections.guard(*transport);  // as soon as it listens
//
// Guarantees:
// - A connection is closed when it has received no data for `quorinIdleTimeout` seconds (Snmp::Config; 0: never).
// - At most `mostConnections` are open, or the limit of open files less `reservedFiles` if that is lower. At the limit
//   each new connection replaces the one that is idle longest.
// - When the process has no descriptor left, the connection that is idle longest is closed. After a failure for lack of
//   descriptors or memory, the loop ignores that listening socket for up to a second, so it does not spin.
// - A connection is closed when its client does not read its answers, or when more than `mostUnanswered` bytes brought
//   no answer. So no client blocks the agent, except a TLS client during a handshake or record (docs/operating.md). All
//   connections together hold at most 190 MB.
// - Connections that the agent did not accept, such as the session with an AgentX master, are left alone.
// Requires: at most one object exists at a time; net-snmp has closed the guarded sessions before it is destroyed.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <chrono>
#include <map>
#include <set>

#include "host/composition/FdSet.h"

namespace Host {

class StreamConnections {
 public:
  static constexpr std::size_t mostConnections = 1000;
  static constexpr std::size_t reservedFiles = 48;
  static constexpr std::size_t mostUnanswered = 128 * 1024;

  StreamConnections();
  ~StreamConnections();
  StreamConnections(const StreamConnections&) = delete;
  StreamConnections& operator=(const StreamConnections&) = delete;

  // Replaces the transport's accept, receive, send and close functions; no-op for one that accepts no connections.
  // net-snmp copies the functions to each connection that the transport accepts.
  void guard(netsnmp_transport& listening);
  // Removes the paused listening sockets from `readable`. Call it before each wait; no-op without an object.
  static void removePaused(FdSet& readable);

 private:
  using Clock = std::chrono::steady_clock;
  // net-snmp's own functions for the transports of one domain, such as TCP over IPv4.
  struct Functions {
    decltype(netsnmp_transport::f_accept) accept;
    decltype(netsnmp_transport::f_recv) receive;
    decltype(netsnmp_transport::f_send) send;
    decltype(netsnmp_transport::f_close) close;
  };
  struct Connection {
    Clock::time_point latestData;
    std::size_t unanswered = 0;  // bytes
    bool isEnding = false;       // shut down; net-snmp closes the descriptor at its next read
  };

  static int accept(netsnmp_transport* transport) noexcept;
  static int receive(netsnmp_transport* transport, void* buffer, int size, void** opaque, int* opaqueSize) noexcept;
  static int send(netsnmp_transport* transport, const void* buffer, int size, void** opaque,
                  int* opaqueSize) noexcept;
  static int close(netsnmp_transport* transport) noexcept;
  static void tick(unsigned alarm, void* self) noexcept;

  void admit(int fd);
  void makeRoom();
  void handleFailedAccept(int listeningFd, int error);
  void removeOrphans();
  std::size_t ending() const;
  void endIdle();
  bool endIdlest();
  static void end(int fd, Connection& connection);
  void startTimer();

  static StreamConnections* current;
  std::map<const oid*, Functions> functions_;  // by domain
  std::map<int, Connection> connections_;      // by descriptor
  std::set<int> paused_;                       // listening sockets that accept nothing until the next tick
  unsigned alarm_ = 0;
};

}  // namespace Host
