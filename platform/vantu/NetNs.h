#pragma once
// Names network namespaces, and switches the calling thread between them.
//
// The name "default" means the namespace in which the process started. Any other name N means the namespace whose file
// is N in the directory of namespaces (/run/netns/N, as `ip netns add N` makes it). The namespace of VRF red is named
// "ns-red":
//
//   const Vantu::NetNsGuard guard(Vantu::nsNameOfVrf(vrfName));
//   // until the end of the scope, files opened below /proc/net and new sockets belong to the VRF
//
// Descriptors that are already open keep their namespace.
// Requires: CAP_SYS_ADMIN, except to enter the namespace in which the thread already is.

#include <sys/types.h>

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace Vantu {

// Returns the name of a VRF's namespace: "default" for VRF "default" and for empty text, else "ns-" and the VRF's name.
std::string nsNameOfVrf(std::string_view vrfName);
// Returns the text after "ns-", or nullopt without that prefix. The text is unchecked: it may be empty or too long
// for a VRF's name.
std::optional<std::string> vrfOfNsName(std::string_view nsName);

// Whether the process has the capability to enter other namespaces.
bool mayEnterNs();

// Sets the process-wide directory in which setNsByName() and NetNsGuard look names up. Requires: only the thread that
// enters namespaces sets it.
inline constexpr const char* defaultNetNsDirectory = "/run/netns";
void setNetNsDirectory(std::string directory);

// Enters the namespace `nsName`. Throws Kel::Exception that names the namespace, its file and the reason; then the
// thread stays in its namespace.
void setNsByName(const char* nsName);

// An open handle to a namespace. Lifetime: the namespace exists while the handle does, even when its file is removed.
class NetNs {
 public:
  // Unique among the namespaces that exist at one time, hence among those held open (stat(2) of nsfs).
  struct Id {
    dev_t device = 0;
    ino_t inode = 0;
    friend auto operator<=>(const Id&, const Id&) = default;
  };

  // True for the file of a namespace of any kind, such as `ip netns add` makes. Does not open the file: opening a FIFO
  // would block.
  static bool isNamespace(const std::string& file);

  // The namespace that the calling thread is in. Throws Kel::Exception if it cannot be opened (no descriptor is left,
  // for example).
  NetNs();
  // The namespace of `file`. Enters it for a moment, so that the handle does not keep the file's mount busy: the
  // file may be unmounted and removed afterwards. Throws Kel::Exception that names the file and the reason.
  explicit NetNs(const std::string& file);
  ~NetNs();
  NetNs(const NetNs&) = delete;
  NetNs& operator=(const NetNs&) = delete;

  const Id& id() const { return id_; }
  // For messages: the file, or "the present namespace".
  const std::string& name() const { return name_; }

 private:
  friend class NetNsGuard;
  int detach();

  std::string name_;
  int fd_;
  Id id_;
};

// Enters a namespace; the destructor returns to the previous one, which need not be the default. Aborts the process
// when it cannot return: later work would run in the wrong namespace.
class NetNsGuard {
 public:
  explicit NetNsGuard(const std::string& nsName);  // throws as setNsByName()
  explicit NetNsGuard(const NetNs& ns);            // throws likewise
  ~NetNsGuard();
  NetNsGuard(const NetNsGuard&) = delete;
  NetNsGuard& operator=(const NetNsGuard&) = delete;

 private:
  int previous_;  // descriptor of the namespace to return to
};

}  // namespace Vantu
