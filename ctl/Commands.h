#pragma once
// The functions that the table of commands names (quorinctl.cpp).

#include "ctl/Command.h"

namespace Ctl {

Action addDump(CLI::App& app, const Options& options);
Action addLoad(CLI::App& app, const Options& options);
Action addStatus(CLI::App& app, const Options& options);

}  // namespace Ctl
