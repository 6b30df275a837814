// The event loop with real descriptors and a real SNMP socket.

#include "host/agent/AgentLoop.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

namespace {

using Host::AgentLoop;
using ::testing::ElementsAre;

class Event {
 public:
  Event() : fd_(eventfd(0, EFD_NONBLOCK)) {}
  ~Event() { close(fd_); }
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  int fd() const { return fd_; }
  void raise() const { EXPECT_EQ(eventfd_write(fd_, 1), 0); }
  void take() const {
    eventfd_t value = 0;
    EXPECT_EQ(eventfd_read(fd_, &value), 0);
  }

 private:
  int fd_;
};

TEST(AgentLoop, callbacksRunWhileReadableUntilRemovedOrReplaced) {
  AgentLoop loop;
  Event event;
  std::vector<int> calls;
  event.raise();
  loop.addFd(event.fd(), [&] { calls.push_back(1); });
  loop.turn();
  loop.turn();
  loop.addFd(event.fd(), [&] {
    calls.push_back(2);
    loop.removeFd(event.fd());
  });
  loop.turn();
  Event other;
  other.raise();
  loop.addFd(other.fd(), [&] {
    calls.push_back(3);
    loop.stop();
  });
  loop.run();
  EXPECT_THAT(calls, ElementsAre(1, 1, 2, 3));
}

TEST(AgentLoop, theEndOfATurnComesAfterItsCallbacks) {
  AgentLoop loop;
  Event event;
  event.raise();
  std::vector<int> calls;
  loop.addFd(event.fd(), [&] { calls.push_back(1); });
  EXPECT_TRUE(loop.turnEndIs([&] { calls.push_back(2); }));
  loop.turn();
  loop.turn();
  loop.turnEndIs({});
  loop.turn();
  EXPECT_THAT(calls, ElementsAre(1, 2, 1, 2, 1));
}

TEST(AgentLoop, aCallbackMayRemoveOrReplaceAnotherReadyOne) {
  AgentLoop loop;
  Event first;
  Event second;
  Event third;
  std::vector<int> calls;
  for (const Event* event : {&first, &second, &third}) event->raise();
  ASSERT_LT(first.fd(), second.fd());
  loop.addFd(first.fd(), [&] {
    calls.push_back(1);
    first.take();
    loop.removeFd(second.fd());
    loop.removeFd(third.fd());
    loop.addFd(third.fd(), [&] { calls.push_back(4); });
  });
  loop.addFd(second.fd(), [&] { calls.push_back(2); });
  loop.addFd(third.fd(), [&] { calls.push_back(3); });
  loop.turn();
  EXPECT_THAT(calls, ElementsAre(1)) << "what was removed in this turn must not run in it, a newcomer neither";
  loop.turn();
  EXPECT_THAT(calls, ElementsAre(1, 4));
}

TEST(AgentLoop, anExceptionEndsItsCallbackOnly) {
  AgentLoop loop;
  Event first;
  Event second;
  bool isSecondCalled = false;
  first.raise();
  second.raise();
  loop.addFd(first.fd(), [] { throw std::runtime_error("a broken record"); });
  loop.addFd(second.fd(), [&] { isSecondCalled = true; });
  loop.turn();
  EXPECT_TRUE(isSecondCalled);
}

TEST(AgentLoop, descriptorsBeyondTheReachOfSelectWork) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_cur <= 2000) GTEST_SKIP() << "this process may not have more than " << limit.rlim_cur << " files";
  AgentLoop loop;
  Event event;
  ASSERT_EQ(dup2(event.fd(), 2000), 2000);
  event.raise();
  int calls = 0;
  loop.addFd(2000, [&] { ++calls; });
  loop.turn();
  close(2000);
  EXPECT_EQ(calls, 1);
}

// An SNMP session that listens on a port of its own.
class RequestWaitingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("MIBS", "", 1);
    setenv("SNMPCONFPATH", "/nonexistent", 1);
    init_snmp("agentlooptest");
    netsnmp_transport* transport = netsnmp_transport_open_server("snmp", "udp:127.0.0.1:0");
    ASSERT_NE(transport, nullptr);
    socklen_t length = sizeof(address);
    ASSERT_EQ(getsockname(transport->sock, reinterpret_cast<sockaddr*>(&address), &length), 0);
    netsnmp_session session;
    snmp_sess_init(&session);
    session.callback = ignore;
    listening = snmp_add(&session, transport, nullptr, nullptr);
    ASSERT_NE(listening, nullptr);
    sender = socket(AF_INET, SOCK_DGRAM, 0);
  }
  void TearDown() override {
    close(sender);
    snmp_close(listening);
  }
  static int ignore(int, netsnmp_session*, int, netsnmp_pdu*, void*) { return 1; }
  void send() const {
    const auto* to = reinterpret_cast<const sockaddr*>(&address);
    EXPECT_EQ(sendto(sender, "x", 1, 0, to, sizeof(address)), 1);
  }

  sockaddr_in address{};
  netsnmp_session* listening = nullptr;
  int sender = -1;
};

TEST_F(RequestWaitingTest, isTrueFromTheDatagramToTheNextTurn) {
  AgentLoop loop;
  Event event;
  event.raise();
  bool before = true;
  bool after = false;
  loop.addFd(event.fd(), [&] {
    event.take();
    std::this_thread::sleep_for(2 * AgentLoop::requestCheckInterval);
    before = loop.requestWaiting();
    send();
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!after && std::chrono::steady_clock::now() < end) after = loop.requestWaiting();
  });
  loop.turn();
  EXPECT_FALSE(before);
  EXPECT_TRUE(after);
  EXPECT_TRUE(loop.requestWaiting()) << "nobody has read it yet";
  loop.turn();
  std::this_thread::sleep_for(2 * AgentLoop::requestCheckInterval);
  EXPECT_FALSE(loop.requestWaiting());
}

}  // namespace
