#include <fmt/format.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <functional>
#include <sstream>

#include "kel/Errors.h"
#include "snmp/Config.h"

namespace Snmp {

namespace {

using Output = Kel::TraceConfig::Output;
constexpr const char* syslogIdentity = "quorin";

struct State {
  Config::Ptr config = Kel::makePtr<Config>();
  Output defaultOutput = Output::standardError;
  Kel::String defaultTarget;
  Kel::TraceConfig::Sink defaultSink;
};

State& state() {
  static auto* const instance = new State;
  return *instance;
}

// Runs the parser of one line; a fault becomes net-snmp's report with file and line.
void parse(const char* token, const std::function<void()>& parser) noexcept {
  try {
    parser();
  } catch (const std::exception& error) {
    config_perror(fmt::format("{}: {}", token, error.what()).c_str());
  }
}

void disableObjects(const char* token, char* line) {
  parse(token, [&] {
    std::istringstream groups(line);
    for (Kel::String group; groups >> group;) state().config->disabledObjectsIs(group);
  });
}

void store(const char* token, char* line) {
  parse(token, [&] { state().config->storeDirectoryIs(line); });
}

void netnsDirectory(const char* token, char* line) {
  parse(token, [&] { state().config->netnsDirectoryIs(line); });
}

void kernelIpHeader(const char* token, char* line) {
  parse(token, [&] { state().config->kernelIpHeaderIs(line); });
}

void managementInterfaces(const char* token, char* line) {
  parse(token, [&] {
    std::istringstream names(line);
    for (Kel::String name; names >> name;) state().config->managementInterfaceIs(name);
  });
}

void routeCountInterval(const char* token, char* line) {
  parse(token, [&] { state().config->routeCountIntervalIs(line); });
}

void trace(const char* token, char* line) {
  parse(token, [&] { Kel::TraceConfig::levelsAre(line); });
}

void traceOutput(const char* token, char* line) {
  parse(token, [&] {
    const Kel::String target = line;
    if (target == "stderr") {
      Kel::TraceConfig::outputIs(Output::standardError, "");
    } else if (target == "syslog") {
      Kel::TraceConfig::outputIs(Output::syslog, syslogIdentity);
    } else if (target.starts_with('/')) {
      Kel::TraceConfig::outputIs(Output::file, target);
    } else {
      throw Kel::RangeException("'" + target + "' is neither stderr nor syslog nor an absolute path");
    }
    Kel::TraceConfig::sinkIs({});
  });
}

void reset() {
  parse("trace output", [] {
    state().config = Kel::makePtr<Config>();
    Kel::TraceConfig::reset();
    Kel::TraceConfig::outputIs(state().defaultOutput, state().defaultTarget);
    if (state().defaultSink) Kel::TraceConfig::sinkIs(state().defaultSink);
  });
}

}  // namespace

void registerConfigTokens() {
  reset();
  register_app_config_handler("quorinDisableObjects", disableObjects, reset, "GROUP...   (groups: route-tables)");
  register_app_config_handler("quorinStore", store, nullptr, "DIR");
  register_app_config_handler("quorinNetnsDir", netnsDirectory, nullptr, "DIR");
  register_app_config_handler("quorinKernelIpHeader", kernelIpHeader, nullptr, "strict | any");
  register_app_config_handler("quorinManagementInterfaces", managementInterfaces, nullptr, "INTERFACE...");
  register_app_config_handler("quorinRouteCountInterval", routeCountInterval, nullptr, "SECONDS   (1 to 86400)");
  register_app_config_handler("quorinTrace", trace, nullptr, "FACILITY/LEVELS[;...]   (such as IpBase/0-2,8)");
  register_app_config_handler("quorinTraceOutput", traceOutput, nullptr, "stderr | syslog | FILE");
}

void unregisterConfigTokens() {
  for (const char* token :
       {"quorinDisableObjects", "quorinStore", "quorinNetnsDir", "quorinKernelIpHeader",
        "quorinManagementInterfaces", "quorinRouteCountInterval", "quorinTrace", "quorinTraceOutput"}) {
    unregister_app_config_handler(token);
  }
}

void defaultTraceOutputIs(Output output, const Kel::String& target) {
  state().defaultOutput = output;
  state().defaultTarget = target;
}

void defaultTraceSinkIs(Kel::TraceConfig::Sink sink) {
  state().defaultSink = std::move(sink);
}

Config::PtrConst currentConfig() {
  return state().config;
}

}  // namespace Snmp
