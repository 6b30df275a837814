#pragma once
// The functions of the table of commands (quorinctl.cpp); Command::add has their contract.

#include "ctl/Command.h"

namespace Ctl {

Action addDump(CLI::App& app, const Options& options);
Action addLoad(CLI::App& app, const Options& options);
Action addStatus(CLI::App& app, const Options& options);
Action addVrfs(CLI::App& app, const Options& options);
Action addInterfaces(CLI::App& app, const Options& options);
Action addAddresses(CLI::App& app, const Options& options);
Action addNeighbours(CLI::App& app, const Options& options);
Action addRoutes(CLI::App& app, const Options& options);
Action addFib(CLI::App& app, const Options& options);
Action addCounters(CLI::App& app, const Options& options);
Action addWatch(CLI::App& app, const Options& options);
Action addStore(CLI::App& app, const Options& options);
Action addContexts(CLI::App& app, const Options& options);
Action addTrace(CLI::App& app, const Options& options);
Action addTurns(CLI::App& app, const Options& options);

// Adds the option -V, which sets `vrf` to the name of the only VRF to show. Lifetime: `vrf` outlives the parser.
void addVrfOption(CLI::App& app, std::string& vrf);

}  // namespace Ctl
