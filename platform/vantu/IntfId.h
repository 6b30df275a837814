#pragma once
// The identifier of an interface: "Ethernet1", or "red/eth0" for an interface of VRF red. Any text of 1 to 255
// bytes is valid; the empty id (the default) stands for "no interface" and is not valid. Ordered by unsigned bytes.

#include <set>

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
  bool isValid() const { return !text_.empty(); }
  // The interface's own name: what follows the last '/', or all of it.
  std::string_view localName() const;

  const Kel::String& text() const { return text_; }
  Kel::String stringValue() const { return text_; }
  std::size_t hash() const { return std::hash<Kel::String>{}(text_); }
  friend auto operator<=>(const IntfId&, const IntfId&) = default;

 private:
  Kel::String text_;
};

// Which interfaces are management interfaces: those whose own name (IntfId::localName) begins with "Management",
// and those named in the configuration.
class MgmtIntfId {
 public:
  static bool isMgmtIntfId(const IntfId& intfId);

  // The configured ids, for the whole process; empty at start. A member names an interface by its whole id
  // ("red/eth0": that one) or by its own name ("eth0": in every VRF).
  static const std::set<IntfId>& configured();
  static void configuredIs(std::set<IntfId> intfIds);
};

// Which interfaces are dynamic tunnels: those whose own name (IntfId::localName) begins with "DynamicTunnel".
class DynamicTunnelIntfId {
 public:
  static bool isDynamicTunnelIntfId(const IntfId& intfId);
};

}  // namespace Vantu
