#pragma once
// Finds the network namespaces that are VRFs: the files of a directory whose names are those of VRFs' namespaces
// (Vantu::nsNameOfVrf), as `ip netns add ns-<VRF>` makes them. `ip` makes an empty file first and a namespace of it
// afterwards, without a notification; so a file that is not a namespace yet is examined again, soon and then every second.
//
// A namespace that was deleted and made again under its name is another one, also when nobody looked in between.
// The directory may come later, and may be replaced.

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
    std::shared_ptr<const Vantu::NetNs> ns;  // null: the namespace is gone
  };

  // `own` is the default VRF's namespace, which is no other VRF's whatever file names it too.
  VrfNamespaces(std::string directory, const Vantu::NetNs::Id& own);
  ~VrfNamespaces();
  VrfNamespaces(const VrfNamespaces&) = delete;
  VrfNamespaces& operator=(const VrfNamespaces&) = delete;

  // Readable when something in the directory changed.
  int fd() const { return inotify_; }
  // What changed since the last call, as far as was told of or is due to be looked at again. What is gone comes
  // before what is there, name by name.
  std::vector<Change> changes();
  // The same after a look at everything: at the start, and once a second.
  std::vector<Change> lookOver();
  // When changes() is to be called although nothing is told; infinity for never.
  Kel::Seconds nextLook() const;

  // The namespace cannot be served now: it counts as gone, and is given out again by lookOver(). `why` is traced
  // unless it is what was traced last.
  void refuse(const L3::VrfName& vrf, const std::string& why);
  // It is served.
  void accept(const L3::VrfName& vrf);

 private:
  // A file that is no namespace yet.
  struct Wait {
    Kel::Seconds next = 0;
    Kel::Seconds interval = 0;
  };

  void watch();
  bool drain(std::set<std::string>& names);
  void look(const std::string& name, std::vector<Change>& changes);
  void lost(const std::string& name, std::vector<Change>& changes);
  void waitFor(const std::string& name);
  std::string refusal(const std::string& name, const Vantu::NetNs* ns) const;
  void complain(const std::string& name, const std::string& why);
  std::string fileOf(const std::string& name) const { return directory_ + "/" + name; }

  std::string directory_;
  Vantu::NetNs::Id own_;
  int inotify_;
  int watch_ = -1;  // of the directory, or of what it will be made in
  bool isDirectoryThere_ = false;
  Vantu::NetNs::Id directoryId_;                     // device and inode of what is watched
  std::map<std::string, Vantu::NetNs::Id> present_;  // by file name
  std::map<std::string, Wait> waiting_;
  std::map<std::string, std::string> complaints_;  // the last ones
};

}  // namespace Mirror
