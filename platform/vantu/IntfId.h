#pragma once
// The identifier of an interface: "Ethernet1", or "red/eth0" for an interface of VRF red. Any text of 1 to 255 bytes is
// valid; the default is the empty id, which means "no interface". Ordered by unsigned bytes.
//
// An id takes 8 bytes, and copies are cheap: all ids of the process with the same text share it. Thread: sharing is not
// locked; all ids stay on one thread.

#include <compare>
#include <functional>
#include <set>

#include "kel/Ptr.h"
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

  bool empty() const { return text_ == nullptr; }
  bool isValid() const { return !empty(); }
  // The interface's own name: what follows the last '/', or all of it.
  std::string_view localName() const;

  const Kel::String& text() const { return text_ ? text_->text : noText(); }
  Kel::String stringValue() const { return text(); }
  std::size_t hash() const { return std::hash<const SharedText*>{}(text_.get()); }
  friend bool operator==(const IntfId& a, const IntfId& b) { return a.text_ == b.text_; }
  friend std::strong_ordering operator<=>(const IntfId& a, const IntfId& b) {
    return a == b ? std::strong_ordering::equal : a.text() <=> b.text();
  }

 private:
  // The only one with its text, which is not empty.
  struct SharedText : Kel::PtrInterface {
    explicit SharedText(std::string_view from);
    ~SharedText() override;
    const Kel::String text;
  };

  static const Kel::String& noText();

  Kel::Ptr<const SharedText> text_;  // null: the empty id
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
