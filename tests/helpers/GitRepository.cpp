#include "helpers/GitRepository.h"

#include <filesystem>
#include <vector>

#include "helpers/Command.h"

namespace tessivane {

namespace fs = std::filesystem;

GitRepository::GitRepository(const TempHome& home,
                             std::string_view directory,
                             std::initializer_list<std::string> arguments)
    : path_(home.makeDirectory(directory)) {
  std::vector<std::string> command = {"init", "--quiet", "--initial-branch=main"};
  command.insert(command.end(), arguments);
  gitOutput(path_, command);
}

std::string GitRepository::git(std::initializer_list<std::string> arguments) {
  return gitIn(path_, arguments);
}

std::string GitRepository::gitIn(const std::string& directory,
                                 std::initializer_list<std::string> arguments) {
  now_ += std::chrono::minutes(1);
  const std::string date = isoText(now_);
  std::string text =
      gitOutput(directory, arguments, {"GIT_AUTHOR_DATE=" + date, "GIT_COMMITTER_DATE=" + date});
  for (const auto& entry : fs::recursive_directory_iterator(path_)) {
    if (entry.is_regular_file() && entry.path().string().find("/logs/") != std::string::npos)
      fs::last_write_time(entry, std::chrono::file_clock::from_sys(now_));
  }
  return text;
}

std::string GitRepository::commit(const std::string& message) {
  return commitIn(path_, message);
}

std::string GitRepository::commitIn(const std::string& directory, const std::string& message) {
  gitIn(directory, {"commit", "--quiet", "--allow-empty", "-m", message});
  return gitOutput(directory, {"rev-parse", "HEAD"});
}

}  // namespace tessivane
