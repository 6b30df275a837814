#pragma once
// A table's columns as registrations of their own, which pass every request on to the table.
//
// Some modules register their tables column by column, and net-snmp prefers the longer identifier, whatever the
// priorities: a table of ours that is to take the place of such a one has to be registered as deeply.

#include "modules/frame/Module.h"

namespace Modules {

// Registers a cover for the column of a table. `table` has to be registered, and to stay so for longer: list covers
// before it. Null when the agent refuses it.
netsnmp_handler_registration* coverColumn(netsnmp_handler_registration* table, unsigned column);

}  // namespace Modules
