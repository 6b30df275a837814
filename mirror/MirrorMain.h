#pragma once
// The program quorin-mirrord: options, signals, event loop.

namespace Mirror {

// Returns the program's exit status: 0 after SIGTERM or SIGINT, 1 after a failure, of which one line is on standard
// error (of a daemon that served already: in syslog).
int mirrorMain(int argc, const char* const* argv);

}  // namespace Mirror
