// The standalone agent.

#include "host/Composition.h"

int main(int argc, char* argv[]) {
  return Host::agentMain(argc, argv, Host::Composition::hooks());
}
