// The agent as its users meet it: a real quorind on a port of its own, asked with net-snmp's tools.

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
namespace fs = std::filesystem;

constexpr const char* sysContact = ".1.3.6.1.2.1.1.4.0";
constexpr const char* sysLocation = ".1.3.6.1.2.1.1.6.0";
constexpr const char* engineBoots = ".1.3.6.1.6.3.10.2.1.2.0";
constexpr const char* v3 = "-v3 -u carol -l authPriv -a SHA -A authpass99 -x AES -X privpass99";

std::string contents(const fs::path& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

bool eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

// One run of quorind; its output goes to a file. Killed if it still runs at the end.
class Agent {
 public:
  Agent(const fs::path& log, const std::string& arguments) : log_(log) {
    pid_ = fork();
    if (pid_ != 0) return;
    const int out = open(log.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    dup2(out, STDOUT_FILENO);
    dup2(out, STDERR_FILENO);
    execl("/bin/sh", "sh", "-c", ("exec " QUORIND " " + arguments).c_str(), nullptr);
    _exit(127);
  }
  ~Agent() {
    if (pid_ > 0) kill(pid_, SIGKILL), waitpid(pid_, nullptr, 0);
  }
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  void signal(int number) const { kill(pid_, number); }
  // Waits for the end of the process. -1: it did not end, or not by itself.
  int exitStatus() {
    int status = 0;
    const bool hasEnded = eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
    if (hasEnded) pid_ = -1;
    return hasEnded && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  int stop() {
    signal(SIGTERM);
    return exitStatus();
  }
  std::string output() const { return contents(log_); }
  bool says(const std::string& text) const {
    return eventually([&] { return output().find(text) != std::string::npos; });
  }

 private:
  fs::path log_;
  pid_t pid_ = -1;
};

class QuorindTest : public ::testing::Test {
 protected:
  void SetUp() override {
    directory = fs::temp_directory_path() / fmt::format("quorind-test-{}", getpid());
    fs::remove_all(directory);
    fs::create_directories(directory);
    setenv("SNMP_PERSISTENT_DIR", (directory / "state").c_str(), 1);
    setenv("MIBS", "", 1);
    address = fmt::format("udp:127.0.0.1:{}", freePort());
    write(
        "rocommunity public 127.0.0.1\nrwcommunity private 127.0.0.1\nrouser carol priv\n"
        "createUser carol SHA \"authpass99\" AES \"privpass99\"\nsysLocation first place\n");
  }
  void TearDown() override {
    if (!HasFailure()) fs::remove_all(directory);
  }

  static unsigned freePort() {
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(any);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&any), length), 0);
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&any), &length), 0);
    close(fd);
    return ntohs(any.sin_port);
  }

  fs::path configuration() const { return directory / "quorind.conf"; }
  void write(const std::string& text) const { std::ofstream(configuration()) << text; }
  std::string usual() const {
    return fmt::format("-f -C -c {} --store {} {}", configuration().string(), (directory / "store").string(),
                       address);
  }
  fs::path log(const char* name) const { return directory / name; }

  // The output of one of net-snmp's tools, errors included.
  std::string ask(const std::string& tool, const std::string& access, const std::string& rest) const {
    const std::string command = fmt::format("{} -r1 -t2 -On {} {} {} 2>&1", tool, access, address, rest);
    FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    for (int c = fgetc(pipe); c != EOF; c = fgetc(pipe)) output.push_back(static_cast<char>(c));
    pclose(pipe);
    return output;
  }
  std::string get(const std::string& access, const std::string& oid) const { return ask("snmpget", access, oid); }

  fs::path directory;
  std::string address;
};

