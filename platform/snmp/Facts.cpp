#include "snmp/Facts.h"

namespace Snmp {

namespace {

bool areServed = true;
std::uint64_t requests = 0;

}  // namespace

void factsAreServedIs(bool value) {
  areServed = value;
}

bool areFactsServed() {
  return areServed;
}

void countRequest() {
  ++requests;
}

std::uint64_t requestCount() {
  return requests;
}

}  // namespace Snmp
