#pragma once
// Interface status records, and the providers that know more of an interface than its record says.

#include "kel/Attribute.h"
#include "kel/Entity.h"
#include "vantu/EthAddr.h"
#include "vantu/IntfId.h"

namespace Interface {

// The values of ifOperStatus (RFC 2863).
enum OperStatus : int {
  operStatusUp = 1,
  operStatusDown = 2,
  operStatusTesting = 3,
  operStatusUnknown = 4,
  operStatusDormant = 5,
  operStatusNotPresent = 6,
  operStatusLowerLayerDown = 7
};
BOOST_DESCRIBE_ENUM(OperStatus, operStatusUp, operStatusDown, operStatusTesting, operStatusUnknown,
                    operStatusDormant, operStatusNotPresent, operStatusLowerLayerDown)

class IntfStatus : public Kel::Entity {
  KEL_TYPE_BEGIN("Interface::IntfStatus", IntfStatus, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IntfStatus, ((Vantu::IntfId, intfId)))
  KEL_STORED(Kel::String, kind, Kind)             // names the details provider; "linux" for a kernel interface
  KEL_STORED(std::uint32_t, ifIndex, IfIndex, 0)  // what the publisher assigned; 0 when it has none
  KEL_STORED(OperStatus, operStatus, OperStatus, operStatusUnknown)
  KEL_STORED(Vantu::EthAddr, ethAddr, EthAddr)
  KEL_TYPE_END_DECLARE
};

class AllIntfStatusDir : public Kel::Entity {
  KEL_TYPE_BEGIN("Interface::AllIntfStatusDir", AllIntfStatusDir, Kel::Entity)
 public:
  KEL_NAMED(AllIntfStatusDir, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, IntfStatus, intfStatus, IntfStatus)
  KEL_TYPE_END_DECLARE
};

// Knows the details of interfaces of one kind.
class IntfDetailsProvider {
 public:
  virtual ~IntfDetailsProvider() = default;
  // 0 when the interface has none (yet).
  virtual std::uint32_t ifIndex(const IntfStatus& status) const = 0;

  // The provider of a record's kind; null when there is none. Providers are registered by the hosting process and
  // must outlive their registration; null withdraws.
  static const IntfDetailsProvider* find(const IntfStatus& status);
  static void providerIs(const Kel::String& kind, const IntfDetailsProvider* provider);
};

// Kernel interfaces: the index that the publisher put into the record.
class LinuxIntfDetails : public IntfDetailsProvider {
 public:
  static constexpr const char* kind = "linux";
  std::uint32_t ifIndex(const IntfStatus& status) const override { return status.ifIndex(); }
};

}  // namespace Interface
