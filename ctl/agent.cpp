// The commands that ask the agent: contexts, turns, trace.

#include <algorithm>
#include <array>
#include <string_view>

#include "ctl/AgentSocket.h"
#include "ctl/Commands.h"
#include "ctl/StoreReader.h"

namespace Ctl {
namespace {

// Turns a missing agent into a failure of the command.
template <class Call>
Exit withAgent(const Options& options, const Call& call) {
  try {
    AgentSocket agent(options.agentSocket);
    return call(agent);
  } catch (const Failure& failure) {
    throw Failure(std::max(failure.status(), Exit::critical), failure.what());
  }
}

// ---- contexts, turns

Exit showContexts(const Options& options) {
  return withAgent(options, [&](AgentSocket& agent) {
    const auto answer = agent.request({{"request", "contexts"}});
    Rows rows(options, {{"CONTEXT"}, {"VRF"}, {"STATE"}});
    for (const auto& context : listOf(answer, "contexts")) {
      rows.add(
          [&] {
            const auto name = fieldText(context, "context");
            return Rows::Cells{name.empty() ? "\"\"" : name, fieldText(context, "vrf"),
                               fieldText(context, "state")};
          },
          [&] { return context; });
    }
    rows.finish();
    return Exit::ok;
  });
}

Exit showTurns(const Options& options) {
  return withAgent(options, [&](AgentSocket& agent) {
    const auto answer = agent.request({{"request", "turns"}});
    const auto& turns = listOf(answer, "turns");
    Rows rows(options,
              {{"TURNS"}, {"COUNT", Rows::number}, {"P99 ms", Rows::number}, {"LONGEST ms", Rows::number}});
    for (const auto& turn : turns) {
      rows.add(
          [&] {
            return Rows::Cells{fieldText(turn, "kind"),
                               countText(static_cast<std::uint64_t>(numberOf(turn, "count"))),
                               fmt::format("{:.3f}", 1000 * numberOf(turn, "p99")),
                               fmt::format("{:.3f}", 1000 * numberOf(turn, "longest"))};
          },
          [&] { return turn; });
    }
    rows.finish();
    if (turns.empty())
      fmt::print(stderr, "quorinctl: this agent counts no turns; only quorind does, the plugin not\n");
    return Exit::ok;
  });
}

// ---- trace

struct TraceObject {
  const char* name;
  const char* levels;  // as the token quorinTrace takes them
  const char* summary;
};

constexpr const char* addressTables = "IpBase/0-2,7";
constexpr const char* neighbourTables = "IpBase/0-2,7;ArpTableIteratorConst/0-9";
constexpr const char* vrfTables = "VrfBase/0-2,7";
constexpr const char* statistics = "Snmp/0-2,7";
constexpr TraceObject traceObjects[] = {
    {"request",
     "IpBase/0-2;IfMib/0-2;IpForward/0-2;InetCidrRoute/0-2;VrfBase/0-2;MplsL3Vpn/0-2;Snmp/0-2;IpSwFwdStats/0-2;"
     "AgentMib/0-2",
     "every request but those for the system and SNMP groups"},
    {"vrfs", "VrfRootSm/0-8;VrfIfTableSm/0-8", "VRFs and their interfaces: which come and go"},
    {"contexts", "SnmpContexts/0-9", "SNMP contexts that are entered and left"},
    {"addresses", "IpAddressTableSm/0-8", "addresses: rows that are added and removed"},
    {"neighbours", "ArpTableSm/0-8;VrfNeighbours/0-8", "neighbours: rows that are added and removed"},
    {"routes", "IpRouteTableSm/0-8;PerVrfFecSm/0-8", "routes and next hops: rows that are added and removed"},
    {"fib", "FibStatsSm/0-8", "the counts of routes"},
    {"store", "Varnix*/0-8;Quillo*/0-8;StoreFollower/0-8", "what the agent reads from the store"},
    {"ipForwarding", "IpBase/0-2", "requests for the object"},
    {"ipv6IpForwarding", "IpBase/0-2", "requests for the object"},
    {"ifTable", "IfMib/0-2", "requests for the table"},
    {"ifXTable", "IfMib/0-2", "requests for the table"},
    {"ipAddrTable", addressTables, "requests for the table"},
    {"ipAddressTable", addressTables, "requests for the table"},
    {"ipAddressPrefixTable", addressTables, "requests for the table"},
    {"ipNetToMediaTable", neighbourTables, "requests for the table"},
    {"ipNetToPhysicalTable", neighbourTables, "requests for the table"},
    {"ipCidrRouteNumber", "IpForward/0-2", "requests for the object"},
    {"ipCidrRouteTable", "IpForward/0-2,7;IpCidrRouteTableIteratorConst/0-9", "requests for the table"},
    {"inetCidrRouteTable", "InetCidrRoute/0-2", "requests for the table"},
    {"mplsL3VpnVrfTable", "MplsL3Vpn/0-2", "requests for the table"},
    {"quorinVrfTable", vrfTables, "requests for the table"},
    {"quorinVrfIfTable", vrfTables, "requests for the table"},
    {"quorinSwFwdIpStatsTable", "Snmp/0-2,7;IpSwFwdStats/0-9",
     "requests, and the reading of the kernel's counters"},
    {"quorinIpIfStatsTable", statistics, "requests for the table"},
    {"quorinFIBStatsSummaryTable", statistics, "requests for the table"},
    {"quorinFIBStatsByRouteTypeTable", statistics, "requests for the table"},
    {"quorinFIBStatsByPrefixLenTable", statistics, "requests for the table"},
};

std::string knownObjects() {
  std::string text;
  for (const auto& object : traceObjects) text += fmt::format("  {:<31} {}\n", object.name, object.summary);
  return text;
}

std::string levelsOf(const std::string& name) {
  const auto same = [](std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
  };
  for (const auto& object : traceObjects) {
    if (same(object.name, name)) return object.levels;
  }
  if (name.find('/') != std::string::npos) return name;
  throw Failure(Exit::unknown, fmt::format("there is nothing to trace named '{}'; write FACILITY/LEVELS, such as "
                                           "IpBase/0-2, or one of\n{}",
                                           nameText(name), knownObjects()));
}

// Seconds of "10", "30s", "1m" or "2h".
Kel::Seconds secondsFromText(std::string_view text) {
  const auto unit = text.empty() ? '\0' : text.back();
  const double factor = unit == 'm' ? 60 : unit == 'h' ? 3600 : 1;
  if (unit == 's' || unit == 'm' || unit == 'h') text.remove_suffix(1);
  const auto number = Kel::numberFromText<std::uint32_t>(text);
  if (number && *number > 0) return factor * *number;
  throw Failure(Exit::unknown, "TIME is a number of seconds above 0, or of minutes or hours: 10, 30s, 1m or 2h");
}

Exit trace(const Options& options, const std::string& object, const std::string& time) {
  const auto levels = levelsOf(object);
  const auto seconds = secondsFromText(time);
  return withAgent(options, [&](AgentSocket& agent) {
    agent.request({{"request", "trace"}, {"levels", levels}});
    const auto end = Kel::System::currentTime() + seconds;
    fmt::print(stderr, "quorinctl: tracing {} for {}; Ctrl-C ends it\n", levels, durationText(seconds));
    std::size_t lines = 0;
    for (Json line = agent.read(end); !line.is_null(); line = agent.read(end)) {
      if (options.json) {
        writeOut(jsonText(line) + "\n");
      } else if (line.contains("lost")) {
        fmt::print(stderr, "quorinctl: {} lines were lost: the agent traces faster than they are read\n",
                   fieldText(line, "lost"));
      } else {
        writeOut(fmt::format("{}  {}/{}: {}\n", timeText(numberOf(line, "time"), true), fieldText(line, "facility"),
                             fieldText(line, "level"), fieldText(line, "text")));
      }
      flushOut();
      ++lines;
    }
    if (lines == 0) {
      fmt::print(stderr,
                 "quorinctl: nothing happened meanwhile; send a request, or trace longer: quorinctl trace {} 1m\n",
                 object);
    }
    return Exit::ok;
  });
}

}  // namespace

Action addContexts(CLI::App&, const Options& options) {
  return [&options] { return showContexts(options); };
}

Action addTurns(CLI::App&, const Options& options) {
  return [&options] { return showTurns(options); };
}

Action addTrace(CLI::App& app, const Options& options) {
  struct Arguments {
    std::string object;
    std::string time = "10";
  };
  auto arguments = std::make_shared<Arguments>();
  app.add_option("OBJECT", arguments->object, "What to trace; an unknown name lists the known ones")
      ->type_name("")
      ->required();
  app.add_option("TIME", arguments->time, "For how long: seconds, or 1m, 2h")->type_name("")->capture_default_str();
  return [&options, arguments] { return trace(options, arguments->object, arguments->time); };
}

}  // namespace Ctl
