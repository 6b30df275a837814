#pragma once
// The files of a store directory. Internal to the store.

#include <string>

namespace Quillo {

inline std::string dataFile(const std::string& directory) {
  return directory + "/data.mdb";
}
inline std::string lockFile(const std::string& directory) {
  return directory + "/lock.mdb";
}
inline std::string doorbellFile(const std::string& directory) {
  return directory + "/doorbell";
}
inline std::string publisherLockFile(const std::string& directory) {
  return directory + "/publisher.lock";
}
inline std::string foreignFile(const std::string& directory) {
  return directory + "/data.mdb.foreign";
}

}  // namespace Quillo
