#pragma once
// What state machines that keep rows by ifIndex watch of the interfaces: the directory of status records, and the
// record of an interface that they have rows for.
//
// They call back into their owner and must not outlive it.

#include <functional>
#include <utility>

#include "ipsnmp/IfIndex.h"

namespace IpSnmp {

// The interface's ifIndex (1 to 2147483647); 0 when it has none, or no record.
inline std::uint32_t assignedIfIndex(const Kel::Ptr<const Interface::IntfStatus>& status) {
  const auto index = ifIndex(status);
  return static_cast<std::int32_t>(index) < 1 ? 0 : index;
}

// Something that the ifIndex of an interface depends on has changed, or its record is gone.
class IfIndexWatch : public Interface::IntfStatus::Notifiee {
 public:
  explicit IfIndexWatch(std::function<void()> changed) : changed_(std::move(changed)) {}
  void handleIfIndex() override { changed_(); }
  void handleKind() override { changed_(); }
  void handleDel() override { changed_(); }

 private:
  const std::function<void()> changed_;
};

// The status record of an interface came or went.
class KelIntfStatusDir : public Interface::AllIntfStatusDir::Notifiee {
 public:
  explicit KelIntfStatusDir(std::function<void(const Vantu::IntfId&)> changed) : changed_(std::move(changed)) {}
  void handleIntfStatus(const Vantu::IntfId& intfId) override { changed_(intfId); }

 private:
  const std::function<void(const Vantu::IntfId&)> changed_;
};

}  // namespace IpSnmp
