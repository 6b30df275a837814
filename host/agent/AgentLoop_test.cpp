// The event loop with real descriptors and a real SNMP socket.

#include "host/agent/AgentLoop.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "host/agent/StreamConnections.h"

namespace {

using Host::AgentLoop;
using ::testing::ElementsAre;

// Readable until it is taken.
struct Event {
  const int fd = eventfd(1, EFD_NONBLOCK);
  ~Event() { close(fd); }
  void take() const {
    eventfd_t value = 0;
    EXPECT_EQ(eventfd_read(fd, &value), 0);
  }
};

TEST(AgentLoop, callbacksRunWhileReadableUntilRemovedOrReplacedAndBeforeTheEndOfTheTurn) {
  AgentLoop loop;
  const Event event, other;
  std::vector<int> calls;
  loop.addFd(event.fd, [&] { calls.push_back(1); });
  EXPECT_TRUE(loop.onTurnEnd([&] { calls.push_back(9); }));
  loop.turn();
  loop.turn();
  loop.onTurnEnd({});
  loop.addFd(event.fd, [&] {
    calls.push_back(2);
    loop.removeFd(event.fd);
    loop.addFd(other.fd, [&] {
      calls.push_back(3);
      loop.stop();
    });
  });
  loop.run();
  EXPECT_THAT(calls, ElementsAre(1, 9, 1, 9, 2, 3));
}

TEST(AgentLoop, aCallbackMayRemoveOrReplaceAnotherReadyOneAndThrow) {
  AgentLoop loop;
  const Event first, second, third, fourth;
  std::vector<int> calls;
  loop.addFd(first.fd, [&] {
    calls.push_back(1);
    first.take();
    loop.removeFd(second.fd);
    loop.removeFd(third.fd);
    loop.addFd(third.fd, [&] { calls.push_back(5); });
    throw std::runtime_error("a broken record");
  });
  loop.addFd(second.fd, [&] { calls.push_back(2); });
  loop.addFd(third.fd, [&] { calls.push_back(3); });
  loop.addFd(fourth.fd, [&] { calls.push_back(4); });
  loop.turn();
  EXPECT_THAT(calls, ElementsAre(1, 4)) << "what was removed must not run in this turn, nor a newcomer";
  loop.turn();
  EXPECT_THAT(calls, ElementsAre(1, 4, 5, 4));
}

TEST(AgentLoop, descriptorsBeyondTheReachOfSelectWork) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_cur <= 2000) GTEST_SKIP() << "this process may not have more than " << limit.rlim_cur << " files";
  AgentLoop loop;
  const Event event;
  ASSERT_EQ(dup2(event.fd, 2000), 2000);
  int calls = 0;
  loop.addFd(2000, [&] { ++calls; });
  loop.turn();
  close(2000);
  EXPECT_EQ(calls, 1);
}

TEST(AgentLoop, aRequestWaitsFromTheDatagramToTheNextTurn) {
  setenv("MIBS", "", 1);
  setenv("SNMPCONFPATH", "/nonexistent", 1);
  init_snmp("agentlooptest");
  netsnmp_transport* transport = netsnmp_transport_open_server("snmp", "udp:127.0.0.1:0");
  ASSERT_NE(transport, nullptr);
  sockaddr_in address{};
  socklen_t length = sizeof(address);
  auto* const to = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(getsockname(transport->sock, to, &length), 0);
  netsnmp_session session;
  snmp_sess_init(&session);
  session.callback = [](int, netsnmp_session*, int, netsnmp_pdu*, void*) { return 1; };
  auto* const listening = snmp_add(&session, transport, nullptr, nullptr);
  ASSERT_NE(listening, nullptr);
  const int sender = socket(AF_INET, SOCK_DGRAM, 0);

  AgentLoop loop;
  const Event event;
  // True as soon as a request waits, false when none does for so long.
  const auto waitsWithin = [&loop](std::chrono::steady_clock::duration duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    while (std::chrono::steady_clock::now() < end) {
      if (loop.requestWaiting()) return true;
    }
    return false;
  };
  loop.addFd(event.fd, [&] {
    event.take();
    EXPECT_FALSE(waitsWithin(2 * AgentLoop::requestCheckInterval));
    EXPECT_EQ(sendto(sender, "x", 1, 0, to, length), 1);
    EXPECT_TRUE(waitsWithin(std::chrono::seconds(60)));
  });
  loop.turn();
  EXPECT_TRUE(loop.requestWaiting()) << "nobody has read it yet";
  loop.turn();
  EXPECT_FALSE(waitsWithin(2 * AgentLoop::requestCheckInterval));
  close(sender);
  snmp_close(listening);
}

