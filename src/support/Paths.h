#pragma once

// Where this user's files are. Read once per process, safe on every thread afterwards.

#include <optional>
#include <string>
#include <string_view>

namespace tessivane {

/// The home directory told by `environment` (the value of HOME) when that is an absolute path, else
/// by `account` (the password entry). Without a slash at the end; "/" when neither tells one.
std::string homeDirectory(std::optional<std::string_view> environment, std::string_view account);

struct Paths {
  /// The user's home directory, never empty, never with a slash at the end (but for "/" itself).
  static const std::string& home();

  /// $XDG_CONFIG_HOME when that is an absolute path, else "{home}/.config"; $XDG_DATA_HOME
  /// likewise, else "{home}/.local/share".
  static std::string configDirectory();
  static std::string dataDirectory();
};

/// Makes a directory of the program's own, and those above it, if they are missing. The last one is
/// for this user alone, as what it will hold tells of this person's work. Failing that, whatever is
/// to be written there will tell.
void makePrivateDirectory(const std::string& path);

/// `directory` and `name` with one slash between them.
std::string joinedPath(std::string_view directory, std::string_view name);

/// What follows the last slash; slashes at the end do not count. "/" and "" give themselves.
std::string_view lastPathComponent(std::string_view path);

/// `path` without empty, "." and ".." components, as text only: links are not followed. An absolute
/// path stays absolute and never rises above "/".
std::string standardizedPath(std::string_view path);

}  // namespace tessivane
