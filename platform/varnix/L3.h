#pragma once
// Layer-3 records of the switch (its FEC mode) and of interfaces: their VRF, as configured (Config) and in effect
// (Status).

#include "kel/Entity.h"
#include "quillo/tables/Fec.h"
#include "vantu/IntfId.h"
#include "varnix/Values.h"

namespace L3 {

class Config : public Kel::Entity {
  KEL_TYPE_BEGIN("L3::Config", Config, Kel::Entity)
 public:
  KEL_NAMED(Config, Kel::Entity)
  // How the publisher keeps forwarding equivalence classes; unknown: one table for each VRF.
  KEL_STORED(Quillo::Fib::FecMode, fecMode, FecMode, Quillo::Fib::fecModeUnknown)
  KEL_TYPE_END_DECLARE
};

}  // namespace L3

namespace L3::Intf {

class Config : public Kel::Entity {
  KEL_TYPE_BEGIN("L3::Intf::Config", Config, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(Config, ((Vantu::IntfId, intfId)))
  KEL_STORED(L3::VrfName, vrf, Vrf)
  KEL_TYPE_END_DECLARE
};

class ConfigDir : public Kel::Entity {
  KEL_TYPE_BEGIN("L3::Intf::ConfigDir", ConfigDir, Kel::Entity)
 public:
  KEL_NAMED(ConfigDir, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, Config, intfConfig, IntfConfig)
  KEL_TYPE_END_DECLARE
};

class Status : public Kel::Entity {
  KEL_TYPE_BEGIN("L3::Intf::Status", Status, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(Status, ((Vantu::IntfId, intfId)))
  KEL_STORED(L3::VrfName, vrf, Vrf)
  KEL_TYPE_END_DECLARE
};

class StatusDir : public Kel::Entity {
  KEL_TYPE_BEGIN("L3::Intf::StatusDir", StatusDir, Kel::Entity)
 public:
  KEL_NAMED(StatusDir, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, Status, intfStatus, IntfStatus)
  KEL_TYPE_END_DECLARE
};

}  // namespace L3::Intf
