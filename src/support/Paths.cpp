#include "support/Paths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

namespace tessivane {

namespace {

std::string withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/')
    path.remove_suffix(1);
  return std::string(path);
}

std::string accountHome() {
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0)
    return {};
  if (found == nullptr || found->pw_dir == nullptr)
    return {};
  return found->pw_dir;
}

std::optional<std::string_view> environmentValue(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nothing here sets it
  if (value == nullptr)
    return std::nullopt;
  return value;
}

std::string userDirectory(const char* variable, std::string_view fallback) {
  const auto configured = environmentValue(variable);
  if (configured && configured->starts_with('/'))
    return withoutTrailingSlashes(*configured);
  return joinedPath(Paths::home(), fallback);
}

}  // namespace

std::string homeDirectory(std::optional<std::string_view> environment, std::string_view account) {
  if (environment && environment->starts_with('/'))
    return withoutTrailingSlashes(*environment);
  if (account.starts_with('/'))
    return withoutTrailingSlashes(account);
  return "/";
}

const std::string& Paths::home() {
  static const std::string home = homeDirectory(environmentValue("HOME"), accountHome());
  return home;
}

std::string Paths::configDirectory() {
  return userDirectory("XDG_CONFIG_HOME", ".config");
}

std::string Paths::dataDirectory() {
  return userDirectory("XDG_DATA_HOME", ".local/share");
}

void makePrivateDirectory(const std::string& path) {
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  ::mkdir(path.c_str(), S_IRWXU);
}

std::string joinedPath(std::string_view directory, std::string_view name) {
  std::string path(directory);
  if (!path.ends_with('/'))
    path += '/';
  path += name;
  return path;
}

std::string_view lastPathComponent(std::string_view path) {
  while (path.size() > 1 && path.back() == '/')
    path.remove_suffix(1);
  const auto slash = path.rfind('/');
  if (slash == std::string_view::npos || path.size() == 1)
    return path;
  return path.substr(slash + 1);
}

std::string standardizedPath(std::string_view path) {
  return withoutTrailingSlashes(std::filesystem::path(path).lexically_normal().string());
}

}  // namespace tessivane
