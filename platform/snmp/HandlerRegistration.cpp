#include "snmp/HandlerRegistration.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <string_view>

namespace Snmp {
namespace {

// Created on first use and never destroyed, since static objects of any source announce modules and withdraw them.
std::vector<HandlerRegistration*>& announced() {
  static auto* const list = new std::vector<HandlerRegistration*>;
  return *list;
}

constexpr int priorityBeforeDefault = 100;
bool isTakingPrecedence = false;

}  // namespace

AutoRegistree::AutoRegistree(HandlerRegistration* registration) : registration_(registration) {
  announced().push_back(registration);
}

AutoRegistree::~AutoRegistree() {
  std::erase(announced(), registration_);
}

std::vector<HandlerRegistration*> AutoRegistree::registrations() {
  auto sorted = announced();
  std::sort(sorted.begin(), sorted.end(), [](const HandlerRegistration* a, const HandlerRegistration* b) {
    return std::string_view(a->name()) < std::string_view(b->name());
  });
  return sorted;
}

bool takesPrecedence() {
  return isTakingPrecedence;
}

void setTakesPrecedence(bool takes) {
  isTakingPrecedence = takes;
}

int registrationPriority() {
  return isTakingPrecedence ? priorityBeforeDefault : DEFAULT_MIB_PRIORITY;
}

}  // namespace Snmp
