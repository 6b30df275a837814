#pragma once
// The reactors that several state machines use.
//
// Lifetime: a reactor calls the machine that owns it, and must not outlive it.

#include <functional>
#include <utility>

#include "ipsnmp/IpMibKeys.h"

namespace IpSnmp {

// The base of a reactor that one machine owns.
template <class Owner, class Watched>
class OwnedReactor : public Watched::Notifiee {
 public:
  explicit OwnedReactor(Owner* owner) : owner_(owner) {}

 protected:
  Owner* const owner_;
};

// The interface's ifIndex (1 to 2147483647); 0 without one, or without a record.
inline std::uint32_t assignedIfIndex(const Kel::Ptr<const Interface::IntfStatus>& status) {
  const auto index = ifIndex(status);
  return static_cast<std::int32_t>(index) < 1 ? 0 : index;
}

// Calls `changed` when the ifIndex of an interface may have changed, or its status record is deleted.
class IfIndexWatch : public Interface::IntfStatus::Notifiee {
 public:
  explicit IfIndexWatch(std::function<void()> changed) : changed_(std::move(changed)) {}
  void handleIfIndex() override { changed_(); }
  void handleKind() override { changed_(); }
  void handleDel() override { changed_(); }

 private:
  const std::function<void()> changed_;
};

// Calls `changed` when the status record of an interface is created or deleted.
class KelIntfStatusDir : public Interface::AllIntfStatusDir::Notifiee {
 public:
  explicit KelIntfStatusDir(std::function<void(const Vantu::IntfId&)> changed) : changed_(std::move(changed)) {}
  void handleIntfStatus(const Vantu::IntfId& intfId) override { changed_(intfId); }

 private:
  const std::function<void(const Vantu::IntfId&)> changed_;
};

}  // namespace IpSnmp
