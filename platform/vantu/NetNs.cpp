#include "vantu/NetNs.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/capability.h>
#include <linux/magic.h>
#include <linux/nsfs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "kel/Errors.h"

namespace Vantu {
namespace {

constexpr const char* presentNsFile = "/proc/thread-self/ns/net";
constexpr std::string_view defaultName = "default";
constexpr std::string_view vrfPrefix = "ns-";

// Never destroyed, since static destructors may still enter namespaces.
std::string& directory() {
  static auto* const instance = new std::string(defaultNetNsDirectory);
  return *instance;
}

int openNs(const std::string& path) {
  return open(path.c_str(), O_RDONLY | O_CLOEXEC);
}

// Opened at load, before any thread can have changed its namespace; held for the life of the process.
const int startNs = openNs(presentNsFile);

[[noreturn]] void cannotEnter(std::string_view nsName, std::string_view file, int error) {
  std::string_view advice = "check that the namespace exists (ip netns list)";
  if (error == EPERM) advice = "the process needs CAP_SYS_ADMIN";
  if (error == EMFILE || error == ENFILE) advice = "raise the limit of open files (ulimit -n)";
  if (error == EINVAL) advice = "the file is not a network namespace; it may have been deleted meanwhile";
  throw Kel::Exception(fmt::format("cannot enter network namespace {:?} ({}): {}; {}", nsName, file,
                                   std::generic_category().message(error), advice));
}

bool isPresentNs(int ns) {
  struct stat present {};
  struct stat wanted {};
  return stat(presentNsFile, &present) == 0 && fstat(ns, &wanted) == 0 && present.st_dev == wanted.st_dev &&
         present.st_ino == wanted.st_ino;
}

// Kernels before 4.11 lack NS_GET_NSTYPE, so any nsfs file is accepted there.
bool isNet(int ns) {
  const int type = ioctl(ns, NS_GET_NSTYPE);
  return type == CLONE_NEWNET ||
         (type < 0 && errno == ENOTTY && NetNs::isNamespace(fmt::format("/proc/self/fd/{}", ns)));
}

// Returns zero or the error number. A no-op for the namespace that the thread is in, so that this needs no privilege.
int enter(int ns) {
  if (isPresentNs(ns) || setns(ns, CLONE_NEWNET) == 0) return 0;
  return errno;
}

void enterByName(std::string_view name) {
  if (name == defaultName) {
    const int error = startNs < 0 ? ENOENT : enter(startNs);
    if (error != 0) cannotEnter(name, presentNsFile, error);
    return;
  }
  const std::string path = fmt::format("{}/{}", directory(), name);
  // A name must be that of one file in the directory, so a VRF with a '/' in its name has no namespace.
  const bool isFileName = !name.empty() && name != "." && name != ".." &&
                          name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
  if (!isFileName) cannotEnter(name, path, ENOENT);
  const int ns = openNs(path);
  if (ns < 0) cannotEnter(name, path, errno);
  const int error = enter(ns);
  close(ns);
  if (error != 0) cannotEnter(name, path, error);
}

}  // namespace

std::string nsNameOfVrf(std::string_view vrfName) {
  if (vrfName.empty() || vrfName == defaultName) return std::string(defaultName);
  return fmt::format("{}{}", vrfPrefix, vrfName);
}

std::optional<std::string> vrfOfNsName(std::string_view nsName) {
  if (!nsName.starts_with(vrfPrefix)) return std::nullopt;
  return std::string(nsName.substr(vrfPrefix.size()));
}

bool mayEnterNs() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3]{};
  return syscall(SYS_capget, &header, data) == 0 && (data[0].effective & CAP_TO_MASK(CAP_SYS_ADMIN)) != 0;
}

void setNetNsDirectory(std::string newDirectory) {
  directory() = std::move(newDirectory);
}

void setNsByName(const char* nsName) {
  enterByName(nsName);
}

bool NetNs::isNamespace(const std::string& file) {
  struct statfs system {};
  return statfs(file.c_str(), &system) == 0 && system.f_type == NSFS_MAGIC;
}

NetNs::NetNs() : NetNs(presentNsFile) {
  name_ = "the present namespace";
}

NetNs::NetNs(const std::string& file) : name_(file), fd_(openNs(file)) {
  struct stat status {};
  int error = fd_ >= 0 && fstat(fd_, &status) == 0 ? 0 : errno;
  if (error == 0 && !isNet(fd_)) error = EINVAL;
  id_ = {status.st_dev, status.st_ino};
  if (error == 0 && !isPresentNs(fd_)) error = detach();
  if (error == 0) return;
  if (fd_ >= 0) close(fd_);
  cannotEnter(file, file, error);
}

// Replaces fd_, which keeps the file's mount busy, by a descriptor that was opened inside the namespace. Returns zero
// or the error number.
int NetNs::detach() {
  const int previous = openNs(presentNsFile);
  if (previous < 0) return errno;
  int error = enter(fd_);
  if (error == 0) {
    const int inside = openNs(presentNsFile);
    if (inside < 0) error = errno;
    KEL_ASSERT_TEXT(enter(previous) == 0, "the thread came back to the network namespace that it left");
    if (inside >= 0) close(std::exchange(fd_, inside));
  }
  close(previous);
  return error;
}

NetNs::~NetNs() {
  close(fd_);
}

NetNsGuard::NetNsGuard(const NetNs& ns) : previous_(openNs(presentNsFile)) {
  if (previous_ < 0) cannotEnter(ns.name(), presentNsFile, errno);
  const int error = enter(ns.fd_);
  if (error == 0) return;
  close(previous_);
  cannotEnter(ns.name(), ns.name(), error);
}

NetNsGuard::NetNsGuard(const std::string& nsName) : previous_(openNs(presentNsFile)) {
  if (previous_ < 0) cannotEnter(nsName, presentNsFile, errno);
  try {
    enterByName(nsName);
  } catch (...) {
    close(previous_);
    throw;
  }
}

NetNsGuard::~NetNsGuard() {
  KEL_ASSERT_TEXT(enter(previous_) == 0, "the thread came back to the network namespace that it left");
  close(previous_);
}

}  // namespace Vantu
