#include "varnix/Interface.h"

#include <map>

namespace Interface {
namespace {

std::map<Kel::String, const IntfDetailsProvider*>& providers() {
  static std::map<Kel::String, const IntfDetailsProvider*> all;
  return all;
}

}  // namespace

const IntfDetailsProvider* IntfDetailsProvider::find(const IntfStatus& status) {
  const auto at = providers().find(status.kind());
  return at == providers().end() ? nullptr : at->second;
}

void IntfDetailsProvider::providerIs(const Kel::String& kind, const IntfDetailsProvider* provider) {
  if (provider) {
    providers()[kind] = provider;
  } else {
    providers().erase(kind);
  }
}

}  // namespace Interface
