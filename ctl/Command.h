#pragma once
// Types shared by quorinctl's commands: options, exit status, failure.
//
// A command is one line of the table in quorinctl.cpp and one function. The function adds the command's arguments to a
// parser, and returns what to run after parsing:
//
//   Action addDump(CLI::App& app, const Options& options) {
//     auto vrf = std::make_shared<std::string>();
//     app.add_option("VRF", *vrf, "Name of the VRF");
//     return [&options, vrf] { return dump(options.store, *vrf); };
//   }

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <utility>

#include "kel/Errors.h"

namespace Ctl {

// The exit status, with the numbers of monitoring plugins.
enum class Exit : int {
  ok = 0,
  warning = 1,   // done, but something is wrong or missing
  critical = 2,  // there is no store, or the request cannot be carried out
  unknown = 3,   // cannot tell: a usage error, or a missing permission
};

// The options of every command. Their values are set before an Action runs.
struct Options {
  std::string store;        // directory of the store
  std::string agentSocket;  // the agent's control socket
  bool json = false;
};

// Ends the command with one line on standard error: what was wrong, where, and what to do.
class Failure : public Kel::Exception {
 public:
  Failure(Exit status, const std::string& text) : Exception(text), status_(status) {}
  Exit status() const { return status_; }

 private:
  Exit status_;
};

using Action = std::function<Exit()>;

struct Command {
  const char* name;
  const char* summary;
  const char* examples;  // lines for --help
  // Registers the arguments with `app`, and returns what to run after parsing. Lifetime: `options` outlives the action.
  Action (*add)(CLI::App& app, const Options& options);
};

}  // namespace Ctl
