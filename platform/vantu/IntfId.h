#pragma once
// The identifier of an interface: "Ethernet1", or "red/eth0" for an interface of VRF red. Any text of 1 to 255 bytes is
// valid; the default is the empty id, which means "no interface". Ordered by unsigned bytes.
//
// Thread: as Kel::SharedText.

#include <compare>
#include <set>

#include "kel/SharedText.h"
#include "vantu/ValueConcept.h"

namespace Vantu {

class IntfId {
 public:
  static constexpr bool isVantuValue = true;
  static constexpr std::size_t maxLength = 255;  // bytes

  IntfId() = default;
  // Throws Kel::RangeException when `text` is longer than maxLength.
  explicit IntfId(std::string_view text);
  static IntfId fromString(std::string_view text) { return IntfId(text); }

  bool empty() const { return text_.empty(); }
  bool isValid() const { return !empty(); }
  // The interface's own name: what follows the last '/', or all of it.
  std::string_view localName() const;

  const Kel::String& text() const { return text_.text(); }
  Kel::String stringValue() const { return text(); }
  std::size_t hash() const { return text_.hash(); }
  friend auto operator<=>(const IntfId&, const IntfId&) = default;

 private:
  Kel::SharedText text_;
};

// Identifies management interfaces: those whose own name (IntfId::localName) begins with "Management", and those
// named in the configuration.
class MgmtIntfId {
 public:
  static bool isMgmtIntfId(const IntfId& intfId);

  // The configured ids of the process; initially empty. A whole id ("red/eth0") names one interface, an interface's own
  // name ("eth0") the interfaces of that name in all VRFs.
  static const std::set<IntfId>& configured();
  static void configuredIs(std::set<IntfId> intfIds);
};

// Identifies dynamic tunnels: interfaces whose own name (IntfId::localName) begins with "DynamicTunnel".
class DynamicTunnelIntfId {
 public:
  static bool isDynamicTunnelIntfId(const IntfId& intfId);
};

}  // namespace Vantu
