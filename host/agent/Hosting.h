#pragma once
// Puts the Composition into the agent process.

#include "host/agent/AgentMain.h"

namespace Host {

// Hooks that make, reconfigure and end one Composition; they share it. A store directory that the configuration
// changes is followed.
AgentHooks compositionHooks();

}  // namespace Host
