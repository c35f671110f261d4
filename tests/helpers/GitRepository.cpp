#include "helpers/GitRepository.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "support/Text.h"

namespace tessivane {

namespace {

namespace fs = std::filesystem;

void require(bool condition, const std::string& what) {
  if (!condition)
    throw std::runtime_error("GitRepository: " + what);
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts)
    pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 4096> buffer{};
  ssize_t count = 0;
  while ((count = ::read(descriptor, buffer.data(), buffer.size())) > 0)
    text.append(buffer.data(), static_cast<std::size_t>(count));
  return text;
}

// Runs a program with exactly this environment. What it prints, errors included.
std::string output(std::vector<std::string> arguments, std::vector<std::string> environment) {
  std::array<int, 2> ends{};
  require(::pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
  posix_spawn_file_actions_t actions{};
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], 2);
  pid_t child = 0;
  const int failure = ::posix_spawnp(&child,
                                     arguments.front().c_str(),
                                     &actions,
                                     nullptr,
                                     pointers(arguments).data(),
                                     pointers(environment).data());
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  std::string text = failure == 0 ? readAll(ends[0]) : "";
  ::close(ends[0]);
  int status = -1;
  if (failure == 0)
    ::waitpid(child, &status, 0);
  std::string command;
  for (const std::string& argument : arguments)
    command += argument + " ";
  require(status == 0, command + "failed: " + text);
  return text;
}

}  // namespace

GitRepository::GitRepository(const TempHome& home, std::string_view directory)
    : GitRepository(home, directory, {}) {}

GitRepository::GitRepository(const TempHome& home,
                             std::string_view directory,
                             std::initializer_list<std::string> arguments)
    : home_(home.path()), path_(home.makeDirectory(directory)) {
  std::vector<std::string> command = {
      "git", "-C", path_, "-c", "init.defaultBranch=main", "init", "--quiet"};
  command.insert(command.end(), arguments);
  output(command, {"HOME=" + home_, "PATH=/usr/bin:/bin", "GIT_CONFIG_NOSYSTEM=1"});
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
  const std::string text = output(command,
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