TEST_F(QuorindTest, servesTheSystemGroupAndNothingOfTheStockIpModules) {
  Agent agent(log("log"), usual());
  ASSERT_TRUE(agent.says("serves")) << agent.output();
  for (const char* access : {"-v1 -c public", "-v2c -c public", v3}) {
    EXPECT_THAT(get(access, sysLocation), HasSubstr("\"first place\"")) << access;
  }
  const std::string system = ask("snmpwalk", "-v2c -c public", ".1.3.6.1.2.1.1");
  for (const int column : {1, 2, 3, 4, 5, 6, 7}) {
    EXPECT_THAT(system, HasSubstr(fmt::format(".1.3.6.1.2.1.1.{}.0 = ", column)));
  }
  // Of the interface and IP groups only what we serve ourselves; the stock modules would follow with ifNumber and
  // ipDefaultTTL.
  EXPECT_THAT(ask("snmpgetnext", "-v2c -c public", ".1.3.6.1.2.1.2 .1.3.6.1.2.1.4.25.0 .1.3.6.1.6.3.15"),
              AllOf(HasSubstr(".1.3.6.1.2.1.4.1.0 = INTEGER"), HasSubstr(".1.3.6.1.2.1.11.1.0 = Counter32"),
                    HasSubstr(".1.3.6.1.6.3.15.1.1.1.0 = Counter32")));
  EXPECT_THAT(get("-v2c -c public", ".1.3.6.1.2.1.4.2.0"), HasSubstr("No Such"));
  for (const char* access : {"-v2c -c other", "-v3 -u carol -l authPriv -a SHA -A authpass99 -x AES -X other-pass",
                             "-v3 -u carol -l authNoPriv -a SHA -A authpass99"}) {
    EXPECT_THAT(get(access, sysLocation), Not(HasSubstr("first place"))) << access;
  }
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_THAT(agent.output(), Not(HasSubstr("MIB")));
}

TEST_F(QuorindTest, refusesEverySetWhateverTheAccessRules) {
  Agent agent(log("log"), usual());
  ASSERT_TRUE(agent.says("serves"));
  for (const char* assignment : {".1.3.6.1.2.1.1.4.0 s me", ".1.3.6.1.2.1.4.1.0 i 1", ".1.3.6.1.6.3.15.1.2.1.0 i 1",
                                 ".1.3.6.1.6.3.16.1.5.1.0 i 1"}) {
    EXPECT_THAT(ask("snmpset", "-v2c -c private", assignment), HasSubstr("notWritable")) << assignment;
    // SNMPv1 has no notWritable; RFC 3584 section 4.3 makes it noSuchName.
    EXPECT_THAT(ask("snmpset", "-v1 -c private", assignment), HasSubstr("noSuchName")) << assignment;
  }
  EXPECT_THAT(get("-v2c -c public", sysContact), Not(HasSubstr("me")));
}

TEST_F(QuorindTest, readsItsConfigurationAgain) {
  Agent agent(log("log"), usual());
  ASSERT_TRUE(agent.says("serves"));
  write("rocommunity secret 127.0.0.1\nrouser carol priv\nsysLocation second place\n");
  agent.signal(SIGHUP);
  ASSERT_TRUE(agent.says("read again")) << agent.output();
  EXPECT_THAT(get("-v2c -c secret", sysLocation), HasSubstr("\"second place\""));
  EXPECT_THAT(get(v3, sysLocation), HasSubstr("\"second place\"")) << "users live in the state, not in the file";
  EXPECT_THAT(get("-v2c -c public", sysLocation), HasSubstr("Timeout"));

  fs::remove(configuration());
  agent.signal(SIGHUP);
  ASSERT_TRUE(
      agent.says("the one in effect stays: cannot read the configuration file " + configuration().string()));
  EXPECT_THAT(get("-v2c -c secret", sysLocation), HasSubstr("\"second place\""));
  agent.signal(SIGINT);
  EXPECT_EQ(agent.exitStatus(), 0);
}

TEST_F(QuorindTest, keepsUsersAndEngineBootsOverRestarts) {
  Agent first(log("first"), usual());
  ASSERT_TRUE(first.says("serves"));
  const std::string boots = get(v3, engineBoots);
  ASSERT_THAT(boots, HasSubstr("= INTEGER: 1"));

  Agent refused(log("refused"), usual());
  EXPECT_NE(refused.exitStatus(), 0);
  EXPECT_EQ(get(v3, engineBoots), boots);
  EXPECT_EQ(first.stop(), 0);

  write("rouser carol priv\n");
  Agent second(log("second"), usual());
  ASSERT_TRUE(second.says("serves"));
  EXPECT_THAT(get(v3, engineBoots), HasSubstr("= INTEGER: 2")) << "the refused agent must not have counted";
}

