#include "varnix/FecModeStatus.h"

KEL_TYPE_DEFINE(Quillo::Fib::FecModeStatus)
