#include "helpers/GitRepository.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <vector>

#include "helpers/Command.h"
#include "support/Text.h"

namespace tessivane {

namespace fs = std::filesystem;

GitRepository::GitRepository(const TempHome& home, std::string_view directory)
    : GitRepository(home, directory, {}) {}

GitRepository::GitRepository(const TempHome& home,
                             std::string_view directory,
                             std::initializer_list<std::string> arguments)
    : home_(home.path()), path_(home.makeDirectory(directory)) {
  std::vector<std::string> command = {
      "git", "-C", path_, "-c", "init.defaultBranch=main", "init", "--quiet"};
  command.insert(command.end(), arguments);
  commandOutput(command, {"HOME=" + home_, "PATH=/usr/bin:/bin", "GIT_CONFIG_NOSYSTEM=1"});
}

std::string GitRepository::git(std::initializer_list<std::string> arguments) {
  return gitIn(path_, arguments);
}

std::string GitRepository::gitIn(const std::string& directory,
                                 std::initializer_list<std::string> arguments) {
  now_ += std::chrono::minutes(1);
  const auto seconds = std::chrono::floor<std::chrono::seconds>(now_.time_since_epoch()).count();
  const std::string date = std::to_string(seconds) + " +0000";
  std::vector<std::string> command = {
      "git", "-C", directory, "-c", "protocol.file.allow=always", "-c", "gc.auto=0"};
  command.insert(command.end(), arguments);
  const std::string text = commandOutput(command,
                                         {"HOME=" + home_,
                                          "PATH=/usr/bin:/bin",
                                          "GIT_CONFIG_NOSYSTEM=1",
                                          "GIT_EDITOR=true",
                                          "GIT_AUTHOR_NAME=Ann  B. Author",
                                          "GIT_AUTHOR_EMAIL=ann@example.org",
                                          "GIT_COMMITTER_NAME=Ann  B. Author",
                                          "GIT_COMMITTER_EMAIL=ann@example.org",
                                          "GIT_AUTHOR_DATE=" + date,
                                          "GIT_COMMITTER_DATE=" + date});
  dateLogs();
  return std::string(trimmed(text));
}

std::string GitRepository::commit(const std::string& message) {
  return commitIn(path_, message);
}

std::string GitRepository::commitIn(const std::string& directory, const std::string& message) {
  gitIn(directory, {"commit", "--quiet", "--allow-empty", "-m", message});
  std::string hash = gitIn(directory, {"rev-parse", "HEAD"});
  now_ -= std::chrono::minutes(1);  // looking takes no time
  return hash;
}

void GitRepository::dateLogs() const {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(now_.time_since_epoch()).count();
  const std::array<timespec, 2> times = {
      {{.tv_sec = seconds, .tv_nsec = 0}, {.tv_sec = seconds, .tv_nsec = 0}}};
  for (const auto& entry : fs::recursive_directory_iterator(path_)) {
    if (entry.is_regular_file() && entry.path().string().find("/logs/") != std::string::npos)
      ::utimensat(AT_FDCWD, entry.path().c_str(), times.data(), 0);
  }
}

}  // namespace tessivane
