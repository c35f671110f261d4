#include "backend/BackendStatPoll.h"

namespace tessivane {

void BackendStatPoll::follow(const std::set<std::string>& paths) {
  std::erase_if(lastStats_, [&paths](const auto& entry) { return !paths.contains(entry.first); });
  for (const std::string& path : paths) {
    const auto [place, isNew] = lastStats_.try_emplace(path);
    if (isNew)
      place->second = fileStamp(path);
  }
}

void BackendStatPoll::note(const std::string& path) {
  const auto found = lastStats_.find(path);
  if (found != lastStats_.end())
    found->second = fileStamp(path);
}

std::vector<std::string> BackendStatPoll::changed() {
  std::vector<std::string> paths;
  for (auto& [path, known] : lastStats_) {
    const auto stamp = fileStamp(path);
    if (stamp == known)
      continue;
    known = stamp;
    paths.push_back(path);
  }
  return paths;
}

}  // namespace tessivane
