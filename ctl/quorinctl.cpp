// The program quorinctl: the table of its commands, global options, exit status.

#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <iterator>

#include "ctl/Command.h"
#include "ctl/Commands.h"
#include "ctl/Output.h"
#include "kel/Trace.h"
#include "quillo/Publisher.h"
#include "quillo/StoreException.h"

namespace Ctl {
namespace {

constexpr const char* defaultAgentSocket = "/run/quorind/control";

// In the order of --help.
constexpr Command commands[] = {
    {"status", "Is everything well? What is wrong, and what to do", "quorinctl status", addStatus},
    {"vrfs", "The VRFs: number, state, forwarding, interfaces", "quorinctl vrfs", addVrfs},
    {"interfaces", "The interfaces and their addresses, in the order of ifIndex", "quorinctl interfaces -V red",
     addInterfaces},
    {"addresses", "The addresses, in the order of ipAddressTable", "quorinctl addresses -V red", addAddresses},
    {"neighbours", "The neighbours (ARP and IPv6), in the order of ipNetToPhysicalTable",
     "quorinctl neighbours -V red", addNeighbours},
    {"routes", "The routes with their next hops",
     "quorinctl routes red\nquorinctl routes red 10.1.2.3          # the longest match\nquorinctl routes "
     "10.0.0.0/8 --longer   # all inside it, in all VRFs\nquorinctl routes --json | jq ...",
     addRoutes},
    {"fib", "How many routes each VRF has, by type, as quorinFIBStatsByRouteTypeTable counts them",
     "quorinctl fib -V red", addFib},
    {"counters", "The IP counters of the interfaces", "quorinctl counters -V red", addCounters},
    {"watch", "The changes of the store, as they happen",
     "quorinctl watch\nquorinctl watch routes neighbours -V red\nquorinctl watch counters --json", addWatch},
    {"store", "The store itself: check it, see its size, dump its records",
     "quorinctl store check\nquorinctl store dump route fec | jq ...", addStore},
    {"contexts", "The agent's SNMP contexts, and whether they are ready", "quorinctl contexts", addContexts},
    {"trace", "What the agent does with a table, a request or a kind of object",
     "quorinctl trace ipCidrRouteTable\nquorinctl trace request 1m\nquorinctl trace 'Vrf*/0-7' 30", addTrace},
    {"turns", "How long the agent was busy with one thing while everything else waited", "quorinctl turns",
     addTurns},
    {"dump", "Write the whole switch as a file that 'load' publishes",
     "quorinctl dump > switch.yaml\nquorinctl dump --vrf red", addDump},
    {"load", "Publish a switch file, in place of quorin-mirrord",
     "quorinctl load examples/leaf-switch.yaml --store /tmp/store\n"
     "quorinctl dump | quorinctl load - --store /tmp/copy",
     addLoad},
};

Exit exitOf(const Quillo::StoreException& error) {
  using Kind = Quillo::StoreException::Kind;
  return error.kind() == Kind::permission || error.kind() == Kind::version ? Exit::unknown : Exit::critical;
}

Exit run(const Action& action) {
  try {
    const Exit status = action();
    flushOut();
    return status;
  } catch (const Failure& failure) {
    fmt::print(stderr, "quorinctl: {}\n", failure.what());
    return failure.status();
  } catch (const Quillo::StoreException& error) {
    fmt::print(stderr, "quorinctl: {}\n", error.what());
    return exitOf(error);
  } catch (const std::exception& error) {
    fmt::print(stderr, "quorinctl: {}\n", error.what());
    return Exit::critical;
  }
}

std::string notEmpty(const std::string& path) {
  return path.empty() ? "the path is empty" : "";
}

Exit parseAndRun(int argc, const char* const* argv) {
  CLI::App app("Shows what is in Quorin's store, and what its agent does.", "quorinctl");
  Options options{.store = Quillo::defaultStoreDirectory, .agentSocket = defaultAgentSocket};
  app.add_option("--store", options.store, "Directory of the store")
      ->type_name("DIR")
      ->envname("QUORIN_STORE")
      ->check(notEmpty)
      ->capture_default_str();
  app.add_option("--agent", options.agentSocket, "The agent's control socket")
      ->type_name("PATH")
      ->envname("QUORIN_AGENT_SOCKET")
      ->check(notEmpty)
      ->capture_default_str();
  app.add_flag("--json", options.json, "Write JSON instead of text");
  app.set_version_flag("--version", "quorinctl " QUORIN_VERSION);
  app.require_subcommand(1);
  app.footer(
      "quorinctl COMMAND --help shows the arguments of a command, and examples.\nExit status: 0 ok, 1 warning, "
      "2 critical, 3 unknown or wrong usage.");
  Action action;
  for (const auto& command : commands) {
    CLI::App& sub = *app.add_subcommand(command.name, command.summary);
    sub.fallthrough();  // global options may follow the command
    sub.footer("Examples:\n" + std::string(command.examples));
    sub.final_callback([&action, run = command.add(sub, options)] { action = run; });
  }
  app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
    const auto parsed = failed->get_subcommands();
    const auto words = failed->remaining(true);
    const bool isCommandMissing = parsed.empty() || error.get_name() == "RequiredError";
    const bool isUnknown = isCommandMissing && !words.empty();
    return fmt::format("quorinctl: {}; see quorinctl {}--help\n",
                       isUnknown ? fmt::format("there is no command or option '{}'", words.front()) : error.what(),
                       parsed.empty() ? "" : parsed.front()->get_name() + " ");
  });
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const bool isAnswer = app.exit(error) == 0;  // to --help or --version
    return isAnswer ? run([] { return Exit::ok; }) : Exit::unknown;
  }
  options.store = std::filesystem::absolute(options.store).lexically_normal();
  return run(action);
}

}  // namespace
}  // namespace Ctl

int main(int argc, char* argv[]) {
  signal(SIGPIPE, SIG_DFL);  // `quorinctl routes | head` ends without a word
  Kel::TraceConfig::setSink(
      [](const auto&, unsigned, const std::string& text) { fmt::print(stderr, "quorinctl: {}\n", text); });
  return static_cast<int>(Ctl::parseAndRun(argc, argv));
}
