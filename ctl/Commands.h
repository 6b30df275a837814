#pragma once
// The functions that the table of commands names (quorinctl.cpp).

#include "ctl/Command.h"

namespace Ctl {

Action addStatus(CLI::App& app, const Options& options);

}  // namespace Ctl
