#include "snmp/MibContexts.h"

#include <map>
#include <set>

namespace Snmp {

namespace {

std::map<Kel::String, std::set<Kel::String>>& modulesByContext() {
  static auto* const map = new std::map<Kel::String, std::set<Kel::String>>;
  return *map;
}

}  // namespace

void registerMibContext(const Kel::String& context, const Kel::String& moduleName) {
  modulesByContext()[context].insert(moduleName);
}

void unregisterMibContext(const Kel::String& context, const Kel::String& moduleName) {
  auto& all = modulesByContext();
  const auto found = all.find(context);
  if (found == all.end()) return;
  found->second.erase(moduleName);
  if (found->second.empty()) all.erase(found);
}

std::vector<Kel::String> mibContexts() {
  std::vector<Kel::String> contexts;
  for (const auto& [context, modules] : modulesByContext()) contexts.push_back(context);
  return contexts;
}

std::vector<Kel::String> mibContextModules(const Kel::String& context) {
  const auto found = modulesByContext().find(context);
  if (found == modulesByContext().end()) return {};
  return {found->second.begin(), found->second.end()};
}

}  // namespace Snmp
