#pragma once
// The Unix socket at which quorinctl asks the agent: one JSON object in each line, answered by one (docs/operating.md).
//
//   {"request":"status"} | {"request":"contexts"} | {"request":"turns"}
//   {"request":"trace","levels":"IpBase/0-2"}    then also sends trace lines, until the client disconnects
//
// The socket is for the agent's user and group (0660). Clients are bounded, since they are not trusted with the agent's
// time or memory: there are at most `mostClients`, and a request has at most `longestLine` bytes. A client receives an
// answer once it has read the one before, and at most 50 a second. One that reads traces too slowly loses some, and is
// sent their number.

#include <sys/types.h>

#include <functional>
#include <list>
#include <optional>
#include <string>
#include <utility>

#include "agentstate/AgentMib.h"
#include "brev/TimerTask.h"
#include "host/composition/EventLoop.h"
#include "kel/Trace.h"

namespace Host {

class ControlSocket {
 public:
  // A further client replaces the one whose latest request is the oldest.
  static constexpr std::size_t mostClients = 8;
  static constexpr std::size_t longestLine = 4096;
  static constexpr std::size_t mostPending = std::size_t{1} << 20;  // bytes of traces that wait for a client

  struct Sources {
    std::string storeDirectory;
    Kel::Ptr<const AgentSnmp::AgentMib> mib;
    const Turns& turns;
    std::function<void()> refresh;  // brings `mib` up to date
  };

  // Opens nothing yet. Lifetime: `loop`, and the references in `sources`, outlive this object.
  ControlSocket(EventLoop& loop, const Kel::Ptr<Brev::TaskScheduler>& scheduler, Sources sources);
  ~ControlSocket();
  ControlSocket(const ControlSocket&) = delete;
  ControlSocket& operator=(const ControlSocket&) = delete;

  // Listens at `path` instead of the path before, whose clients are disconnected; an empty path: nowhere. No-op if it
  // listens there already and the socket's file still exists. If it cannot listen, logs why and listens nowhere.
  void pathIs(const Kel::String& path);

 private:
  struct Client {
    int fd = -1;
    unsigned long lastActive = 0;
    Kel::Seconds nextAnswer = 0;
    bool isPaused = false;  // not read, since a request or an answer is pending
    std::string input, output;
    std::uint64_t lost = 0;  // trace lines that found no room
    std::optional<Kel::TraceListener> listener;
  };
  using ClientAt = std::list<Client>::iterator;

  int listenAt(const Kel::String& path);
  bool isOurs(const Kel::String& path) const;
  void close();
  void accept();
  void drop(ClientAt client);
  void read(ClientAt client);
  // Sends the client's pending output and answers its next request, as far as possible now. Drops the client if it has
  // disconnected.
  void serve(ClientAt client);
  void answer(Client& client, const std::string& line);
  void freshen();
  void traced(Client& client, const Kel::TraceHandle& handle, unsigned level, const std::string& text);
  // Returns false if the client has disconnected.
  static bool flush(Client& client);
  void serveAll();
  void serveSoon();

  EventLoop& loop_;
  const Sources sources_;
  Kel::String path_;
  int fd_ = -1;
  std::pair<dev_t, ino_t> file_{};  // of the socket
  bool isAcceptPaused_ = false;     // no descriptor was left
  Kel::Seconds freshUntil_ = 0;     // until then an answer needs no refresh()
  std::list<Client> clients_;
  unsigned long activity_ = 0;
  bool isTracing_ = false;
  Kel::Ptr<Brev::TimerTask> serveTimer_;  // while a client has a request or output pending, or accept is paused
};

}  // namespace Host
