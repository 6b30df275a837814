#include "mirror/vrf/SettingsFile.h"

#include <fmt/format.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "kel/Errors.h"
#include "kel/Trace.h"

namespace Mirror {

namespace {

Kel::TraceHandle settingsFileTrace("MirrorSettings");

// A configuration is a few lines a VRF; what is larger is no configuration.
constexpr off_t maxBytes = 16 << 20;

}  // namespace

SettingsFile::SettingsFile(std::string file, bool mustExist) : file_(std::move(file)) {
  if (file_.empty()) return;
  inotify_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  watch();
  read_ = pending_ = signature();
  if (!read_ && mustExist) {
    throw Kel::Exception(fmt::format("cannot read {}: {}; name another file with --config, or make it", file_,
                                     std::strerror(errno)));
  }
  if (read_) settings_ = vrfSettingsFromText(text(), file_);
}

SettingsFile::~SettingsFile() {
  if (inotify_ >= 0) close(inotify_);
}

// Of the directory, since the file may be put in the place of another one. Without a watch there is poll().
void SettingsFile::watch() {
  const std::string directory = std::filesystem::path(file_).parent_path().string();
  watch_ = inotify_add_watch(inotify_, directory.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_ONLYDIR);
}

SettingsFile::Signature SettingsFile::signature() const {
  struct stat status {};
  if (stat(file_.c_str(), &status) != 0) return std::nullopt;
  return fmt::format("{} {} {} {}.{}", status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                     status.st_mtim.tv_nsec);
}

std::string SettingsFile::text() const {
  struct stat status {};
  if (stat(file_.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > maxBytes) {
    throw Kel::Exception(
        fmt::format("cannot read {}: it is no file of at most 16 MiB; put a configuration there", file_));
  }
  std::ifstream in(file_, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  if (!in) throw Kel::Exception(fmt::format("cannot read {}: {}", file_, std::strerror(errno)));
  return text.str();
}

bool SettingsFile::update() {
  alignas(inotify_event) char buffer[4096];
  bool isConcerned = false;
  const std::string name = std::filesystem::path(file_).filename().string();
  for (ssize_t size = 0; (size = read(inotify_, buffer, sizeof(buffer))) > 0;) {
    for (ssize_t at = 0; at < size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      isConcerned |= event->len == 0 || name == event->name;
    }
  }
  return isConcerned && reread();
}

bool SettingsFile::poll() {
  if (inotify_ < 0) return false;
  watch();
  const Signature now = signature();
  if (now == read_) return false;
  // Not before it has been the same for a second.
  if (std::exchange(pending_, now) != now) return false;
  return reread();
}

bool SettingsFile::reread() {
  const Signature now = signature();
  if (now == read_) return false;
  read_ = pending_ = now;
  if (!now) {
    QTRACE(settingsFileTrace, 0) << file_ << " is gone; what was in effect stays until there is another one";
    return false;
  }
  try {
    auto settings = vrfSettingsFromText(text(), file_);
    QTRACE(settingsFileTrace, 1) << file_ << " is in effect";
    if (settings == settings_) return false;
    settings_ = std::move(settings);
    return true;
  } catch (const Kel::Exception& error) {
    QTRACE(settingsFileTrace, 0) << error.what() << "; what was in effect stays";
    return false;
  }
}

}  // namespace Mirror
