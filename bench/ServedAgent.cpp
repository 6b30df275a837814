#include "ServedAgent.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <thread>

#include "SnmpClient.h"
#include "host/agent/AgentMain.h"
#include "host/composition/AgentTree.h"
#include "kel/Dir.h"
#include "quillo/tables/ArpTableMount.h"
#include "snmp/Contexts.h"

namespace Bench {
namespace {

constexpr std::uint32_t firstAddress = 0x0A000001;  // 10.0.0.1

// Returns a port that nobody listens on now.
std::uint16_t freePort() {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  const bool bound = fd >= 0 && bind(fd, generic, length) == 0 && getsockname(fd, generic, &length) == 0;
  close(fd);
  if (!bound) throw std::runtime_error("no free UDP port on the loopback interface");
  return ntohs(address.sin_port);
}

void fill(const Kel::Ptr<Kel::Dir>& root, std::uint32_t rows) {
  const auto mib = Kel::dynamicPtr<IpSnmp::IpMib>(Kel::resolve(root, "snmp/ip/ipmib"));
  const Vantu::IntfId intf("eth0");
  for (std::uint32_t i = 0; i < rows; ++i) {
    const Vantu::IpAddr address(addressAt(i));
    const auto key = IpSnmp::InetAddress::fromIpAddr(address);
    const auto entry = mib->ipAddressTableIs(key);
    const IpSnmp::IpAddressPrefixKey prefix(1, Ip::ipVersion4, key.bytes(), 32);
    entry->intfIs({IpSnmp::IntfDataKey(IpSnmp::addressSourceStatus, intf),
                   Kel::makePtr<IpSnmp::IpAddressPrefixEntry>(prefix)});
    mib->ipAddrTableIs(entry);
  }
}

int serve(const std::string& directory, const std::string& endpoint, std::uint32_t rows) {
  const std::string configuration = directory + "/agent.conf";
  std::ofstream(configuration) << "rocommunity " << ServedAgent::community << " 127.0.0.1\n";
  setenv("SNMP_PERSISTENT_DIR", directory.c_str(), 1);
  std::unique_ptr<Host::AgentTree> tree;
  std::unique_ptr<Snmp::Contexts> contexts;
  Host::AgentHooks hooks;
  hooks.started = [&](Host::AgentLoop&, const Host::AgentOptions&) {
    const auto root = Kel::makePtr<Kel::Dir>("");
    const auto store = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{directory + "/no-store"});
    const auto neighbours = Kel::makePtr<Quillo::ArpTableMount>(Kel::makePtr<Quillo::TableFollower>(store));
    tree = std::make_unique<Host::AgentTree>(root, Kel::makePtr<Brev::TaskScheduler>(), neighbours,
                                             Kel::makePtr<Varnix::EntityManager>(root->dirIs("Varnix"), store));
    contexts = std::make_unique<Snmp::Contexts>();
    fill(root, rows);
    contexts->enter("");
  };
  hooks.stopping = [&] {
    contexts.reset();
    tree.reset();
  };
  std::vector<std::string> arguments{"bench-agent",      "-f",    "-C", "-c", configuration, "-Lf",
                                     directory + "/log", endpoint};
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  return Host::agentMain(static_cast<int>(arguments.size()), argv.data(), hooks);
}

}  // namespace

std::uint32_t addressAt(std::uint32_t i) {
  return firstAddress + i * addressStep;
}

ServedAgent::ServedAgent(std::uint32_t rows) : endpoint_(fmt::format("udp:127.0.0.1:{}", freePort())) {
  std::string pattern = (std::filesystem::temp_directory_path() / "quorin-bench-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a directory from " + pattern);
  directory_ = pattern;
  pid_ = fork();
  if (pid_ == 0) _exit(serve(directory_, endpoint_, rows));
  const Oid systemGroup{1, 3, 6, 1, 2, 1, 1};
  // The socket is open before the table is filled, so the first request waits for it.
  for (int i = 0; i < 12; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    if (SnmpClient(endpoint_, community).answers(systemGroup)) return;
  }
  throw std::runtime_error("the agent at " + endpoint_ + " does not answer");
}

ServedAgent::~ServedAgent() {
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
  std::filesystem::remove_all(directory_);
}

std::uint64_t ServedAgent::residentBytes() const {
  std::ifstream statm(fmt::format("/proc/{}/statm", pid_));
  std::uint64_t size = 0;
  std::uint64_t resident = 0;
  statm >> size >> resident;
  return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace Bench
