#include "github/GitHubCLI.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "github/GitHubAPI.h"
#include "github/GitHubCredential.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace tessivane {

namespace {

constexpr const char* program = "gh";

constexpr std::string_view furtherDirectories[] = {
    "/opt/homebrew/bin", "/usr/local/bin", "/home/linuxbrew/.linuxbrew/bin", "/snap/bin"};

bool isExecutableFile(const std::string& path) {
  // Directories can be executable too.
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         ::access(path.c_str(), X_OK) == 0;
}

}  // namespace

std::optional<std::string> GitHubCLI::executable(std::string_view path) {
  return executable(path, [](const std::string& file) { return isExecutableFile(file); });
}

std::optional<std::string> GitHubCLI::executable(
    std::string_view path, FunctionRef<bool(const std::string&)> isExecutable) {
  while (!path.empty()) {
    const std::string_view directory = path.substr(0, path.find(':'));
    path.remove_prefix(std::min(path.size(), directory.size() + 1));
    if (directory.empty())
      continue;
    if (std::string file = joinedPath(directory, program); isExecutable(file))
      return file;
  }
  for (const std::string_view directory : furtherDirectories) {
    if (std::string file = joinedPath(directory, program); isExecutable(file))
      return file;
  }
  return std::nullopt;
}

std::optional<std::string> GitHubCLI::token(std::string_view path,
                                            const RunChildProcess& run,
                                            const std::stop_token& stop,
                                            Seconds limit) {
  const auto file = executable(path);
  if (!file)
    return std::nullopt;
  const auto result = run({.path = *file,
                           .arguments = {"auth", "token", "--hostname", GitHubAPI::webHost},
                           .limit = limit},
                          stop);
  // What a failed `gh` has printed is no token, whatever it looks like.
  if (!result || result->end != ChildProcessResult::End::exited || result->code != 0)
    return std::nullopt;
  const std::string_view token = trimmed(result->output);
  if (!isGitHubToken(token))
    return std::nullopt;
  return std::string(token);
}

}  // namespace tessivane