TEST_F(QuorindTest, wrongSettingsAreNamedAndTheRestHolds) {
  write("rocommunity public 127.0.0.1\nquorinNoSuchThing 1\nquorinDisableObjects everything\nsysLocation here\n");
  Agent agent(log("log"), usual());
  ASSERT_TRUE(agent.says("serves"));
  EXPECT_THAT(agent.output(),
              HasSubstr(configuration().string() + ": line 2: Warning: Unknown token: quorinNoSuchThing."));
  EXPECT_THAT(agent.output(), HasSubstr("1 configuration line was passed over, see above: correct or remove it; "
                                        "quorind -H lists the directives that it knows"));
  EXPECT_THAT(agent.output(),
              HasSubstr(configuration().string() + ": line 3: Error: quorinDisableObjects: there is no "
                                                   "object group 'everything'; known are: route-tables"));
  EXPECT_THAT(get("-v2c -c public", sysLocation), HasSubstr("\"here\""));
}

TEST_F(QuorindTest, whatItCannotStartWithIsOneLineAndAFailure) {
  Agent holder(log("holder"), usual());
  ASSERT_TRUE(holder.says("serves"));
  const std::string base = fmt::format("-f -C -c {} ", configuration().string());
  const std::vector<std::pair<std::string, std::string>> cases = {
      {base + address, "cannot listen on " + address + ": Address already in use; "},
      {base + "udp:192.0.2.1:9999", "cannot listen on udp:192.0.2.1:9999: Cannot assign requested address; "},
      {base + "pigeon:9999", "cannot listen on pigeon:9999: "},
      {"-f -C -c /no/such.conf " + address,
       "cannot read the configuration file /no/such.conf: No such file or directory; "},
      {"-f -C -c / " + address, "cannot read the configuration file /: Is a directory; "},
      {base + "-u no-such-user udp:127.0.0.1:0", "there is no user 'no-such-user' on this machine"},
      {fmt::format("-C -Le -c {} -g no-such-group udp:127.0.0.1:0", configuration().string()),
       "there is no group 'no-such-group' on this machine"},
      {"-z", "unknown option -z; "},
      {"--no-such-option", "unknown option --no-such-option; "},
      {"--store", "option --store needs an argument; "},
      {"--store ''", "--store is empty; name a directory"},
      {"--netns-dir ''", "--netns-dir is empty; name a directory"},
      {"-p ''", "-p is empty; name a file"},
      {"-Lq", "option -Lq chooses no log"},
  };
  for (const auto& [arguments, text] : cases) {
    Agent agent(log("log"), arguments);
    EXPECT_EQ(agent.exitStatus(), 1) << arguments;
    const std::string output = agent.output();
    EXPECT_TRUE(output.starts_with("quorind: " + text)) << arguments << ": " << output;
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1) << output;
  }
}

TEST_F(QuorindTest, goesToTheBackgroundWithAPidFileAndALog) {
  const fs::path pidFile = directory / "pid";
  Agent starter(log("out"), fmt::format("-C -c {} -p {} -Lf {} {}", configuration().string(), pidFile.string(),
                                        log("log").string(), address));
  EXPECT_EQ(starter.exitStatus(), 0);
  ASSERT_TRUE(eventually([&] { return contents(log("log")).find("serves") != std::string::npos; }));
  const pid_t pid = std::stoi(contents(pidFile));
  EXPECT_THAT(get("-v2c -c public", sysLocation), HasSubstr("\"first place\""));
  EXPECT_EQ(kill(pid, SIGTERM), 0);
  EXPECT_TRUE(eventually([&] { return !fs::exists(pidFile); })) << "the file must go when the agent does";
  EXPECT_THAT(contents(log("out")), IsEmpty());
}

TEST_F(QuorindTest, tellsAboutItself) {
  Agent help(log("help"), "--help");
  EXPECT_EQ(help.exitStatus(), 0);
  EXPECT_THAT(help.output(), AllOf(HasSubstr("usage: quorind"), HasSubstr("--store DIR")));
  Agent version(log("version"), "-v");
  EXPECT_EQ(version.exitStatus(), 0);
  EXPECT_THAT(version.output(), HasSubstr("quorind " QUORIN_VERSION));
  Agent directives(log("directives"), "-H");
  EXPECT_EQ(directives.exitStatus(), 0);
  EXPECT_THAT(directives.output(), AllOf(HasSubstr("quorinDisableObjects"), HasSubstr("rocommunity")));
}

}  // namespace
