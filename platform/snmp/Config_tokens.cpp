#include <fmt/format.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <functional>
#include <sstream>
#include <utility>

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

using Setter = void (Config::*)(const Kel::String&);

// Parsers of a line with one value, and with any number of words.
template <Setter setter>
void parseValue(const char* token, char* line) {
  parse(token, [&] { (*state().config.*setter)(line); });
}

template <Setter setter>
void parseWords(const char* token, char* line) {
  parse(token, [&] {
    std::istringstream stream(line);
    for (Kel::String word; stream >> word;) (*state().config.*setter)(word);
  });
}

void trace(const char* token, char* line) {
  parse(token, [&] { Kel::TraceConfig::setLevels(line); });
}

void traceOutput(const char* token, char* line) {
  parse(token, [&] {
    const Kel::String target = line;
    if (target == "stderr") {
      Kel::TraceConfig::setOutput(Output::standardError, "");
    } else if (target == "syslog") {
      Kel::TraceConfig::setOutput(Output::syslog, syslogIdentity);
    } else if (target.starts_with('/')) {
      Kel::TraceConfig::setOutput(Output::file, target);
    } else {
      throw Kel::RangeException("'" + target + "' is neither stderr nor syslog nor an absolute path");
    }
    Kel::TraceConfig::setSink({});
  });
}

void reset() {
  parse("trace output", [] {
    state().config = Kel::makePtr<Config>();
    Kel::TraceConfig::reset();
    Kel::TraceConfig::setOutput(state().defaultOutput, state().defaultTarget);
    if (state().defaultSink) Kel::TraceConfig::setSink(state().defaultSink);
  });
}

struct Token {
  const char* name;
  void (*parser)(const char* token, char* line);
  const char* help;
};

constexpr Token tokens[] = {
    {"quorinDisableObjects", parseWords<&Config::disableObjects>,
     "GROUP...   (groups: route-tables interface-tables ip-mib-tables mpls-l3vpn)"},
    {"quorinStore", parseValue<&Config::setStoreDirectory>, "DIR"},
    {"quorinNetnsDir", parseValue<&Config::netnsDirectoryIs>, "DIR"},
    {"quorinKernelIpHeader", parseValue<&Config::setKernelIpHeader>, "strict | any"},
    {"quorinDefaultInterfaces", parseValue<&Config::setDefaultInterfaces>, "own | all"},
    {"quorinManagementInterfaces", parseWords<&Config::addManagementInterface>, "INTERFACE..."},
    {"quorinRouteCountInterval", parseValue<&Config::routeCountIntervalIs>, "SECONDS   (1 to 86400)"},
    {"quorinIdleTimeout", parseValue<&Config::idleTimeoutIs>, "SECONDS   (0 to 86400; 0: never)"},
    {"quorinStaleAfter", parseValue<&Config::staleAfterIs>, "SECONDS   (0 to 86400; 0: never)"},
    {"quorinControlSocket", parseValue<&Config::controlSocketIs>, "PATH | none"},
    {"quorinContextCommunities", parseValue<&Config::contextCommunitiesIs>, "SEPARATOR | none"},
    {"quorinVrfSysName", parseValue<&Config::vrfSysNameIs>, "TEMPLATE | none   (such as %h-%v)"},
    {"quorinTrace", trace, "FACILITY/LEVELS[;...]   (such as IpBase/0-2,8)"},
    {"quorinTraceOutput", traceOutput, "stderr | syslog | FILE"},
};

}  // namespace

void registerConfigTokens() {
  reset();
  // net-snmp calls `reset` before each reading of the configuration; one token is enough for that.
  void (*atReading)() = reset;
  for (const auto& token : tokens) {
    register_app_config_handler(token.name, token.parser, std::exchange(atReading, nullptr), token.help);
  }
}

void unregisterConfigTokens() {
  for (const auto& token : tokens) unregister_app_config_handler(token.name);
}

void setDefaultTraceOutput(Output output, const Kel::String& target) {
  state().defaultOutput = output;
  state().defaultTarget = target;
}

void setDefaultTraceSink(Kel::TraceConfig::Sink sink) {
  state().defaultSink = std::move(sink);
}

Config::PtrConst currentConfig() {
  return state().config;
}

}  // namespace Snmp
