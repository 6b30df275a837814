#pragma once
// The limits under which a daemon of ours runs.

namespace Process {

// Raises the limit of open files to the most that the system grants this process.
void raiseFileLimit();

}  // namespace Process
