#include "mirror/MirrorOptions.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <ostream>

namespace Mirror {

std::variant<MirrorOptions, int> parseOptions(int argc, const char* const* argv, std::ostream& out,
                                              std::ostream& err) {
  MirrorOptions options;
  CLI::App app("Mirrors this machine's interfaces, addresses and forwarding flags into the store.",
               "quorin-mirrord");
  app.add_flag("-f,--foreground", options.isForeground,
               "Stay in the foreground and log to standard error (otherwise: to the background, log to syslog)");
  app.add_option("--store", options.store, "Directory of the store")->type_name("DIR")->capture_default_str();
  app.add_option("--trace", options.trace, "Trace levels, such as 'Mirror*/0-6'")->type_name("LEVELS");
  app.add_flag("--recreate-store,--recreate", options.recreateStore,
               "Begin with an empty store, whatever is there; a file that is no store of ours is set aside");
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
  if (options.store.empty()) {
    err << "quorin-mirrord: --store is empty; name a directory\n";
    return 1;
  }
  options.store = std::filesystem::absolute(options.store).lexically_normal();
  return options;
}

}  // namespace Mirror