constexpr int acceptErrors[] = {EMFILE, ENFILE, ENOBUFS, ENOMEM};
std::vector<std::chrono::steady_clock::time_point> acceptAttempts;
decltype(netsnmp_transport::f_accept) originalAccept = nullptr;

// Fails once with each of the errors.
int failingAccept(netsnmp_transport* transport) {
  acceptAttempts.push_back(std::chrono::steady_clock::now());
  if (acceptAttempts.size() > std::size(acceptErrors)) return originalAccept(transport);
  errno = acceptErrors[acceptAttempts.size() - 1];
  return -1;
}

TEST(StreamConnections, aConnectionThatCannotBeServedLeavesNothingAndTheLoopDoesNotSpin) {
  setenv("MIBS", "", 1);
  setenv("SNMPCONFPATH", "/nonexistent", 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_ALARM_DONT_USE_SIG, 1);
  init_snmp("agentlooptest");
  AgentLoop loop;
  Host::StreamConnections connections;
  netsnmp_transport* transport = netsnmp_transport_open_server("snmp", "tcp:127.0.0.1:0");
  ASSERT_NE(transport, nullptr);
  originalAccept = std::exchange(transport->f_accept, failingAccept);
  connections.guard(*transport);
  netsnmp_session session;
  snmp_sess_init(&session);
  session.callback = [](int, netsnmp_session*, int, netsnmp_pdu*, void*) { return 1; };
  auto* const listening = snmp_add(&session, transport, nullptr, nullptr);
  ASSERT_NE(listening, nullptr);
  transport->f_copy = [](const netsnmp_transport*, netsnmp_transport* accepted) {
    accepted->f_setup_session = [](netsnmp_transport*, netsnmp_session*) { return SNMPERR_GENERR; };
    return 0;
  };
  sockaddr_in address{};
  socklen_t length = sizeof(address);
  auto* const to = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(getsockname(transport->sock, to, &length), 0);
  const int client = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_EQ(connect(client, to, length), 0);

  while (acceptAttempts.size() <= std::size(acceptErrors)) loop.turn();
  for (std::size_t i = 0; i < std::size(acceptErrors); ++i) {
    EXPECT_GT(acceptAttempts[i + 1] - acceptAttempts[i], std::chrono::milliseconds(500))
        << std::strerror(acceptErrors[i]);
  }
  // The last attempt accepted a connection that got no session.
  char byte = 0;
  ssize_t size = -1;
  for (int turns = 0; turns < 3 && size != 0; ++turns) {
    size = recv(client, &byte, 1, MSG_DONTWAIT);
    if (size != 0) loop.turn();
  }
  EXPECT_EQ(size, 0) << "closed, and not forgotten";
  close(client);
  snmp_close(listening);
}

TEST(Turns, showHowManyTookHowLong) {
  using std::chrono::microseconds;
  Host::Turns turns;
  EXPECT_EQ(turns.text(Host::Turns::alarms), "alarms: 0, p99 0.000 ms, longest 0.000 ms");
  for (int i = 0; i < 990; ++i) turns.add(Host::Turns::requests, microseconds(40 + i % 20));
  for (int i = 0; i < 10; ++i) turns.add(Host::Turns::requests, microseconds(7000));
  auto figures = turns.figures(Host::Turns::requests);
  EXPECT_EQ(figures.count, 1000U);
  EXPECT_GE(figures.p99, microseconds(59));
  EXPECT_LE(figures.p99, microseconds(75));
  EXPECT_EQ(figures.longest, microseconds(7000));
  for (int i = 0; i < 10; ++i) turns.add(Host::Turns::requests, microseconds(7000));
  EXPECT_EQ(turns.figures(Host::Turns::requests).p99, microseconds(7000)) << "no longer than the longest";
  for (const long took : {0L, 3L, 4L, 7L, 8L, 1'000'000'007L}) {
    Host::Turns one;
    one.add(Host::Turns::tasks, std::chrono::nanoseconds(took));
    EXPECT_EQ(one.figures(Host::Turns::tasks).p99.count(), took);
  }
}

}  // namespace
