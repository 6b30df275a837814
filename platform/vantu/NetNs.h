#pragma once
// Names network namespaces, and switches the calling thread between them.
//
// A namespace is known by its name: "default" is the one that the process started in, any other name N is the one
// whose file is N in the directory of namespaces (/run/netns/N, as `ip netns add N` makes it). The namespace of VRF
// red is named "ns-red":
//
//   const Vantu::NetNsGuard guard(Vantu::nsNameOfVrf(vrfName));
//   // to the end of the scope, what is opened of /proc/net, and each new socket, is the VRF's
//
// Descriptors that were open before keep their namespace. Requires CAP_SYS_ADMIN, except to enter the present
// namespace.

#include <sys/types.h>

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace Vantu {

// "default" for VRF "default" (and for empty text), "ns-" followed by the name for any other VRF.
std::string nsNameOfVrf(std::string_view vrfName);
// The reverse of the latter: what follows "ns-", which may be no VRF's name; none for a name that begins otherwise.
std::optional<std::string> vrfOfNsName(std::string_view nsName);

// The directory that setNsByName() and NetNsGuard look in. One for the whole process; to be changed by the thread
// that enters namespaces.
inline constexpr const char* defaultNetNsDirectory = "/run/netns";
void netNsDirectoryIs(std::string directory);

// Enters the namespace `nsName`. Throws Kel::Exception that names the namespace, its file and the reason; the
// thread then is where it was.
void setNsByName(const char* nsName);

// A namespace that is held open, also after the file that named it was removed.
class NetNs {
 public:
  // No two namespaces that exist at the same time have the same, and what is held open exists.
  struct Id {
    dev_t device = 0;
    ino_t inode = 0;
    friend auto operator<=>(const Id&, const Id&) = default;
  };

  // True for the file of a namespace, as `ip netns add` makes it. The file is not opened, since it might be anything.
  static bool isNamespace(const std::string& file);

  // The namespace that the calling thread is in.
  NetNs();
  // The one that `file` names, which is entered for a moment; the file may be unmounted and removed afterwards.
  // Throws Kel::Exception that names the file and the reason.
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

// Enters a namespace for a scope and comes back to the namespace of before, which need not be the default one.
// Aborts the process if it cannot come back: nothing may go on in a namespace where it does not belong.
class NetNsGuard {
 public:
  explicit NetNsGuard(const std::string& nsName);  // throws as setNsByName()
  explicit NetNsGuard(const NetNs& ns);            // the same
  ~NetNsGuard();
  NetNsGuard(const NetNsGuard&) = delete;
  NetNsGuard& operator=(const NetNsGuard&) = delete;

 private:
  int previous_;  // descriptor of the namespace to come back to
};

}  // namespace Vantu
