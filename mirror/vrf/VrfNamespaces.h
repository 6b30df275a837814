#pragma once
// Finds the network namespaces that are VRFs: the files of a directory that are named for a VRF (Vantu::nsNameOfVrf),
// as `ip netns add ns-<VRF>` makes them. `ip` first makes an empty file, and mounts the namespace on it later without
// a notification. So a file that is not a namespace yet is examined again, first soon and then every second.
//
// A namespace that was deleted and created again under its name is reported as deleted and added, even if both happened
// between two examinations. The directory may be created later, and may be replaced.

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kel/System.h"
#include "vantu/NetNs.h"
#include "varnix/Values.h"

namespace Mirror {

class VrfNamespaces {
 public:
  struct Change {
    L3::VrfName vrf;
    std::shared_ptr<const Vantu::NetNs> ns;  // null: the namespace was deleted
  };

  // `own` is the default VRF's namespace; files that name it are refused. Throws Kel::Exception if inotify is not
  // available.
  VrfNamespaces(std::string directory, const Vantu::NetNs::Id& own);
  ~VrfNamespaces();
  VrfNamespaces(const VrfNamespaces&) = delete;
  VrfNamespaces& operator=(const VrfNamespaces&) = delete;

  // Readable after a change of the directory.
  int fd() const { return inotify_; }
  // The changes since the last call, from notifications and due examinations. The deletion of a name precedes its
  // addition.
  std::vector<Change> changes();
  // The same after examining every file that is not served. Call it at the start and once a second. Every tenth time,
  // and whenever notifications may be missing, it examines the served ones too: there may be thousands, and the kernel
  // notifies of their deletion.
  std::vector<Change> lookOver();
  // When to call changes() even without a notification; infinity: never.
  Kel::Seconds nextLook() const;

  // Marks the namespace as not served; the next lookOver() reports it again. Traces `why` unless it is the same as last
  // time.
  void refuse(const L3::VrfName& vrf, const std::string& why);
  // Marks the namespace as served.
  void accept(const L3::VrfName& vrf);

 private:
  // A file that is not a namespace yet.
  struct Wait {
    Kel::Seconds next = 0;
    Kel::Seconds interval = 0;
  };

  static constexpr unsigned looksPerListing = 10;

  void watch();
  bool drain(std::set<std::string>& names);
  std::vector<Change> lookAtAll();
  std::vector<Change> lookAt(const std::set<std::string>& names);
  void look(const std::string& name, std::vector<Change>& changes);
  void lost(const std::string& name, std::vector<Change>& changes);
  void waitFor(const std::string& name);
  std::string refusal(const std::string& name, const Vantu::NetNs* ns) const;
  void complain(const std::string& name, const std::string& why);
  std::string fileOf(const std::string& name) const { return directory_ + "/" + name; }

  std::string directory_;
  Vantu::NetNs::Id own_;
  int inotify_;
  int watch_ = -1;  // of the directory; while it is missing, of its parent
  bool isDirectoryThere_ = false;
  unsigned looks_ = 0;
  Vantu::NetNs::Id directoryId_;                     // device and inode of the watched directory
  std::map<std::string, Vantu::NetNs::Id> present_;  // by file name
  std::map<std::string, Wait> waiting_;
  std::map<std::string, std::string> complaints_;  // the last one of each file
};

}  // namespace Mirror
