#include "snmp/Contexts.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <map>
#include <set>

#include "kel/Errors.h"
#include "kel/Trace.h"
#include "snmp/HandlerRegistration.h"

namespace Snmp {

static Kel::TraceHandle contextsTrace("SnmpContexts");

namespace {

// Thousands of contexts have the same modules, so a name is kept once.
using ModuleNames = std::vector<const Kel::String*>;

const Kel::String* moduleNamed(const Kel::String& name) {
  static auto* const names = new std::set<Kel::String>;
  return &*names->insert(name).first;
}

std::map<Kel::String, ModuleNames>& modulesByContext() {
  static auto* const map = new std::map<Kel::String, ModuleNames>;
  return *map;
}

// Removes what net-snmp itself registered in a context where nothing else is registered: the roots ccitt, iso and
// joint-iso-ccitt. They were split at each object, and the parts (7 kB of a VRF) would stay forever. Without them the
// context is unknown, as before it was entered.
void removeRoots(const Kel::String& context) {
  constexpr int rootPriority = 0;
  for (auto* part = netsnmp_subtree_find_first(context.c_str()); part != nullptr; part = part->next) {
    for (auto* each = part; each != nullptr; each = each->children) {
      if (each->namelen > 1) return;
    }
  }
  for (oid root = 0; root <= 2; ++root) {
    unregister_mib_context(&root, 1, rootPriority, 0, 0, context.c_str());
  }
}

}  // namespace

Contexts::~Contexts() {
  while (!entered_.empty()) leave(entered_.end() - 1);
}

void Contexts::enter(const Kel::String& context) {
  QTRACE_ENTRY(contextsTrace, entered_.size());
  if (isEntered(context)) return;
  if (entered_.empty() && !context.empty()) {
    throw Kel::RangeException("SNMP context \"" + context + "\" cannot be entered before the default context");
  }
  if (context.find('\0') != Kel::String::npos) {
    throw Kel::RangeException("an SNMP context cannot have a null byte in its name");
  }
  QTRACE(contextsTrace, 1) << "entering context \"" << context << "\"";
  const auto modules = AutoRegistree::registrations();
  entered_.push_back({context, modules});
  for (HandlerRegistration* module : modules) module->initHandler(context);
  for (HandlerRegistration* module : modules) module->entered(context);
}

void Contexts::leave(const Kel::String& context) {
  QTRACE_ENTRY(contextsTrace, entered_.size());
  if (context.empty()) {
    while (!entered_.empty()) leave(entered_.end() - 1);
  } else if (const auto found = find(context); found != entered_.end()) {
    leave(found);
  }
}

void Contexts::leave(std::vector<Entered>::const_iterator context) {
  const auto [name, modules] = *context;  // a copy, since `context` is erased
  entered_.erase(context);
  QTRACE(contextsTrace, 1) << "leaving context \"" << name << "\"";
  for (HandlerRegistration* module : modules) module->leaving(name);
  for (auto module = modules.rbegin(); module != modules.rend(); ++module) (*module)->exitHandler(name);
  if (!name.empty()) removeRoots(name);
}

bool Contexts::isEntered(const Kel::String& context) const {
  return find(context) != entered_.end();
}

std::vector<Kel::String> Contexts::names() const {
  std::vector<Kel::String> names;
  for (const auto& entered : entered_) names.push_back(entered.name);
  return names;
}

std::vector<Contexts::Entered>::const_iterator Contexts::find(const Kel::String& context) const {
  return std::find_if(entered_.begin(), entered_.end(),
                      [&](const Entered& entered) { return entered.name == context; });
}

void registerMibContext(const Kel::String& context, const Kel::String& moduleName) {
  auto& modules = modulesByContext()[context];
  const auto* const name = moduleNamed(moduleName);
  if (std::find(modules.begin(), modules.end(), name) == modules.end()) modules.push_back(name);
}

void unregisterMibContext(const Kel::String& context, const Kel::String& moduleName) {
  auto& all = modulesByContext();
  const auto found = all.find(context);
  if (found == all.end()) return;
  std::erase(found->second, moduleNamed(moduleName));
  if (found->second.empty()) all.erase(found);
}

std::vector<Kel::String> mibContexts() {
  std::vector<Kel::String> contexts;
  for (const auto& [context, modules] : modulesByContext()) contexts.push_back(context);
  return contexts;
}

bool isMibContext(const Kel::String& context) {
  return modulesByContext().contains(context);
}

std::vector<Kel::String> mibContextModules(const Kel::String& context) {
  const auto found = modulesByContext().find(context);
  std::vector<Kel::String> modules;
  if (found != modulesByContext().end()) {
    for (const auto* module : found->second) modules.push_back(*module);
  }
  std::sort(modules.begin(), modules.end());
  return modules;
}

}  // namespace Snmp
