#include "mirror/MirrorOptions.h"

#include <grp.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <filesystem>
#include <ostream>

namespace Mirror {

namespace {

std::optional<gid_t> groupNumber(const std::string& name) {
  if (const group* found = getgrnam(name.c_str())) return found->gr_gid;
  gid_t number = 0;
  const char* end = name.data() + name.size();
  const auto [stop, error] = std::from_chars(name.data(), end, number);
  if (error != std::errc() || stop != end || number == static_cast<gid_t>(-1)) return std::nullopt;
  return number;
}

}  // namespace

std::variant<MirrorOptions, int> parseOptions(int argc, const char* const* argv, std::ostream& out,
                                              std::ostream& err) {
  MirrorOptions options;
  CLI::App app(
      "Mirrors the interfaces, addresses, neighbours, routes, counters and forwarding flags of this machine's VRFs "
      "into the store.",
      "quorin-mirrord");
  app.add_flag("-f,--foreground", options.isForeground,
               "Stay in the foreground and log to standard error (otherwise: to the background, log to syslog)");
  app.add_option("--store", options.store, "Directory of the store")->type_name("DIR")->capture_default_str();
  std::string group;
  const auto* groupOption =
      app.add_option("--group", group,
                     "Group that may read the store, by name or number (default: the directory's)")
          ->type_name("GROUP");
  app.add_option("--nice", options.niceness,
                 "How far below the agent's the priority for the processor is, from 0 to 19; see nice(1)")
      ->type_name("NUMBER")
      ->check(CLI::Range(0, 19))
      ->capture_default_str();
  app.add_option("--trace", options.trace, "Trace levels, such as 'Mirror*/0-6'")->type_name("LEVELS");
  app.add_flag("--recreate-store,--recreate", options.recreateStore,
               "Begin with an empty store, whatever is there; a file that is no store of ours is set aside");
  const auto* config =
      app.add_option("--config", options.settingsFile,
                     "Configuration file: what the kernel cannot tell of VRFs (the default one may "
                     "be missing)")
          ->type_name("FILE")
          ->capture_default_str();
  app.add_option("--netns-dir", options.netnsDirectory, "Directory of the network namespaces: ns-red is VRF red")
      ->type_name("DIR")
      ->capture_default_str();
  app.set_version_flag("-V,--version", "quorin-mirrord " QUORIN_VERSION);
  app.footer("SIGHUP makes it read everything again from the kernel; SIGTERM and SIGINT end it.");
  app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
    return failed->get_name() + ": " + error.what() + "; see --help\n";
  });
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, out, err) == 0 ? 0 : 1;
  }
  options.mustSettingsExist = config->count() > 0;
  if (groupOption->count() > 0) {
    options.group = groupNumber(group);
    if (!options.group) {
      err << "quorin-mirrord: --group: there is no group '" << group << "'; name one of /etc/group, or a number\n";
      return 1;
    }
  }
  const std::pair<const char*, std::string&> paths[] = {
      {"--store is empty; name a directory", options.store},
      {"--config is empty; name a file", options.settingsFile},
      {"--netns-dir is empty; name a directory", options.netnsDirectory}};
  for (const auto& [complaint, path] : paths) {
    if (path.empty()) {
      err << "quorin-mirrord: " << complaint << "\n";
      return 1;
    }
    path = std::filesystem::absolute(path).lexically_normal();
  }
  return options;
}

}  // namespace Mirror
