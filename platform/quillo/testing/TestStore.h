#pragma once
// Helpers of the store's tests: a temporary directory, child processes, and the contents of a store as a map.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "kel/System.h"
#include "kel/testing/TraceLines.h"
#include "quillo/Mount.h"
#include "quillo/Publisher.h"

namespace Quillo::Test {

using Traces = KelTest::TraceLines;  // of level 0
using Contents = std::map<std::string, std::string>;

class TestStore : public ::testing::Test {
 protected:
  TestStore() {
    std::string base = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
    base += "/quillo-test-XXXXXX";
    parent_ = mkdtemp(base.data());
    // Some tests read the store as another user.
    std::filesystem::permissions(parent_, std::filesystem::perms{0755});
    directory_ = parent_ + "/store";
  }
  ~TestStore() override {
    Kel::System::clockIs({});
    std::filesystem::remove_all(parent_);
  }

  PublisherConfig config() const {
    PublisherConfig config;
    config.directory = directory_;
    config.name = "test-publisher";
    return config;
  }
  PublisherConfig recreating() const {
    auto anew = config();
    anew.recreate = true;
    return anew;
  }
  Kel::Ptr<Mount> mount() const {
    auto mount = Kel::makePtr<Mount>(MountConfig{directory_});
    mount->refresh();
    return mount;
  }
  std::string dataFile() const { return directory_ + "/data.mdb"; }
  // From here on the framework's clock returns `now_`, until the test ends.
  void stopClock() {
    now_ = Kel::System::currentTime();
    Kel::System::clockIs([this] { return now_; });
  }

  std::string parent_;     // exists
  std::string directory_;  // does not exist yet
  Kel::Seconds now_ = 0;
};

// Put values, and delete a key, in one commit. Return the number of changes.
inline std::uint64_t put(Publisher& publisher, const Contents& values, TableId table = TableId::varnix) {
  Batch batch = publisher.begin();
  for (const auto& [key, value] : values) batch.put(table, key, value);
  return batch.commit().changes;
}

inline std::uint64_t del(Publisher& publisher, const std::string& key) {
  Batch batch = publisher.begin();
  batch.del(TableId::varnix, key);
  return batch.commit().changes;
}

inline Contents contents(const Snapshot& snapshot, const std::string& from = "") {
  Contents all;
  for (Scan scan = snapshot.scan(TableId::varnix, from); scan.valid(); scan.next()) {
    all.emplace_hint(all.end(), scan.key(), scan.value());
  }
  return all;
}

// Runs `body`, which returns an exit status, in a child process. A child that hangs is killed after a minute.
template <class Body>
pid_t spawn(const Body& body) {
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    alarm(60);
    int status = 99;
    try {
      status = body();
    } catch (const std::exception& e) {
      std::fprintf(stderr, "child: %s\n", e.what());
    }
    std::fflush(nullptr);
    _exit(status);
  }
  return pid;
}

// The exit status, or minus the signal that ended the child.
inline int finish(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Returns the StoreException that `body` throws; fails the test if it throws none.
template <class Body>
StoreException refusal(const Body& body) {
  try {
    body();
  } catch (const StoreException& e) {
    return e;
  }
  ADD_FAILURE() << "no StoreException";
  return {StoreException::Kind::gone, ""};
}

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// Overwrites the first byte of each occurrence of `marker` in the file, also for processes that have mapped it. Returns
// the number of occurrences.
inline unsigned damage(const std::string& path, const std::string& marker) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), {});
  file.clear();
  unsigned places = 0;
  for (auto at = bytes.find(marker); at != std::string::npos; at = bytes.find(marker, at + 1)) {
    file.seekp(static_cast<std::streamoff>(at));
    file.put('#');
    ++places;
  }
  return places;
}

}  // namespace Quillo::Test
