#include "soak/FileStamps.h"

#include <sys/stat.h>

#include <filesystem>
#include <utility>

namespace tessivane {

namespace {

namespace fs = std::filesystem;

bool isBelow(const std::string& path, const std::string& directory) {
  return path == directory || path.starts_with(directory + "/");
}

}  // namespace

FileStamps::Stamps FileStamps::taken(const std::string& directory) {
  Stamps stamps;
  const auto add = [&stamps](const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0)
      return;
    // The index of a write-ahead log is mapped by its owner: its date follows at the system's
    // leisure.
    const bool isMapped = path.ends_with("-shm");
    stamps[path] = {status.st_mode,
                    status.st_ino,
                    isMapped ? 0 : status.st_size,
                    isMapped ? 0 : status.st_mtim.tv_sec,
                    isMapped ? 0 : status.st_mtim.tv_nsec};
  };
  add(directory);
  for (const auto& entry : fs::recursive_directory_iterator(directory))
    add(entry.path().string());
  return stamps;
}

void FileStamps::adopt(const std::string& directory) {
  std::erase_if(stamps_,
                [&directory](const auto& entry) { return isBelow(entry.first, directory); });
  stamps_.merge(taken(directory));
}

std::vector<std::string> FileStamps::differences(const std::string& directory) const {
  std::vector<std::string> differences;
  const Stamps now = taken(directory);
  for (const auto& [path, stamp] : now) {
    const auto before = stamps_.find(path);
    if (before == stamps_.end())
      differences.push_back(path + " came into being by itself");
    else if (before->second != stamp)
      differences.push_back(path + " was changed by itself");
  }
  for (const auto& [path, stamp] : stamps_) {
    if (isBelow(path, directory) && !now.contains(path))
      differences.push_back(path + " went by itself");
  }
  return differences;
}

}  // namespace tessivane
