// The command status: one screen, and the exit status of a monitoring plugin.

#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <optional>

#include "ctl/AgentSocket.h"
#include "ctl/Commands.h"
#include "ctl/Output.h"
#include "ctl/ReadableRecords.h"
#include "ctl/StoreReader.h"
#include "quillo/StoreFiles.h"

namespace Ctl {
namespace {

// A publisher that lives touches its lock file every second.
constexpr Kel::Seconds longestSilence = 10;
constexpr std::size_t mostDamageNamed = 3;

struct Publisher {
  const char* state = "gone";  // alive, silent, gone
  std::string name;
  std::int64_t pid = 0;
  std::optional<Kel::Seconds> start, heartbeat, lastCommit, lastPass;

  // Until when the store has followed the kernel: without changes there is no commit.
  std::optional<Kel::Seconds> upToDate() const { return std::max(heartbeat, lastCommit); }
};

struct Picture {
  Publisher publisher;
  std::uint64_t bytes = 0;
  std::uint64_t vrfs = 0, interfaces = 0, neighbours = 0, routes4 = 0, routes6 = 0;
  std::vector<std::string> damage;  // what is damaged
  std::uint64_t damageCount = 0;
  Json agent;                 // its answer; null: not reachable
  std::string agentObstacle;  // why
  Json contexts = Json::array();
};

// What is wrong, and what to do about it.
struct Problem {
  Exit exit;
  std::string what;
  std::string remedy;
};

Kel::Seconds wallClock() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<Kel::Seconds>(now.tv_sec) + static_cast<Kel::Seconds>(now.tv_nsec) / 1e9;
}

Publisher publisherOf(StoreReader& store) {
  Publisher publisher;
  const auto info = store.mount()->publisher();
  const auto known = [](Kel::Seconds time) { return time > 0 ? std::optional(time) : std::nullopt; };
  publisher.pid = info.pid;
  publisher.name = info.name;
  publisher.heartbeat = known(info.lastSeen);
  publisher.lastCommit = known(info.lastCommit);
  if (const auto pass = store.mount()->snapshot().completePass()) {
    publisher.lastPass = pass->time;
    if (publisher.name.empty()) publisher.name = pass->publisher;
  }
  if (!info.alive) return publisher;
  publisher.start = known(info.started);
  const bool isSilent = publisher.heartbeat && wallClock() - *publisher.heartbeat > longestSilence;
  publisher.state = isSilent ? "silent" : "alive";
  return publisher;
}

// Reads every record, so that damage shows.
void readStore(StoreReader& store, Picture& picture) {
  using Quillo::TableId;
  struct stat file {};
  if (stat(Quillo::dataFile(store.mount()->directory()).c_str(), &file) == 0) {
    picture.bytes = static_cast<std::uint64_t>(file.st_size);
  }
  picture.publisher = publisherOf(store);
  try {
    picture.vrfs = store.vrfs().size();
    picture.interfaces = store.tree().intfStatusDir->intfStatus().size();
    const std::pair<TableId, std::uint64_t*> counts[] = {{TableId::arp, &picture.neighbours},
                                                         {TableId::neighbor, &picture.neighbours},
                                                         {TableId::route, &picture.routes4},
                                                         {TableId::route6, &picture.routes6}};
    for (const auto& [table, count] : counts) {
      store.scan(table, "", "", [&, count = count](const auto&, const auto&) { return ++*count, true; });
    }
    store.scan(TableId::fec, "", "", [](const auto&, const auto&) { return true; });
  } catch (const Pesk::CorruptionDetectedException& damage) {
    picture.damage.emplace_back(damage.what());
    ++picture.damageCount;
  }
  picture.damageCount += store.damage().size();
  for (const auto& record : store.damage()) {
    if (picture.damage.size() < mostDamageNamed) picture.damage.push_back(keyText(store, record.table, record.key));
  }
}

void askAgent(const Options& options, Picture& picture) {
  try {
    AgentSocket agent(options.agentSocket);
    picture.agent = agent.request({{"request", "status"}});
    picture.contexts = listOf(agent.request({{"request", "contexts"}}), "contexts");
  } catch (const Failure& failure) {
    picture.agentObstacle = failure.what();
  } catch (const Json::exception&) {
    picture.agentObstacle =
        "the agent's answer has not the expected form; install agent and quorinctl of one version";
  }
}

std::size_t readyContexts(const Picture& picture) {
  return static_cast<std::size_t>(std::count_if(
      picture.contexts.begin(), picture.contexts.end(),
      [](const Json& context) { return context.is_object() && fieldText(context, "state") == "ready"; }));
}

std::string agoText(const std::optional<Kel::Seconds>& time) {
  if (!time) return "never";
  return fmt::format("{} ({} ago)", timeText(*time, false), durationText(wallClock() - *time));
}

std::string publisherText(const Publisher& publisher) {
  const auto name = publisher.name.empty() ? "the publisher" : nameText(publisher.name);
  return publisher.pid > 0 ? fmt::format("{} (pid {})", name, publisher.pid) : name;
}

// Whether both directories exist and are not the same.
bool isElsewhere(const std::string& a, const std::string& b) {
  struct stat first {
  }, second{};
  if (stat(a.c_str(), &first) != 0 || stat(b.c_str(), &second) != 0) return false;
  return first.st_dev != second.st_dev || first.st_ino != second.st_ino;
}

// The worst first.
std::vector<Problem> problemsOf(const Picture& picture, const std::string& directory) {
  std::vector<Problem> problems;
  const auto& publisher = picture.publisher;
  const auto who = publisherText(publisher);
  const std::string state = publisher.state;
  if (state == "gone") {
    problems.push_back(
        {Exit::critical,
         fmt::format("no publisher runs; nothing is up to date since {}", agoText(publisher.upToDate())),
         "systemctl start quorin-mirrord; why it ended: journalctl -u quorin-mirrord"});
  } else if (state == "silent") {
    problems.push_back(
        {Exit::warning, fmt::format("{} is silent for {}", who, durationText(wallClock() - *publisher.heartbeat)),
         fmt::format("journalctl -u quorin-mirrord -n 3 says if it cannot write; is it stopped, or the "
                     "machine overloaded? See top -p {}; systemctl restart quorin-mirrord",
                     publisher.pid)});
  }
  if (!publisher.lastPass) {
    problems.push_back({Exit::warning, "the store is not complete: no publisher has finished its first pass",
                        state == "gone" ? "start the publisher" : "wait; a million routes take some seconds"});
  }
  if (picture.damageCount > 0) {
    problems.push_back(
        {Exit::warning,
         fmt::format("{} damaged: {}{}", countText(picture.damageCount, "record"), fmt::join(picture.damage, ", "),
                     picture.damageCount > picture.damage.size() ? ", ..." : ""),
         "a running publisher makes the store anew within a minute; see quorinctl store check"});
  }
  if (!picture.agentObstacle.empty()) {
    problems.push_back(
        {Exit::warning, picture.agentObstacle, "systemctl start quorind; why it ended: journalctl -u quorind"});
  } else {
    if (isTrue(picture.agent, "stale")) {
      problems.push_back({Exit::critical, "the agent answers nothing that the publisher feeds, since it is too old",
                          "start the publisher again; the limit is the token quorinStaleAfter"});
    } else if (!isTrue(picture.agent, "ready")) {
      problems.push_back({Exit::warning, "the agent is not ready: it waits for a complete store",
                          "see whether it reads this store: token and option --store of quorind"});
    }
    if (const auto master = picture.agent.find("master"); master != picture.agent.end() && *master == false) {
      problems.push_back({Exit::warning, "the agent has no AgentX master, so no manager gets an answer",
                          "systemctl start snmpd; its snmpd.conf needs the line 'master agentx'"});
    }
    if (const auto store = fieldText(picture.agent, "store"); isElsewhere(store, directory)) {
      problems.push_back({Exit::warning, "the agent reads another store: " + store,
                          "give quorinctl, quorind and quorin-mirrord the same --store"});
    }
    if (const auto ready = readyContexts(picture); ready < picture.contexts.size()) {
      problems.push_back({Exit::warning,
                          fmt::format("{} of {} are not ready", picture.contexts.size() - ready,
                                      countText(picture.contexts.size(), "context")),
                          "see quorinctl contexts"});
    }
  }
  std::stable_sort(problems.begin(), problems.end(),
                   [](const Problem& a, const Problem& b) { return a.exit > b.exit; });
  return problems;
}

const char* wordOf(Exit exit) {
  constexpr const char* words[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
  return words[static_cast<std::size_t>(exit)];
}

std::string summaryOf(const Picture& picture) {
  return fmt::format("{}, {}, {}; publisher {}, agent {}", countText(picture.vrfs, "VRF"),
                     countText(picture.routes4 + picture.routes6, "route"),
                     countText(picture.neighbours, "neighbour"), picture.publisher.state,
                     picture.agent.is_null() ? "not reachable" : "ready");
}

// For graphs, as monitoring plugins write it behind a '|'.
std::string performanceData(const Picture& picture) {
  std::string text = fmt::format("vrfs={} interfaces={} neighbours={} routes={} damage={} store={}B", picture.vrfs,
                                 picture.interfaces, picture.neighbours, picture.routes4 + picture.routes6,
                                 picture.damageCount, picture.bytes);
  const auto add = [&](const char* name, const std::optional<Kel::Seconds>& time) {
    if (time) text += fmt::format(" {}={:.0f}s", name, std::max(wallClock() - *time, 0.0));
  };
  add("commit_age", picture.publisher.lastCommit);
  add("heartbeat_age", picture.publisher.heartbeat);
  return text;
}

Json jsonOf(const Picture& picture, Exit exit, const std::vector<Problem>& problems, const std::string& directory) {
  auto list = Json::array();
  for (const auto& problem : problems) {
    list.push_back({{"severity", wordOf(problem.exit)}, {"what", problem.what}, {"remedy", problem.remedy}});
  }
  const auto& publisher = picture.publisher;
  const auto timeOf = [](const std::optional<Kel::Seconds>& time) { return time ? Json(*time) : Json(); };
  return {{"status", wordOf(exit)},
          {"problems", list},
          {"store", directory},
          {"storeBytes", picture.bytes},
          {"damage", picture.damageCount},
          {"publisher",
           {{"state", publisher.state},
            {"name", publisher.name},
            {"pid", publisher.pid > 0 ? Json(publisher.pid) : Json()},
            {"start", timeOf(publisher.start)},
            {"lastPass", timeOf(publisher.lastPass)},
            {"lastCommit", timeOf(publisher.lastCommit)},
            {"heartbeat", timeOf(publisher.heartbeat)}}},
          {"agent", picture.agent},
          {"vrfs", picture.vrfs},
          {"interfaces", picture.interfaces},
          {"neighbours", picture.neighbours},
          {"ipv4Routes", picture.routes4},
          {"ipv6Routes", picture.routes6},
          {"contexts", picture.contexts}};
}

void writeScreen(const Picture& picture, const std::vector<Problem>& problems, const std::string& directory) {
  const auto line = [](std::string_view title, const std::string& text) {
    writeOut(fmt::format("{:<12}{}\n", title, text));
  };
  for (const auto& problem : problems) {
    if (&problem != &problems.front()) writeOut(fmt::format("{} - {}\n", wordOf(problem.exit), problem.what));
    writeOut(fmt::format("    What to do: {}\n", problem.remedy));
  }
  writeOut("\n");
  line("Store", fmt::format("{}, {}, {}", directory, bytesText(picture.bytes),
                            picture.damageCount ? countText(picture.damageCount, "damaged record") : "no damage"));
  const auto& publisher = picture.publisher;
  line("Publisher", fmt::format("{} is {}{}", publisherText(publisher), publisher.state,
                                publisher.start ? ", runs since " + agoText(publisher.start) : ""));
  line("", fmt::format("last pass {}, last commit {}", agoText(publisher.lastPass), agoText(publisher.lastCommit)));
  if (picture.agent.is_null()) {
    line("Agent", "not reachable");
  } else {
    const auto& agent = picture.agent;
    line("Agent", fmt::format("version {} (pid {}) is {}; {}, longest turn {:.1f} ms", fieldText(agent, "version"),
                              fieldText(agent, "pid"),
                              isTrue(agent, "stale")   ? "stale"
                              : isTrue(agent, "ready") ? "ready"
                                                       : "not ready",
                              countText(static_cast<std::uint64_t>(numberOf(agent, "requests")), "request"),
                              1000 * numberOf(agent, "longestTurn")));
    line("Contexts", fmt::format("{} of {} ready", readyContexts(picture), picture.contexts.size()));
  }
  line("Contents",
       fmt::format("{}, {}, {}, {} and {} routes of IPv4 and IPv6", countText(picture.vrfs, "VRF"),
                   countText(picture.interfaces, "interface"), countText(picture.neighbours, "neighbour"),
                   countText(picture.routes4), countText(picture.routes6)));
}

Exit show(const Options& options, bool withPerformanceData) {
  Picture picture;
  std::optional<StoreReader> store;
  try {
    store.emplace(options.store);
    readStore(*store, picture);
  } catch (const Kel::Exception& error) {
    const auto* failure = dynamic_cast<const Failure*>(&error);
    const Exit exit = failure ? failure->status() : Exit::critical;
    auto problem = Json{{"severity", wordOf(exit)}, {"what", error.what()}};
    std::string text = fmt::format("{} - {}\n", wordOf(exit), error.what());
    if (exit == Exit::critical) {  // else what() has the remedy
      const std::string remedy =
          "systemctl restart quorin-mirrord; why it has no store: journalctl -u quorin-mirrord";
      problem["remedy"] = remedy;
      text += fmt::format("    What to do: {}\n", remedy);
    }
    writeOut(options.json
                 ? jsonText({{"status", wordOf(exit)}, {"problems", {problem}}, {"store", options.store}}) + "\n"
                 : text);
    return exit;
  }
  askAgent(options, picture);
  const auto problems = problemsOf(picture, options.store);
  const Exit exit = problems.empty() ? Exit::ok : problems.front().exit;
  if (options.json) {
    writeOut(jsonText(jsonOf(picture, exit, problems, options.store)) + "\n");
    return exit;
  }
  // The first line is all that many monitoring systems show.
  writeOut(fmt::format("{} - {}", wordOf(exit), problems.empty() ? summaryOf(picture) : problems.front().what));
  writeOut(withPerformanceData ? " | " + performanceData(picture) + "\n" : "\n");
  writeScreen(picture, problems, options.store);
  return exit;
}

}  // namespace

Action addStatus(CLI::App& app, const Options& options) {
  auto withPerformanceData = std::make_shared<bool>(false);
  app.add_flag("--perfdata", *withPerformanceData,
               "Add figures for graphs to the first line, as monitoring plugins do");
  return [&options, withPerformanceData] { return show(options, *withPerformanceData); };
}

}  // namespace Ctl
