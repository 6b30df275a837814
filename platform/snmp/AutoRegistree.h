#pragma once
// Announces a module to the framework while it exists: made at load, gone at unload. A module must not be unloaded
// while a context is entered: net-snmp would go on calling its handlers.

#include <vector>

#include "snmp/HandlerRegistration.h"

namespace Snmp {

class AutoRegistree {
 public:
  // `registration` is not owned and must outlive this object.
  explicit AutoRegistree(HandlerRegistration* registration);
  ~AutoRegistree();
  AutoRegistree(const AutoRegistree&) = delete;
  AutoRegistree& operator=(const AutoRegistree&) = delete;

  // Every announced module, in order of name.
  static std::vector<HandlerRegistration*> registrations();

 private:
  HandlerRegistration* registration_;
};

}  // namespace Snmp
